#include "simulated_microphone.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include "text.h"
#include "virtual_machine.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/registry.h"

namespace zqhost {
namespace {

// One present bridge as the machine shows it: its identifier and its description, read back
// through the bridge library (strings, vendor and product numbers, the path that names the
// simulated bridge) and the registry (the container identifier of its USB device).
struct FoundBridge {
    zqvm::BridgeId id = 0;
    zqvm::BridgeDescription description;
};

zqvm::BridgeString ReadString(DWORD index, DWORD option) {
    char buffer[HID_UART_DEVICE_STRLEN + 1] = {};
    const HID_UART_STATUS status = HidUart_GetString(index, 0, 0, buffer, option);
    std::string bytes(buffer, strnlen(buffer, HID_UART_DEVICE_STRLEN));
    const bool written = !bytes.empty();
    return zqvm::BridgeString(std::move(bytes), status, status != HID_UART_SUCCESS && written);
}

std::optional<GUID> ContainerOf(const zqvm::BridgeDescription& d) {
    char prefix[64];
    std::snprintf(prefix, sizeof prefix, "SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_%04X&PID_%04X\\", d.vid, d.pid);
    std::wstring path = Wide(prefix);
    for (const char ch : d.serial.bytes) path += static_cast<wchar_t>(static_cast<unsigned char>(ch));
    DWORD type = 0;
    std::vector<uint8_t> data;
    if (!zqvm::RegistryGetValue(HKEY_LOCAL_MACHINE, path, L"ContainerID", type, data) || type != REG_SZ) {
        return std::nullopt;
    }
    std::wstring text(data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
    text.resize(wcsnlen(text.c_str(), text.size()));
    const GUID guid = Str2Guid(CStringW(text.c_str()));
    if (guid == GUID_NULL) return std::nullopt;
    return guid;
}

// The identifier is the number at the end of the bridge's path ("zqvm:hid-uart:<id>").
zqvm::BridgeId IdFromPath(const std::string& path) {
    const size_t colon = path.rfind(':');
    if (colon == std::string::npos || colon + 1 >= path.size()) return 0;
    char* end = nullptr;
    const unsigned long long id = std::strtoull(path.c_str() + colon + 1, &end, 10);
    return *end == '\0' ? static_cast<zqvm::BridgeId>(id) : 0;
}

std::optional<FoundBridge> FindBridge(const std::string& serial, std::string* error) {
    DWORD count = 0;
    if (HidUart_GetNumDevices(&count, 0, 0) != HID_UART_SUCCESS || count == 0) {
        if (error != nullptr) *error = "the machine has no HID-to-UART bridge";
        return std::nullopt;
    }
    for (DWORD i = 0; i < count; ++i) {
        FoundBridge found;
        zqvm::BridgeDescription& d = found.description;
        d.serial = ReadString(i, HID_UART_GET_SERIAL_STR);
        if (!serial.empty() && d.serial.bytes != serial) continue;
        d.manufacturer = ReadString(i, HID_UART_GET_MANUFACTURER_STR);
        d.product = ReadString(i, HID_UART_GET_PRODUCT_STR);
        d.vid = static_cast<WORD>(std::strtoul(ReadString(i, HID_UART_GET_VID_STR).bytes.c_str(), nullptr, 16));
        d.pid = static_cast<WORD>(std::strtoul(ReadString(i, HID_UART_GET_PID_STR).bytes.c_str(), nullptr, 16));
        d.containerId = ContainerOf(d);
        found.id = IdFromPath(ReadString(i, HID_UART_GET_PATH_STR).bytes);
        if (found.id == 0) {
            if (error != nullptr) *error = "the bridge of '" + d.serial.bytes + "' does not say which it is";
            return std::nullopt;
        }
        return found;
    }
    if (error != nullptr) *error = "no bridge with the serial number '" + serial + "'";
    return std::nullopt;
}

// The capture endpoint in the same USB device as the bridge: the one with its container.
std::wstring EndpointOfContainer(const GUID& container) {
    CComPtr<IMMDeviceEnumerator> enumerator;
    if (FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                reinterpret_cast<void**>(&enumerator))) ||
        !enumerator) {
        return {};
    }
    for (const std::wstring& id : CaptureEndpointIds()) {
        CComPtr<IMMDevice> device;
        if (FAILED(enumerator->GetDevice(id.c_str(), &device)) || !device) continue;
        CComPtr<IPropertyStore> store;
        if (FAILED(device->OpenPropertyStore(STGM_READ, &store)) || !store) continue;
        PROPVARIANT value;
        PropVariantInit(&value);
        const bool same = SUCCEEDED(store->GetValue(PKEY_Device_ContainerId, &value)) && value.vt == VT_CLSID &&
                          value.puuid != nullptr && *value.puuid == container;
        PropVariantClear(&value);
        if (same) return id;
    }
    return {};
}

}  // namespace

bool SimulatedMicrophone::Unplug(const std::string& serial, std::optional<std::pair<uint8_t, uint8_t>> versions,
                                 std::string* error) {
    if (m_unplugged) {
        if (error != nullptr) *error = "'" + m_serial + "' is unplugged already";
        return false;
    }
    std::optional<FoundBridge> found = FindBridge(serial, error);
    if (!found) return false;
    m_description = found->description;
    if (versions) m_description.versionReply = {0xAA, versions->first, versions->second};
    m_serial = m_description.serial.bytes;
    m_endpointId = m_description.containerId ? EndpointOfContainer(*m_description.containerId) : std::wstring();
    // The bridge first: by the time the library hears that the endpoint went, the whole USB
    // device is gone, as when the cable is pulled.
    if (!zqvm::RemoveBridge(found->id)) {
        if (error != nullptr) *error = "the bridge of '" + m_serial + "' could not be removed";
        return false;
    }
    if (!m_endpointId.empty()) zqvm::InvalidateEndpoint(m_endpointId);
    m_unplugged = true;
    return true;
}

bool SimulatedMicrophone::Replug(std::string* error) {
    if (!m_unplugged) {
        if (error != nullptr) *error = "no microphone is unplugged";
        return false;
    }
    // The bridge first: discovery, run when the endpoint becomes active, must find it.
    zqvm::AddBridge(m_description);
    if (!m_endpointId.empty()) zqvm::SetEndpointState(m_endpointId, DEVICE_STATE_ACTIVE);
    m_unplugged = false;
    return true;
}

}  // namespace zqhost
