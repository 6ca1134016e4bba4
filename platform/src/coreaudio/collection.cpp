// IMMDeviceCollection: the endpoints EnumAudioEndpoints found, as they were at that moment.
#include "com_object.h"
#include "objects.h"

namespace zqplatform::coreaudio {
namespace {

class DeviceCollection final : public Implements<IMMDeviceCollection> {
public:
    explicit DeviceCollection(std::vector<std::shared_ptr<Device>> devices) : m_devices(std::move(devices)) {}

    HRESULT STDMETHODCALLTYPE GetCount(UINT* pcDevices) override {
        if (pcDevices == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected(L"", "IMMDeviceCollection::GetCount", hr)) return hr;
        *pcDevices = static_cast<UINT>(m_devices.size());
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Item(UINT nDevice, IMMDevice** ppDevice) override {
        if (ppDevice == nullptr) return E_POINTER;
        *ppDevice = nullptr;
        HRESULT hr;
        if (Injected(L"", "IMMDeviceCollection::Item", hr)) return hr;
        if (nDevice >= m_devices.size()) return E_INVALIDARG;
        return CreateDevice(m_devices[nDevice], ppDevice);
    }

private:
    const std::vector<std::shared_ptr<Device>> m_devices;
};

}  // namespace

HRESULT CreateDeviceCollection(std::vector<std::shared_ptr<Device>> devices, IMMDeviceCollection** out) {
    return Make<IMMDeviceCollection, DeviceCollection>(out, std::move(devices));
}

}  // namespace zqplatform::coreaudio
