// IMMDeviceEnumerator, the front door of whichever backend plays the sound;
// CoCreateInstance(CLSID_MMDeviceEnumerator) makes one (backend/audio_backend.cpp).
#include "com_object.h"
#include "objects.h"

namespace zqplatform::coreaudio {
namespace {

class DeviceEnumerator final : public Implements<IMMDeviceEnumerator> {
public:
    explicit DeviceEnumerator(std::shared_ptr<Backend> backend) : m_backend(std::move(backend)) {}
    // Registrations made through this enumerator end with it (after waiting for a callback
    // under way), so a client is never called through an enumerator nobody holds.
    ~DeviceEnumerator() override { m_backend->Clients().RemoveOwner(this); }

    HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow dataFlow, DWORD dwStateMask,
                                                 IMMDeviceCollection** ppDevices) override {
        if (ppDevices == nullptr) return E_POINTER;
        *ppDevices = nullptr;
        HRESULT hr;
        if (Injected(L"", "IMMDeviceEnumerator::EnumAudioEndpoints", hr)) return hr;
        if (dataFlow < eRender || dataFlow > eAll) return E_INVALIDARG;
        if (dwStateMask == 0 || (dwStateMask & ~static_cast<DWORD>(DEVICE_STATEMASK_ALL)) != 0) return E_INVALIDARG;
        return CreateDeviceCollection(m_backend->Devices(dataFlow, dwStateMask), ppDevices);
    }

    HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow dataFlow, ERole role,
                                                      IMMDevice** ppEndpoint) override {
        if (ppEndpoint == nullptr) return E_POINTER;
        *ppEndpoint = nullptr;
        HRESULT hr;
        if (Injected(L"", "IMMDeviceEnumerator::GetDefaultAudioEndpoint", hr)) return hr;
        if ((dataFlow != eRender && dataFlow != eCapture) || role < eConsole || role > eCommunications)
            return E_INVALIDARG;
        std::shared_ptr<Device> device = m_backend->Default(dataFlow, role);
        if (!device) return E_NOTFOUND;
        return CreateDevice(std::move(device), ppEndpoint);
    }

    HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR pwstrId, IMMDevice** ppDevice) override {
        if (pwstrId == nullptr || ppDevice == nullptr) return E_POINTER;
        *ppDevice = nullptr;
        HRESULT hr;
        if (Injected(pwstrId, "IMMDeviceEnumerator::GetDevice", hr)) return hr;
        std::shared_ptr<Device> device = m_backend->Find(pwstrId);
        if (!device) return E_NOTFOUND;
        return CreateDevice(std::move(device), ppDevice);
    }

    HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient* pClient) override {
        if (pClient == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected(L"", "IMMDeviceEnumerator::RegisterEndpointNotificationCallback", hr)) return hr;
        m_backend->Clients().Add(pClient, this);  // a second registration of the same client changes nothing
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(IMMNotificationClient* pClient) override {
        if (pClient == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected(L"", "IMMDeviceEnumerator::UnregisterEndpointNotificationCallback", hr)) return hr;
        // Waits for a callback to this client under way on the notification thread, unless
        // called from that thread.
        return m_backend->Clients().Remove(pClient) ? S_OK : E_NOTFOUND;
    }

private:
    const std::shared_ptr<Backend> m_backend;
};

}  // namespace

HRESULT CreateDeviceEnumerator(std::shared_ptr<Backend> backend, REFIID riid, void** ppv) {
    return MakeAs<DeviceEnumerator>(riid, ppv, std::move(backend));
}

}  // namespace zqplatform::coreaudio
