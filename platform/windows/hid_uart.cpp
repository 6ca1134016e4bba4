// The bridge vendor's HidUart_* functions on Windows: the maker's bridges among the HID
// interfaces SetupAPI lists (hid_interfaces.h), each opened bridge the same UART over the
// chip's reports as on Linux (../src/hidraw/hidraw_uart.h) with a Windows HID interface below
// it (hid_device.h). A handle is a key into a table, so a closed or unknown handle is refused
// instead of followed; calls on one handle take turns, calls on different handles run side by
// side. Failures that the status cannot tell go to the debug output (a debugger's or
// DebugView's window), as the system's quiet failures do.
#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "../src/hidraw/hidraw_uart.h"
#include "hid_device.h"
#include "hid_interfaces.h"
#include "zqplatform/win/hiduart.h"

namespace {

using zqplatform::hidraw::HidrawUart;
using zqplatform::winhid::HidInterface;

struct Bridge {
    Bridge(std::wstring interfacePath, std::unique_ptr<zqvm::HidrawDevice> device)
        : path(std::move(interfacePath)), uart(std::move(device)) {}
    std::mutex turn;
    std::wstring path;
    HidrawUart uart;
};

class BridgeTable {
public:
    HID_UART_DEVICE Add(std::shared_ptr<Bridge> bridge) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const uintptr_t key = m_next++;
        m_open[key] = std::move(bridge);
        return reinterpret_cast<HID_UART_DEVICE>(key);
    }
    std::shared_ptr<Bridge> Find(HID_UART_DEVICE device) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_open.find(reinterpret_cast<uintptr_t>(device));
        return it == m_open.end() ? nullptr : it->second;
    }
    std::shared_ptr<Bridge> Take(HID_UART_DEVICE device) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_open.find(reinterpret_cast<uintptr_t>(device));
        if (it == m_open.end()) return nullptr;
        std::shared_ptr<Bridge> bridge = std::move(it->second);
        m_open.erase(it);
        return bridge;
    }

private:
    std::mutex m_mutex;
    std::map<uintptr_t, std::shared_ptr<Bridge>> m_open;
    uintptr_t m_next = 0x100;
};

BridgeTable& Bridges() {
    static BridgeTable* table = new BridgeTable;  // never destroyed: threads may call in at exit
    return *table;
}

void Tell(const std::wstring& line) { OutputDebugStringW((L"HidUart: " + line + L"\n").c_str()); }

template <class Call>
HID_UART_STATUS WithBridge(HID_UART_DEVICE device, Call call) {
    const std::shared_ptr<Bridge> bridge = Bridges().Find(device);
    if (!bridge) return HID_UART_INVALID_DEVICE_OBJECT;
    std::lock_guard<std::mutex> lock(bridge->turn);
    return call(bridge->uart);
}

}  // namespace

