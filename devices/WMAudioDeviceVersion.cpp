// CWMAudioDevice::InitVer: the version query over the microphone's HID-to-UART bridge.
//
// The microphone answers the one-byte query 0x03 with at least three bytes: one not looked
// at, the protocol (API) version, the firmware version. The read asks for more than it sends,
// so it always ends by the read time-out: each query lasts at least 150 ms.
#include <vector>

#include "core/FailureReport.h"
#include "zqCoreAudio.h"

namespace {

constexpr DWORD kBaudRate = 57600;
constexpr DWORD kTimeoutMs = 150;
constexpr BYTE kVersionQuery = 0x03;
constexpr DWORD kReplyBufferSize = 1000;
constexpr DWORD kVersionReplyLength = 3;

}  // namespace

// Runs on the thread of the discovery that calls it; takes no lock and keeps no handle.
// True when the query was written and a read was made; the versions are then those of the
// reply, or both 0 when fewer than three bytes came back. False when the bridge could not be
// opened or configured or the query not written: the versions stay as they were. The bridge is
// closed again in every case but a failed open.
bool CWMAudioDevice::InitVer(int nDevice) {
    HID_UART_DEVICE hDevice = nullptr;
    HID_UART_STATUS status = HidUart_Open(&hDevice, static_cast<DWORD>(nDevice), 0, 0);
    if (status != HID_UART_SUCCESS) {
        ReportQuietFailure(L"CoreAudio: a microphone's bridge cannot be opened (HidUart_Open: 0x%02x); its versions stay 0",
                           status);
        return false;
    }
    // Closes the bridge; a failure to close is told, the handle is the driver's then.
    const auto close = [&hDevice] {
        const HID_UART_STATUS closed = HidUart_Close(hDevice);
        if (closed != HID_UART_SUCCESS) ReportQuietFailure(L"CoreAudio: HidUart_Close failed: 0x%02x", closed);
    };

    status = HidUart_SetUartConfig(hDevice, kBaudRate, HID_UART_EIGHT_DATA_BITS, HID_UART_NO_PARITY,
                                   HID_UART_SHORT_STOP_BIT, HID_UART_NO_FLOW_CONTROL);
    if (status != HID_UART_SUCCESS) {
        ReportQuietFailure(
            L"CoreAudio: a microphone's UART cannot be configured (HidUart_SetUartConfig: 0x%02x); its versions stay 0",
            status);
        close();
        return false;
    }

    // Only a bridge whose time-outs can be read gets new ones; the others keep theirs.
    DWORD dwReadTimeout = 0;
    DWORD dwWriteTimeout = 0;
    status = HidUart_GetTimeouts(hDevice, &dwReadTimeout, &dwWriteTimeout);
    if (status == HID_UART_SUCCESS) status = HidUart_SetTimeouts(hDevice, kTimeoutMs, kTimeoutMs);
    if (status != HID_UART_SUCCESS) {
        ReportQuietFailure(L"CoreAudio: a microphone's UART time-outs stay as they were (HidUart_Get/SetTimeouts: 0x%02x)",
                           status);
    }

    BYTE query = kVersionQuery;
    DWORD dwWritten = 0;
    status = HidUart_Write(hDevice, &query, 1, &dwWritten);
    if (status != HID_UART_SUCCESS) {
        ReportQuietFailure(L"CoreAudio: the version query cannot be sent (HidUart_Write: 0x%02x); the versions stay 0", status);
        close();
        return false;
    }

    // Cleared, and the count checked: a missing or short reply yields versions 0, never bytes
    // the microphone did not send. The status is not looked at: the time-out is the normal end.
    std::vector<BYTE> reply(kReplyBufferSize, 0);
    DWORD dwRead = 0;
    status = HidUart_Read(hDevice, reply.data(), kReplyBufferSize, &dwRead);
    if (status != HID_UART_SUCCESS && status != HID_UART_READ_TIMED_OUT) {
        ReportQuietFailure(L"CoreAudio: the version reply cannot be read (HidUart_Read: 0x%02x)", status);
    }
    if (dwRead >= kVersionReplyLength && dwRead <= kReplyBufferSize) {
        m_nVerAPI = reply[1];
        m_nVerFW = reply[2];
    } else {
        m_nVerAPI = 0;
        m_nVerFW = 0;
    }

    close();
    return true;
}
