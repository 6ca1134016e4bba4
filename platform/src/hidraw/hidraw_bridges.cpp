// The hidraw backend of the bridge library (bridges/bridge_ops.h): the maker's bridges plugged
// into this machine, listed and named from sysfs (hidraw_nodes.h). Each listing also publishes,
// for every bridge with a USB device folder and a serial number, the "ContainerID" that
// discovery reads (instance_key.h): the GUID that the pulse backend derives for the sound card of
// the same USB device, so the two pair.
// An opened bridge is its node's UART (hidraw_uart.h); calls on one handle take turns, calls on
// different handles run side by side. A handle that dropped input reports says so on the debug
// output when it is closed.
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
#include "../bridges/bridge_ops.h"
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
    std::map<bridges::BackendHandle, std::shared_ptr<Handle>> open;
    bridges::BackendHandle next = 1;
};

Handles& TheHandles() {
    static Handles* handles = new Handles;  // reachable to the end: threads may still call in
    return *handles;
}

// Paths and reasons are UTF-8, as every narrow text here.
std::wstring Wide(const std::string& text) { return WideFromUtf8(text); }

void Tell(const std::wstring& line) { OutputDebugStringW((line + L"\n").c_str()); }

// Runs call on the handle's UART, the handle's calls taking turns.
template <class Call>
HID_UART_STATUS OnHandle(bridges::BackendHandle key, Call call) {
    std::shared_ptr<Handle> handle;
    {
        Handles& handles = TheHandles();
        std::lock_guard<std::mutex> lock(handles.mutex);
        const auto it = handles.open.find(key);
        if (it == handles.open.end()) return HID_UART_INVALID_DEVICE_OBJECT;
        handle = it->second;
    }
    std::lock_guard<std::mutex> lock(handle->mutex);
    return call(handle->uart);
}

HID_UART_STATUS CountDevices(WORD vid, WORD pid, DWORD* count) {
    const std::vector<HidrawNode> nodes = ListNodes(vid, pid);
    PublishContainers(nodes);
    *count = static_cast<DWORD>(nodes.size());
    return HID_UART_SUCCESS;
}

HID_UART_STATUS GetString(DWORD deviceNum, WORD vid, WORD pid, DWORD option, char* out) {
    const std::vector<HidrawNode> nodes = ListNodes(vid, pid);
    if (deviceNum >= nodes.size()) return HID_UART_DEVICE_NOT_FOUND;
    const std::optional<std::string> text = StringOf(nodes[deviceNum], option);
    // A missing attribute file: the device is there but its string cannot be read.
    if (!text) return HID_UART_DEVICE_ACCESS_ERROR;
    const size_t length = std::min<size_t>(text->size(), HID_UART_DEVICE_STRLEN);
    std::memcpy(out, text->data(), length);
    if (length < HID_UART_DEVICE_STRLEN) out[length] = '\0';
    return HID_UART_SUCCESS;
}

HID_UART_STATUS Open(DWORD deviceNum, WORD vid, WORD pid, bridges::BackendHandle* opened) {
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
    *opened = handles.next++;
    handles.open[*opened] = std::move(handle);
    return HID_UART_SUCCESS;
}

void Close(bridges::BackendHandle key) {
    std::shared_ptr<Handle> handle;
    {
        Handles& handles = TheHandles();
        std::lock_guard<std::mutex> lock(handles.mutex);
        const auto it = handles.open.find(key);
        if (it == handles.open.end()) return;
        handle = std::move(it->second);
        handles.open.erase(it);
    }
    std::lock_guard<std::mutex> lock(handle->mutex);
    if (const uint64_t dropped = handle->uart.TakeDroppedReports(); dropped != 0) {
        Tell(L"hidraw: " + Wide(handle->path) + L": dropped " + std::to_wstring(dropped) +
             L" input report(s) that carried no UART data");
    }
}

HID_UART_STATUS SetUartConfig(bridges::BackendHandle key, const bridges::UartConfig& c) {
    return OnHandle(key, [&](HidrawUart& uart) {
        return uart.SetConfig(c.baudRate, c.dataBits, c.parity, c.stopBits, c.flowControl);
    });
}

HID_UART_STATUS GetTimeouts(bridges::BackendHandle key, DWORD* readMs, DWORD* writeMs) {
    return OnHandle(key, [&](HidrawUart& uart) {
        *readMs = uart.ReadTimeoutMs();
        *writeMs = uart.WriteTimeoutMs();
        return HID_UART_SUCCESS;
    });
}

HID_UART_STATUS SetTimeouts(bridges::BackendHandle key, DWORD readMs, DWORD writeMs) {
    return OnHandle(key, [&](HidrawUart& uart) {
        uart.SetTimeouts(readMs, writeMs);
        return HID_UART_SUCCESS;
    });
}

HID_UART_STATUS Write(bridges::BackendHandle key, const BYTE* buffer, DWORD count, DWORD* written) {
    return OnHandle(key, [&](HidrawUart& uart) { return uart.Write(buffer, count, written); });
}

HID_UART_STATUS Read(bridges::BackendHandle key, BYTE* buffer, DWORD count, DWORD* read) {
    return OnHandle(key, [&](HidrawUart& uart) { return uart.Read(buffer, count, read); });
}

}  // namespace
}  // namespace zqplatform::hidraw

namespace zqplatform::bridges {

const BridgeOps& HidrawBridgeOps() {
    static const BridgeOps ops{&hidraw::CountDevices, &hidraw::GetString,     &hidraw::Open,
                               &hidraw::Close,        &hidraw::SetUartConfig, &hidraw::GetTimeouts,
                               &hidraw::SetTimeouts,  &hidraw::Write,         &hidraw::Read};
    return ops;
}

}  // namespace zqplatform::bridges
