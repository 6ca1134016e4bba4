// IMMDevice and IMMEndpoint: one endpoint as a device object. Every GetDevice, Item and
// GetDefaultAudioEndpoint makes a new one; the backend may count the references held on them.
#include "../audio/text.h"
#include "com_object.h"
#include "objects.h"

namespace zqplatform::coreaudio {
namespace {

class DeviceObject final : public Implements<IMMDevice, IMMEndpoint> {
public:
    explicit DeviceObject(std::shared_ptr<Device> device) : m_device(std::move(device)) {
        m_device->CountReferences(+1);
    }

    ULONG STDMETHODCALLTYPE AddRef() override {
        m_device->CountReferences(+1);
        return Implements::AddRef();
    }
    ULONG STDMETHODCALLTYPE Release() override {
        // Before the release: the object (and its device pointer) may go with it.
        m_device->CountReferences(-1);
        return Implements::Release();
    }

    HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD /*dwClsCtx*/, PROPVARIANT* /*pActivationParams*/,
                                       void** ppInterface) override {
        if (ppInterface == nullptr) return E_POINTER;
        *ppInterface = nullptr;
        HRESULT hr;
        if (InjectedRequest(m_device->Id(), "IMMDevice::Activate", iid, hr)) return hr;
        const bool known = iid == IID_IAudioClient || iid == IID_IAudioMeterInformation ||
                           iid == IID_IAudioSessionManager || iid == IID_IAudioEndpointVolume;
        if (!known) return E_NOINTERFACE;
        // Audio objects exist only for a device that is there and enabled.
        std::shared_ptr<Endpoint> endpoint = m_device->Activate();
        if (!endpoint) return AUDCLNT_E_DEVICE_INVALIDATED;
        if (iid == IID_IAudioClient) return CreateAudioClient(std::move(endpoint), iid, ppInterface);
        if (iid == IID_IAudioMeterInformation) return CreateMeter(std::move(endpoint), iid, ppInterface);
        if (iid == IID_IAudioEndpointVolume) return CreateEndpointVolume(std::move(endpoint), iid, ppInterface);
        return CreateSessionManager(std::move(endpoint), iid, ppInterface);
    }

    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD stgmAccess, IPropertyStore** ppProperties) override {
        if (ppProperties == nullptr) return E_POINTER;
        *ppProperties = nullptr;
        HRESULT hr;
        if (Injected(m_device->Id(), "IMMDevice::OpenPropertyStore", hr)) return hr;
        if (stgmAccess != STGM_READ) {
            // Writing endpoint properties takes administrator rights on Windows; nobody has them here.
            return stgmAccess == STGM_WRITE || stgmAccess == STGM_READWRITE ? E_ACCESSDENIED : E_INVALIDARG;
        }
        return CreatePropertyStore(m_device, ppProperties);
    }

    HRESULT STDMETHODCALLTYPE GetId(LPWSTR* ppstrId) override {
        if (ppstrId == nullptr) return E_POINTER;
        *ppstrId = nullptr;
        HRESULT hr;
        if (Injected(m_device->Id(), "IMMDevice::GetId", hr)) return hr;
        *ppstrId = audio::TaskMemCopy(m_device->Id());
        return *ppstrId != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetState(DWORD* pdwState) override {
        if (pdwState == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected(m_device->Id(), "IMMDevice::GetState", hr)) return hr;
        *pdwState = m_device->State();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetDataFlow(EDataFlow* pDataFlow) override {
        if (pDataFlow == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected(m_device->Id(), "IMMEndpoint::GetDataFlow", hr)) return hr;
        *pDataFlow = m_device->Flow();
        return S_OK;
    }

private:
    const std::shared_ptr<Device> m_device;
};

}  // namespace

HRESULT CreateDevice(std::shared_ptr<Device> device, IMMDevice** out) {
    return Make<IMMDevice, DeviceObject>(out, std::move(device));
}

}  // namespace zqplatform::coreaudio
