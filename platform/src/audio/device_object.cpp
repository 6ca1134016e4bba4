// IMMDevice and IMMEndpoint: one endpoint as a device object. Every GetDevice, Item and
// GetDefaultAudioEndpoint makes a new one; the references held on them are counted per
// endpoint for the control API.
#include "com_object.h"
#include "objects.h"
#include "text.h"

namespace zqplatform::audio {
namespace {

class DeviceObject final : public IMMDevice, public IMMEndpoint, private ComObject {
public:
    explicit DeviceObject(std::shared_ptr<EndpointState> endpoint) : m_endpoint(std::move(endpoint)) {
        m_endpoint->deviceRefs.fetch_add(1, std::memory_order_relaxed);
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IMMDevice, IMMEndpoint>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override {
        m_endpoint->deviceRefs.fetch_add(1, std::memory_order_relaxed);
        return AddRefImpl();
    }
    ULONG STDMETHODCALLTYPE Release() override {
        // Before the release: the object (and its endpoint pointer) may go with it.
        m_endpoint->deviceRefs.fetch_sub(1, std::memory_order_acq_rel);
        return ReleaseImpl();
    }

    HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD /*dwClsCtx*/, PROPVARIANT* /*pActivationParams*/,
                                       void** ppInterface) override {
        if (ppInterface == nullptr) return E_POINTER;
        *ppInterface = nullptr;
        HRESULT hr;
        if (FailureRules::Instance().MatchRequest(m_endpoint->id, "IMMDevice::Activate", iid, hr)) return hr;
        const bool known = iid == IID_IAudioClient || iid == IID_IAudioMeterInformation ||
                           iid == IID_IAudioSessionManager;
        if (!known) return E_NOINTERFACE;
        // Audio objects exist only for a device that is there and enabled.
        if (m_endpoint->state.load() != DEVICE_STATE_ACTIVE) return AUDCLNT_E_DEVICE_INVALIDATED;
        const EndpointBinding binding(m_endpoint);
        if (iid == IID_IAudioClient) return CreateAudioClient(binding, iid, ppInterface);
        if (iid == IID_IAudioMeterInformation) return CreateMeter(binding, iid, ppInterface);
        return CreateSessionManager(binding, iid, ppInterface);
    }

    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD stgmAccess, IPropertyStore** ppProperties) override {
        if (ppProperties == nullptr) return E_POINTER;
        *ppProperties = nullptr;
        HRESULT hr;
        if (Injected("IMMDevice::OpenPropertyStore", hr)) return hr;
        if (stgmAccess != STGM_READ) {
            // Writing endpoint properties takes administrator rights on Windows; nobody has them here.
            return stgmAccess == STGM_WRITE || stgmAccess == STGM_READWRITE ? E_ACCESSDENIED : E_INVALIDARG;
        }
        return CreatePropertyStore(m_endpoint, ppProperties);
    }

    HRESULT STDMETHODCALLTYPE GetId(LPWSTR* ppstrId) override {
        if (ppstrId == nullptr) return E_POINTER;
        *ppstrId = nullptr;
        HRESULT hr;
        if (Injected("IMMDevice::GetId", hr)) return hr;
        *ppstrId = TaskMemCopy(m_endpoint->id);
        return *ppstrId != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetState(DWORD* pdwState) override {
        if (pdwState == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected("IMMDevice::GetState", hr)) return hr;
        *pdwState = m_endpoint->state.load();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetDataFlow(EDataFlow* pDataFlow) override {
        if (pDataFlow == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected("IMMEndpoint::GetDataFlow", hr)) return hr;
        *pDataFlow = m_endpoint->flow;
        return S_OK;
    }

private:
    bool Injected(const char* method, HRESULT& hr) const {
        return FailureRules::Instance().Match(m_endpoint->id, method, hr);
    }

    const std::shared_ptr<EndpointState> m_endpoint;
};

}  // namespace

HRESULT CreateDevice(std::shared_ptr<EndpointState> endpoint, IMMDevice** out) {
    auto* device = new (std::nothrow) DeviceObject(std::move(endpoint));
    if (device == nullptr) return E_OUTOFMEMORY;
    *out = device;
    return S_OK;
}

}  // namespace zqplatform::audio
