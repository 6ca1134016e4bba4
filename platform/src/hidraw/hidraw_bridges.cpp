#include "hidraw_bridges.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "../bridges/instance_key.h"
#include "../usb/usb_container.h"
#include "hidraw_nodes.h"
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

}  // namespace

HID_UART_STATUS GetNumDevices(DWORD* numDevices, WORD vid, WORD pid) {
    if (numDevices == nullptr) return HID_UART_INVALID_PARAMETER;
    const std::vector<HidrawNode> nodes = ListNodes(vid, pid);
    PublishContainers(nodes);
    *numDevices = static_cast<DWORD>(nodes.size());
    return HID_UART_SUCCESS;
}

HID_UART_STATUS GetString(DWORD deviceNum, WORD vid, WORD pid, char* deviceString, DWORD options) {
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

HID_UART_STATUS UartNotDriven() {
    static std::atomic<bool> told{false};
    if (!told.exchange(true)) {
        OutputDebugStringW(L"hidraw: the bridges' UART is not driven over hidraw yet: versions stay 0\n");
    }
    return HID_UART_DEVICE_NOT_SUPPORTED;
}

}  // namespace zqplatform::hidraw