extern "C" {

HID_UART_STATUS HidUart_GetNumDevices(DWORD* numDevices, WORD vid, WORD pid) {
    if (numDevices == nullptr) return HID_UART_INVALID_PARAMETER;
    *numDevices = static_cast<DWORD>(zqplatform::winhid::ListHidInterfaces(vid, pid).size());
    return HID_UART_SUCCESS;
}

HID_UART_STATUS HidUart_GetString(DWORD deviceNum, WORD vid, WORD pid, char* deviceString, DWORD options) {
    if (deviceString == nullptr) return HID_UART_INVALID_PARAMETER;
    if (options < HID_UART_GET_VID_STR || options > HID_UART_GET_PRODUCT_STR) return HID_UART_INVALID_PARAMETER;
    const std::vector<HidInterface> found = zqplatform::winhid::ListHidInterfaces(vid, pid);
    if (deviceNum >= found.size()) return HID_UART_DEVICE_NOT_FOUND;
    const std::optional<std::string> text = zqplatform::winhid::HidInterfaceString(found[deviceNum], options);
    if (!text) return HID_UART_DEVICE_ACCESS_ERROR;
    const size_t length = std::min<size_t>(text->size(), HID_UART_DEVICE_STRLEN - 1);
    std::memcpy(deviceString, text->data(), length);
    deviceString[length] = '\0';
    return HID_UART_SUCCESS;
}

HID_UART_STATUS HidUart_Open(HID_UART_DEVICE* device, DWORD deviceNum, WORD vid, WORD pid) {
    if (device == nullptr) return HID_UART_INVALID_PARAMETER;
    const std::vector<HidInterface> found = zqplatform::winhid::ListHidInterfaces(vid, pid);
    if (deviceNum >= found.size()) return HID_UART_DEVICE_NOT_FOUND;
    std::wstring why;
    std::unique_ptr<zqvm::HidrawDevice> hid = zqplatform::winhid::OpenHidInterface(found[deviceNum].path, &why);
    if (!hid) {
        Tell(found[deviceNum].path + L": cannot be opened: " + why);
        return HID_UART_DEVICE_ACCESS_ERROR;
    }
    auto bridge = std::make_shared<Bridge>(found[deviceNum].path, std::move(hid));
    if (const HID_UART_STATUS status = bridge->uart.Start(); status != HID_UART_SUCCESS) return status;
    *device = Bridges().Add(std::move(bridge));
    return HID_UART_SUCCESS;
}

HID_UART_STATUS HidUart_Close(HID_UART_DEVICE device) {
    const std::shared_ptr<Bridge> bridge = Bridges().Take(device);
    if (!bridge) return HID_UART_INVALID_DEVICE_OBJECT;
    std::lock_guard<std::mutex> lock(bridge->turn);  // a call still under way on it ends first
    if (const uint64_t dropped = bridge->uart.TakeDroppedReports(); dropped != 0) {
        Tell(bridge->path + L": dropped " + std::to_wstring(dropped) + L" input report(s) that carried no UART data");
    }
    return HID_UART_SUCCESS;
}

HID_UART_STATUS HidUart_SetUartConfig(HID_UART_DEVICE device, DWORD baudRate, BYTE dataBits, BYTE parity,
                                      BYTE stopBits, BYTE flowControl) {
    return WithBridge(device, [&](HidrawUart& uart) {
        return uart.SetConfig(baudRate, dataBits, parity, stopBits, flowControl);
    });
}

HID_UART_STATUS HidUart_GetTimeouts(HID_UART_DEVICE device, DWORD* readTimeout, DWORD* writeTimeout) {
    return WithBridge(device, [&](HidrawUart& uart) {
        if (readTimeout == nullptr || writeTimeout == nullptr) return HID_UART_INVALID_PARAMETER;
        *readTimeout = uart.ReadTimeoutMs();
        *writeTimeout = uart.WriteTimeoutMs();
        return HID_UART_SUCCESS;
    });
}

HID_UART_STATUS HidUart_SetTimeouts(HID_UART_DEVICE device, DWORD readTimeout, DWORD writeTimeout) {
    return WithBridge(device, [&](HidrawUart& uart) {
        uart.SetTimeouts(readTimeout, writeTimeout);
        return HID_UART_SUCCESS;
    });
}

HID_UART_STATUS HidUart_Write(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToWrite, DWORD* numBytesWritten) {
    return WithBridge(device, [&](HidrawUart& uart) {
        if (buffer == nullptr || numBytesWritten == nullptr) return HID_UART_INVALID_PARAMETER;
        if (numBytesToWrite < 1 || numBytesToWrite > HID_UART_MAX_WRITE_SIZE) return HID_UART_INVALID_REQUEST_LENGTH;
        return uart.Write(buffer, numBytesToWrite, numBytesWritten);
    });
}

HID_UART_STATUS HidUart_Read(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToRead, DWORD* numBytesRead) {
    return WithBridge(device, [&](HidrawUart& uart) {
        if (buffer == nullptr || numBytesRead == nullptr) return HID_UART_INVALID_PARAMETER;
        if (numBytesToRead < 1 || numBytesToRead > HID_UART_MAX_READ_SIZE) return HID_UART_INVALID_REQUEST_LENGTH;
        return uart.Read(buffer, numBytesToRead, numBytesRead);
    });
}

}  // extern "C"
