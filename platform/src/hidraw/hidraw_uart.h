// The UART of one of the maker's bridges behind an opened hidraw node, spoken in the chip's
// reports (cp2110_reports.h): opening checks the part, enables the UART and purges both FIFOs;
// writes go out in interrupt reports of at most 63 bytes; reads gather the bytes of input
// reports until the count has arrived or the read time-out has run out, waiting in the node's
// poll. An input report that carries no UART data (id 0 or above 0x3F, or a length beyond the
// report) is dropped and counted. Not thread-safe: the bridge table serialises the calls on one
// handle. Internal to the platform library.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>

#include "hidraw_device.h"
#include "zqplatform/win/hiduart.h"

namespace zqplatform::hidraw {

class HidrawUart {
public:
    explicit HidrawUart(std::unique_ptr<HidrawDevice> device) : m_device(std::move(device)) {}

    // The part check, UART enable and purge; HID_UART_DEVICE_NOT_SUPPORTED for another part.
    HID_UART_STATUS Start();
    // The settings are within their ranges (the bridge library's front end checked them).
    HID_UART_STATUS SetConfig(DWORD baudRate, BYTE dataBits, BYTE parity, BYTE stopBits, BYTE flowControl);
    void SetTimeouts(DWORD readMs, DWORD writeMs) {
        m_readTimeoutMs = readMs;
        m_writeTimeoutMs = writeMs;
    }
    DWORD ReadTimeoutMs() const { return m_readTimeoutMs; }
    DWORD WriteTimeoutMs() const { return m_writeTimeoutMs; }
    HID_UART_STATUS Write(const BYTE* buffer, DWORD count, DWORD* written);
    HID_UART_STATUS Read(BYTE* buffer, DWORD count, DWORD* read);
    // Input reports dropped since the last call.
    uint64_t TakeDroppedReports();

private:
    // Takes one waiting input report into m_pending; false when the device is gone.
    bool TakeReport();

    std::unique_ptr<HidrawDevice> m_device;
    std::deque<uint8_t> m_pending;  // UART bytes that arrived beyond an earlier read's count
    DWORD m_readTimeoutMs = 0;
    DWORD m_writeTimeoutMs = 1000;
    uint64_t m_dropped = 0;
};

}  // namespace zqplatform::hidraw
