#include "hidraw_bridges.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "../bridges/instance_key.h"
#include "../faults/call_faults.h"
#include "../strings/utf8.h"
#include "../usb/usb_container.h"
#include "hidraw_device.h"
#include "hidraw_nodes.h"
#include "hidraw_uart.h"
#include "zqplatform/vm/registry.h"
#include "zqplatform/win/debugapi.h"

namespace zqplatform::hidraw {
namespace {

// The instance keys published by earlier listings, withdrawn when their bridge is gone.
struct Published {
    std::mutex mutex;
    std::set<std::wstring> keys;
};

Published& ThePublished() {
    static Published* published = new Published;  // reachable to the end: threads may still list
    return *published;
}

void PublishContainers(const std::vector<HidrawNode>& nodes) {
    std::set<std::wstring> now;
    for (const HidrawNode& node : nodes) {
        if (node.usbFolder.empty()) continue;  // no USB device: no key is invented
        const std::optional<std::string> serial = usb::ReadSysfsLine(node.usbFolder + "/serial");
        const GUID container = usb::ContainerIdOfUsbFolder(node.usbFolder);
        if (!serial || container == GUID_NULL) continue;
        const std::wstring key = bridges::InstanceKeyPath(node.vid, node.pid, *serial);
        if (key.empty()) continue;
        bridges::PublishContainerId(key, container);
        now.insert(key);
    }
    Published& published = ThePublished();
    std::lock_guard<std::mutex> lock(published.mutex);
    for (const std::wstring& key : published.keys) {
        if (now.count(key) == 0) zqvm::RegistryDeleteKey(HKEY_LOCAL_MACHINE, key);
    }
    published.keys = std::move(now);
}

// The text an option asks for; nothing when its sysfs file cannot be read.
std::optional<std::string> StringOf(const HidrawNode& node, DWORD option) {
    char hex[8];
    switch (option) {
        case HID_UART_GET_VID_STR:
            std::snprintf(hex, sizeof(hex), "%04X", node.vid);
            return std::string(hex);
        case HID_UART_GET_PID_STR:
            std::snprintf(hex, sizeof(hex), "%04X", node.pid);
            return std::string(hex);
        case HID_UART_GET_PATH_STR: return node.devicePath;
        case HID_UART_GET_SERIAL_STR: return usb::ReadSysfsLine(node.usbFolder + "/serial");
        case HID_UART_GET_MANUFACTURER_STR: return usb::ReadSysfsLine(node.usbFolder + "/manufacturer");
        case HID_UART_GET_PRODUCT_STR: return usb::ReadSysfsLine(node.usbFolder + "/product");
        default: return std::nullopt;
    }
}

// An opened bridge: its node's UART, one call at a time.
struct Handle {
    Handle(std::string nodePath, std::unique_ptr<HidrawDevice> node) : path(std::move(nodePath)), uart(std::move(node)) {}
    std::mutex mutex;
    std::string path;
    HidrawUart uart;
};

struct Handles {
    std::mutex mutex;
    std::map<uintptr_t, std::shared_ptr<Handle>> open;
    uintptr_t next = 0x100;
};

Handles& TheHandles() {
    static Handles* handles = new Handles;  // reachable to the end: threads may still call in
    return *handles;
}

// Paths and reasons are UTF-8, as every narrow text here.
std::wstring Wide(const std::string& text) { return WideFromUtf8(text); }

void Tell(const std::wstring& line) { OutputDebugStringW((line + L"\n").c_str()); }

// Runs call on the handle's UART, the handle's calls taking turns; an unknown handle is refused.
template <class Call>
HID_UART_STATUS OnHandle(const char* name, HID_UART_DEVICE device, Call call) {
    if (int64_t fault = 0; faults::TakeCallFailure(name, fault)) return static_cast<HID_UART_STATUS>(fault);
    std::shared_ptr<Handle> handle;
    {
        Handles& handles = TheHandles();
        std::lock_guard<std::mutex> lock(handles.mutex);
        const auto it = handles.open.find(reinterpret_cast<uintptr_t>(device));
        if (it == handles.open.end()) return HID_UART_INVALID_DEVICE_OBJECT;
        handle = it->second;
    }
    std::lock_guard<std::mutex> lock(handle->mutex);
    return call(handle->uart);
}

}  // namespace

HID_UART_STATUS GetNumDevices(DWORD* numDevices, WORD vid, WORD pid) {
    if (int64_t fault = 0; faults::TakeCallFailure("HidUart_GetNumDevices", fault)) {
        return static_cast<HID_UART_STATUS>(fault);
    }
    if (numDevices == nullptr) return HID_UART_INVALID_PARAMETER;
    const std::vector<HidrawNode> nodes = ListNodes(vid, pid);
    PublishContainers(nodes);
    *numDevices = static_cast<DWORD>(nodes.size());
    return HID_UART_SUCCESS;
}

HID_UART_STATUS GetString(DWORD deviceNum, WORD vid, WORD pid, char* deviceString, DWORD options) {
    if (int64_t fault = 0; faults::TakeCallFailure("HidUart_GetString", fault)) return static_cast<HID_UART_STATUS>(fault);
    if (deviceString == nullptr) return HID_UART_INVALID_PARAMETER;
    if (options < HID_UART_GET_VID_STR || options > HID_UART_GET_PRODUCT_STR) return HID_UART_INVALID_PARAMETER;
    const std::vector<HidrawNode> nodes = ListNodes(vid, pid);
    if (deviceNum >= nodes.size()) return HID_UART_DEVICE_NOT_FOUND;
    const std::optional<std::string> text = StringOf(nodes[deviceNum], options);
    // A missing attribute file: the device is there but its string cannot be read.
    if (!text) return HID_UART_DEVICE_ACCESS_ERROR;
    const size_t length = std::min<size_t>(text->size(), HID_UART_DEVICE_STRLEN);
    std::memcpy(deviceString, text->data(), length);
    if (length < HID_UART_DEVICE_STRLEN) deviceString[length] = '\0';
    return HID_UART_SUCCESS;
}

HID_UART_STATUS Open(HID_UART_DEVICE* device, DWORD deviceNum, WORD vid, WORD pid) {
    if (int64_t fault = 0; faults::TakeCallFailure("HidUart_Open", fault)) return static_cast<HID_UART_STATUS>(fault);
    if (device == nullptr) return HID_UART_INVALID_PARAMETER;
    const std::vector<HidrawNode> nodes = ListNodes(vid, pid);
    if (deviceNum >= nodes.size()) return HID_UART_DEVICE_NOT_FOUND;
    const HidrawNode& listed = nodes[deviceNum];
    const std::string& path = listed.devicePath;
    std::string why;
    std::unique_ptr<HidrawDevice> node = OpenHidraw(path, &why);
    if (!node) {
        Tell(L"hidraw: " + Wide(path) + L": cannot be opened: " + Wide(why));
        return HID_UART_DEVICE_ACCESS_ERROR;
    }
    // Node numbers are reused: between the listing and the open, another device may have
    // taken this one's.
    uint16_t vendor = 0;
    uint16_t product = 0;
    if (!node->Info(&vendor, &product) || vendor != listed.vid || product != listed.pid) {
        Tell(L"hidraw: " + Wide(path) + L": is no longer the device that was listed");
        return HID_UART_DEVICE_NOT_FOUND;
    }
    auto handle = std::make_shared<Handle>(path, std::move(node));
    if (const HID_UART_STATUS status = handle->uart.Start(); status != HID_UART_SUCCESS) return status;
    Handles& handles = TheHandles();
    std::lock_guard<std::mutex> lock(handles.mutex);
    const uintptr_t key = handles.next++;
    handles.open[key] = std::move(handle);
    *device = reinterpret_cast<HID_UART_DEVICE>(key);
    return HID_UART_SUCCESS;
}

HID_UART_STATUS Close(HID_UART_DEVICE device) {
    std::shared_ptr<Handle> handle;
    {
        Handles& handles = TheHandles();
        std::lock_guard<std::mutex> lock(handles.mutex);
        const auto it = handles.open.find(reinterpret_cast<uintptr_t>(device));
        if (it == handles.open.end()) return HID_UART_INVALID_DEVICE_OBJECT;
        handle = std::move(it->second);
        handles.open.erase(it);
    }
    std::lock_guard<std::mutex> lock(handle->mutex);
    if (const uint64_t dropped = handle->uart.TakeDroppedReports(); dropped != 0) {
        Tell(L"hidraw: " + Wide(handle->path) + L": dropped " + std::to_wstring(dropped) +
             L" input report(s) that carried no UART data");
    }
    // A failure injected here is reported after the handle was freed, as the driver frees it anyway.
    if (int64_t fault = 0; faults::TakeCallFailure("HidUart_Close", fault)) return static_cast<HID_UART_STATUS>(fault);
    return HID_UART_SUCCESS;
}

HID_UART_STATUS SetUartConfig(HID_UART_DEVICE device, DWORD baudRate, BYTE dataBits, BYTE parity, BYTE stopBits,
                              BYTE flowControl) {
    return OnHandle("HidUart_SetUartConfig", device, [&](HidrawUart& uart) {
        return uart.SetConfig(baudRate, dataBits, parity, stopBits, flowControl);
    });
}

HID_UART_STATUS GetTimeouts(HID_UART_DEVICE device, DWORD* readTimeout, DWORD* writeTimeout) {
    return OnHandle("HidUart_GetTimeouts", device, [&](HidrawUart& uart) {
        if (readTimeout == nullptr || writeTimeout == nullptr) return HID_UART_INVALID_PARAMETER;
        *readTimeout = uart.ReadTimeoutMs();
        *writeTimeout = uart.WriteTimeoutMs();
        return HID_UART_SUCCESS;
    });
}

HID_UART_STATUS SetTimeouts(HID_UART_DEVICE device, DWORD readTimeout, DWORD writeTimeout) {
    return OnHandle("HidUart_SetTimeouts", device, [&](HidrawUart& uart) {
        uart.SetTimeouts(readTimeout, writeTimeout);
        return HID_UART_SUCCESS;
    });
}

HID_UART_STATUS Write(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToWrite, DWORD* numBytesWritten) {
    return OnHandle("HidUart_Write", device, [&](HidrawUart& uart) {
        if (buffer == nullptr || numBytesWritten == nullptr) return HID_UART_INVALID_PARAMETER;
        if (numBytesToWrite < 1 || numBytesToWrite > HID_UART_MAX_WRITE_SIZE) return HID_UART_INVALID_REQUEST_LENGTH;
        return uart.Write(buffer, numBytesToWrite, numBytesWritten);
    });
}

HID_UART_STATUS Read(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToRead, DWORD* numBytesRead) {
    return OnHandle("HidUart_Read", device, [&](HidrawUart& uart) {
        if (buffer == nullptr || numBytesRead == nullptr) return HID_UART_INVALID_PARAMETER;
        if (numBytesToRead < 1 || numBytesToRead > HID_UART_MAX_READ_SIZE) return HID_UART_INVALID_REQUEST_LENGTH;
        return uart.Read(buffer, numBytesToRead, numBytesRead);
    });
}

}  // namespace zqplatform::hidraw
