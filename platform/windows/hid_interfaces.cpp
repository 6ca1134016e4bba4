#include "hid_interfaces.h"

#include <setupapi.h>
// MinGW-w64's HID headers leave out the C linkage that the Microsoft SDK's give.
extern "C" {
#include <hidsdi.h>
}

#include <cstdio>
#include <memory>

#include "../src/strings/utf8.h"
#include "zqplatform/win/hiduart.h"

namespace zqplatform::winhid {
namespace {

// An interface opened for queries only: no read or write access, which HID class drivers grant
// even for devices another program holds (keyboards, mice).
struct QueryHandle {
    explicit QueryHandle(const std::wstring& path)
        : handle(CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                             nullptr)) {}
    ~QueryHandle() {
        if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
    }
    QueryHandle(const QueryHandle&) = delete;
    QueryHandle& operator=(const QueryHandle&) = delete;
    HANDLE handle;
};

struct DeviceInfoSet {
    explicit DeviceInfoSet(const GUID& hidClass)
        : set(SetupDiGetClassDevsW(&hidClass, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE)) {}
    ~DeviceInfoSet() {
        if (set != INVALID_HANDLE_VALUE) SetupDiDestroyDeviceInfoList(set);
    }
    DeviceInfoSet(const DeviceInfoSet&) = delete;
    DeviceInfoSet& operator=(const DeviceInfoSet&) = delete;
    HDEVINFO set;
};

std::optional<std::wstring> InterfacePath(HDEVINFO set, SP_DEVICE_INTERFACE_DATA& data) {
    DWORD size = 0;
    SetupDiGetDeviceInterfaceDetailW(set, &data, nullptr, 0, &size, nullptr);
    if (size < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) return std::nullopt;
    // The detail is a variable-length record: its buffer is aligned for the fixed part.
    std::unique_ptr<DWORD[]> buffer(new DWORD[(size + sizeof(DWORD) - 1) / sizeof(DWORD)]);
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.get());
    detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
    if (!SetupDiGetDeviceInterfaceDetailW(set, &data, detail, size, nullptr, nullptr)) return std::nullopt;
    return std::wstring(detail->DevicePath);
}

// HID strings are at most 126 characters (a USB string descriptor) plus the NUL.
using StringQuery = BOOLEAN(NTAPI*)(HANDLE, PVOID, ULONG);

std::optional<std::string> QueryString(const std::wstring& path, StringQuery query) {
    QueryHandle hid(path);
    if (hid.handle == INVALID_HANDLE_VALUE) return std::nullopt;
    wchar_t text[127] = {};
    if (!query(hid.handle, text, sizeof(text) - sizeof(wchar_t))) return std::nullopt;
    return Utf8FromWide(text);
}

std::string Hex4(WORD value) {
    char hex[8];
    std::snprintf(hex, sizeof(hex), "%04X", value);
    return hex;
}

}  // namespace

std::vector<HidInterface> ListHidInterfaces(WORD vid, WORD pid) {
    std::vector<HidInterface> found;
    GUID hidClass;
    HidD_GetHidGuid(&hidClass);
    DeviceInfoSet devices(hidClass);
    if (devices.set == INVALID_HANDLE_VALUE) return found;
    SP_DEVICE_INTERFACE_DATA data = {};
    data.cbSize = sizeof(data);
    for (DWORD index = 0; SetupDiEnumDeviceInterfaces(devices.set, nullptr, &hidClass, index, &data); ++index) {
        std::optional<std::wstring> path = InterfacePath(devices.set, data);
        if (!path) continue;
        QueryHandle hid(*path);
        HIDD_ATTRIBUTES attributes = {};
        attributes.Size = sizeof(attributes);
        if (hid.handle == INVALID_HANDLE_VALUE || !HidD_GetAttributes(hid.handle, &attributes)) continue;
        if ((vid != 0 && attributes.VendorID != vid) || (pid != 0 && attributes.ProductID != pid)) continue;
        found.push_back({std::move(*path), attributes.VendorID, attributes.ProductID});
    }
    return found;
}

std::optional<std::string> HidInterfaceString(const HidInterface& hid, DWORD option) {
    switch (option) {
        case HID_UART_GET_VID_STR: return Hex4(hid.vid);
        case HID_UART_GET_PID_STR: return Hex4(hid.pid);
        case HID_UART_GET_PATH_STR: return Utf8FromWide(hid.path);
        case HID_UART_GET_SERIAL_STR: return QueryString(hid.path, HidD_GetSerialNumberString);
        case HID_UART_GET_MANUFACTURER_STR: return QueryString(hid.path, HidD_GetManufacturerString);
        case HID_UART_GET_PRODUCT_STR: return QueryString(hid.path, HidD_GetProductString);
        default: return std::nullopt;
    }
}

}  // namespace zqplatform::winhid
