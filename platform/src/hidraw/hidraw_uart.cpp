#include "hidraw_uart.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "cp2110_reports.h"

namespace zqplatform::hidraw {
namespace {

using Clock = std::chrono::steady_clock;

int RemainingMs(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::max<int64_t>(left, 0));
}

}  // namespace

HID_UART_STATUS HidrawUart::Start() {
    uint8_t version[cp2110::kVersionSize] = {cp2110::kVersion, 0, 0};
    if (!m_device->GetFeature(version, sizeof(version))) return HID_UART_DEVICE_IO_FAILED;
    if (version[1] != cp2110::kPartCp2110 && version[1] != cp2110::kPartCp2114) return HID_UART_DEVICE_NOT_SUPPORTED;
    const uint8_t enable[] = {cp2110::kUartEnable, 1};
    const uint8_t purge[] = {cp2110::kPurgeFifos, cp2110::kPurgeBoth};
    if (!m_device->SetFeature(enable, sizeof(enable)) || !m_device->SetFeature(purge, sizeof(purge))) {
        return HID_UART_DEVICE_IO_FAILED;
    }
    return HID_UART_SUCCESS;
}

HID_UART_STATUS HidrawUart::SetConfig(DWORD baudRate, BYTE dataBits, BYTE parity, BYTE stopBits, BYTE flowControl) {
    const uint8_t config[cp2110::kUartConfigSize] = {cp2110::kUartConfig,
                                                     static_cast<uint8_t>(baudRate >> 24),
                                                     static_cast<uint8_t>(baudRate >> 16),
                                                     static_cast<uint8_t>(baudRate >> 8),
                                                     static_cast<uint8_t>(baudRate),
                                                     parity,
                                                     flowControl,
                                                     dataBits,
                                                     stopBits};
    return m_device->SetFeature(config, sizeof(config)) ? HID_UART_SUCCESS : HID_UART_DEVICE_IO_FAILED;
}

HID_UART_STATUS HidrawUart::Write(const BYTE* buffer, DWORD count, DWORD* written) {
    *written = 0;
    uint8_t report[1 + cp2110::kMaxDataReport];
    while (*written < count) {
        const DWORD chunk = std::min<DWORD>(count - *written, cp2110::kMaxDataReport);
        report[0] = static_cast<uint8_t>(chunk);
        std::copy_n(buffer + *written, chunk, report + 1);
        if (!m_device->Write(report, 1 + chunk)) return HID_UART_WRITE_ERROR;
        *written += chunk;
    }
    return HID_UART_SUCCESS;
}

bool HidrawUart::TakeReport() {
    uint8_t report[64];
    const long size = m_device->Read(report, sizeof(report));
    if (size < 0) return false;
    if (size == 0) return true;
    const uint8_t length = report[0];
    if (length == 0 || length > cp2110::kMaxDataReport || length >= size) {
        ++m_dropped;  // not a data report, or one shorter than it says
        return true;
    }
    m_pending.insert(m_pending.end(), report + 1, report + 1 + length);
    return true;
}

HID_UART_STATUS HidrawUart::Read(BYTE* buffer, DWORD count, DWORD* read) {
    *read = 0;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(m_readTimeoutMs);
    for (;;) {
        const DWORD take = std::min<DWORD>(count - *read, static_cast<DWORD>(m_pending.size()));
        std::copy_n(m_pending.begin(), take, buffer + *read);
        m_pending.erase(m_pending.begin(), m_pending.begin() + take);
        *read += take;
        if (*read == count) return HID_UART_SUCCESS;
        switch (m_device->Wait(RemainingMs(deadline))) {
            case HidrawDevice::Ready::Gone: return HID_UART_DEVICE_IO_FAILED;
            case HidrawDevice::Ready::TimedOut: return HID_UART_READ_TIMED_OUT;
            case HidrawDevice::Ready::Readable:
                if (!TakeReport()) return HID_UART_DEVICE_IO_FAILED;
                break;
        }
    }
}

uint64_t HidrawUart::TakeDroppedReports() { return std::exchange(m_dropped, 0); }

}  // namespace zqplatform::hidraw
