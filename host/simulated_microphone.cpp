#include "simulated_microphone.h"

#include <optional>
#include <vector>

#include "virtual_machine.h"
#include "zqplatform/vm/audio_machine.h"

namespace zqhost {
namespace {

std::optional<zqvm::PresentBridge> FindBridge(const std::string& serial, std::string* error) {
    const std::vector<zqvm::PresentBridge> bridges = zqvm::PresentBridges();
    if (bridges.empty()) {
        if (error != nullptr) *error = "the machine has no HID-to-UART bridge";
        return std::nullopt;
    }
    for (const zqvm::PresentBridge& bridge : bridges) {
        if (serial.empty() || bridge.description.serial.bytes == serial) return bridge;
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

bool SimulatedMicrophone::Unplug(const std::string& serial, std::string* error) {
    if (m_unplugged) {
        if (error != nullptr) *error = "'" + m_serial + "' is unplugged already";
        return false;
    }
    const std::optional<zqvm::PresentBridge> found = FindBridge(serial, error);
    if (!found) return false;
    m_description = found->description;
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
