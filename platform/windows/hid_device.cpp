// Windows pads every report to the length the device declares for its kind (HidP_GetCaps) and
// refuses a shorter buffer; the UART speaks its reports at their own lengths, so each call
// goes through a buffer of the declared length. A read stays pending across Wait calls that
// time out, so that no input report is lost between them; it is cancelled when the device closes.
#include "hid_device.h"

#include <windows.h>
// MinGW-w64's HID headers leave out the C linkage that the Microsoft SDK's give.
extern "C" {
#include <hidsdi.h>
#include <hidpi.h>
}

#include <algorithm>
#include <cstring>
#include <vector>

namespace zqplatform::winhid {
namespace {

// A write that the driver has not taken within this time is failed, as a full queue would be.
constexpr DWORD kWriteWaitMs = 1000;

class WindowsHidDevice final : public zqvm::HidrawDevice {
public:
    WindowsHidDevice(HANDLE file, const HIDP_CAPS& caps)
        : m_file(file),
          m_readDone(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          m_writeDone(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          m_input(caps.InputReportByteLength),
          m_outputLength(caps.OutputReportByteLength),
          m_featureLength(caps.FeatureReportByteLength) {}
    ~WindowsHidDevice() override {
        if (m_readPending) {
            CancelIo(m_file);
            DWORD ignored = 0;
            GetOverlappedResult(m_file, &m_readOverlapped, &ignored, TRUE);  // the buffer is ours until then
        }
        CloseHandle(m_file);
        if (m_readDone != nullptr) CloseHandle(m_readDone);
        if (m_writeDone != nullptr) CloseHandle(m_writeDone);
    }
    WindowsHidDevice(const WindowsHidDevice&) = delete;
    WindowsHidDevice& operator=(const WindowsHidDevice&) = delete;

    bool Usable() const { return m_readDone != nullptr && m_writeDone != nullptr && !m_input.empty(); }

    bool Info(uint16_t* vendor, uint16_t* product) override {
        HIDD_ATTRIBUTES attributes = {};
        attributes.Size = sizeof(attributes);
        if (!HidD_GetAttributes(m_file, &attributes)) return false;
        *vendor = attributes.VendorID;
        *product = attributes.ProductID;
        return true;
    }

    bool GetFeature(uint8_t* report, size_t size) override {
        std::vector<uint8_t> buffer(std::max<size_t>(size, m_featureLength), 0);
        buffer[0] = report[0];
        if (!HidD_GetFeature(m_file, buffer.data(), static_cast<ULONG>(buffer.size()))) return false;
        std::memcpy(report, buffer.data(), size);
        return true;
    }

    bool SetFeature(const uint8_t* report, size_t size) override {
        std::vector<uint8_t> buffer(std::max<size_t>(size, m_featureLength), 0);
        std::memcpy(buffer.data(), report, size);
        return HidD_SetFeature(m_file, buffer.data(), static_cast<ULONG>(buffer.size())) != FALSE;
    }

    bool Write(const uint8_t* report, size_t size) override {
        std::vector<uint8_t> buffer(std::max<size_t>(size, m_outputLength), 0);
        std::memcpy(buffer.data(), report, size);
        OVERLAPPED overlapped = {};
        overlapped.hEvent = m_writeDone;
        ResetEvent(m_writeDone);
        DWORD written = 0;
        if (!WriteFile(m_file, buffer.data(), static_cast<DWORD>(buffer.size()), &written, &overlapped)) {
            if (GetLastError() != ERROR_IO_PENDING) return false;
            if (WaitForSingleObject(m_writeDone, kWriteWaitMs) != WAIT_OBJECT_0) CancelIo(m_file);
            if (!GetOverlappedResult(m_file, &overlapped, &written, TRUE)) return false;
        }
        return written == buffer.size();
    }

    long Read(uint8_t* report, size_t size) override {
        if (!m_haveReport && !(m_readPending && Complete(FALSE))) return m_gone ? -1 : 0;
        m_haveReport = false;
        const size_t length = std::min<size_t>(m_inputLength, size);
        std::memcpy(report, m_input.data(), length);
        return static_cast<long>(length);
    }

    Ready Wait(int timeoutMs) override {
        if (m_haveReport) return Ready::Readable;
        if (m_gone || (!m_readPending && !StartRead())) return Ready::Gone;
        if (m_haveReport) return Ready::Readable;
        if (WaitForSingleObject(m_readDone, static_cast<DWORD>(std::max(timeoutMs, 0))) != WAIT_OBJECT_0) {
            return Ready::TimedOut;
        }
        return Complete(TRUE) ? Ready::Readable : Ready::Gone;
    }

private:
    // Starts the next read; a read that completes at once leaves its report waiting.
    bool StartRead() {
        m_readOverlapped = {};
        m_readOverlapped.hEvent = m_readDone;
        ResetEvent(m_readDone);
        DWORD length = 0;
        if (ReadFile(m_file, m_input.data(), static_cast<DWORD>(m_input.size()), &length, &m_readOverlapped)) {
            m_inputLength = length;
            m_haveReport = true;
            return true;
        }
        if (GetLastError() != ERROR_IO_PENDING) {
            m_gone = true;
            return false;
        }
        m_readPending = true;
        return true;
    }

    // Takes the pending read's result; false when it has not completed (wait FALSE) or failed.
    bool Complete(BOOL wait) {
        DWORD length = 0;
        if (GetOverlappedResult(m_file, &m_readOverlapped, &length, wait)) {
            m_readPending = false;
            m_inputLength = length;
            m_haveReport = true;
            return true;
        }
        if (GetLastError() == ERROR_IO_INCOMPLETE) return false;
        m_readPending = false;
        m_gone = true;
        return false;
    }

    HANDLE m_file;
    HANDLE m_readDone;
    HANDLE m_writeDone;
    OVERLAPPED m_readOverlapped = {};
    std::vector<uint8_t> m_input;
    size_t m_inputLength = 0;
    size_t m_outputLength;
    size_t m_featureLength;
    bool m_readPending = false;
    bool m_haveReport = false;
    bool m_gone = false;
};

bool ReadCaps(HANDLE file, HIDP_CAPS& caps) {
    PHIDP_PREPARSED_DATA preparsed = nullptr;
    if (!HidD_GetPreparsedData(file, &preparsed)) return false;
    const bool ok = HidP_GetCaps(preparsed, &caps) == HIDP_STATUS_SUCCESS;
    HidD_FreePreparsedData(preparsed);
    return ok;
}

}  // namespace

std::unique_ptr<zqvm::HidrawDevice> OpenHidInterface(const std::wstring& path, std::wstring* why) {
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        *why = L"CreateFileW failed with error " + std::to_wstring(GetLastError());
        return nullptr;
    }
    HIDP_CAPS caps = {};
    if (!ReadCaps(file, caps)) {
        CloseHandle(file);
        *why = L"its report lengths cannot be read (HidP_GetCaps)";
        return nullptr;
    }
    auto device = std::make_unique<WindowsHidDevice>(file, caps);  // owns the file from here
    if (!device->Usable()) {
        *why = L"no events for its transfers, or no input reports";
        return nullptr;
    }
    return device;
}

}  // namespace zqplatform::winhid
