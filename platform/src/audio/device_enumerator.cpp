// IMMDeviceEnumerator, the engine's front door; CoCreateInstance(CLSID_MMDeviceEnumerator)
// makes one when the virtual engine is the chosen backend (backend/audio_backend.cpp).
#include "com_object.h"
#include "engine.h"
#include "objects.h"

namespace zqplatform::audio {
namespace {

class DeviceEnumerator final : public IMMDeviceEnumerator, private ComObject {
public:
    explicit DeviceEnumerator(Engine& engine) : m_engine(engine) {}
    // Registrations made through this enumerator end with it (after waiting for a callback
    // under way), so a client is never called through an enumerator nobody holds.
    ~DeviceEnumerator() override { m_engine.Clients().RemoveOwner(this); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IMMDeviceEnumerator>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow dataFlow, DWORD dwStateMask,
                                                 IMMDeviceCollection** ppDevices) override {
        if (ppDevices == nullptr) return E_POINTER;
        *ppDevices = nullptr;
        HRESULT hr;
        if (Injected("IMMDeviceEnumerator::EnumAudioEndpoints", L"", hr)) return hr;
        if (dataFlow < eRender || dataFlow > eAll) return E_INVALIDARG;
        if (dwStateMask == 0 || (dwStateMask & ~static_cast<DWORD>(DEVICE_STATEMASK_ALL)) != 0) return E_INVALIDARG;
        return CreateDeviceCollection(m_engine.Endpoints(dataFlow, dwStateMask), ppDevices);
    }

    HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow dataFlow, ERole role,
                                                      IMMDevice** ppEndpoint) override {
        if (ppEndpoint == nullptr) return E_POINTER;
        *ppEndpoint = nullptr;
        HRESULT hr;
        if (Injected("IMMDeviceEnumerator::GetDefaultAudioEndpoint", L"", hr)) return hr;
        if ((dataFlow != eRender && dataFlow != eCapture) || role < eConsole || role > eCommunications)
            return E_INVALIDARG;
        std::shared_ptr<EndpointState> endpoint = m_engine.Default(dataFlow, role);
        if (!endpoint) return E_NOTFOUND;
        return CreateDevice(std::move(endpoint), ppEndpoint);
    }

    HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR pwstrId, IMMDevice** ppDevice) override {
        if (pwstrId == nullptr || ppDevice == nullptr) return E_POINTER;
        *ppDevice = nullptr;
        HRESULT hr;
        if (Injected("IMMDeviceEnumerator::GetDevice", pwstrId, hr)) return hr;
        std::shared_ptr<EndpointState> endpoint = m_engine.Find(pwstrId);
        if (!endpoint) return E_NOTFOUND;
        return CreateDevice(std::move(endpoint), ppDevice);
    }

    HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient* pClient) override {
        if (pClient == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected("IMMDeviceEnumerator::RegisterEndpointNotificationCallback", L"", hr)) return hr;
        m_engine.Clients().Add(pClient, this);  // a second registration of the same client changes nothing
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(IMMNotificationClient* pClient) override {
        if (pClient == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected("IMMDeviceEnumerator::UnregisterEndpointNotificationCallback", L"", hr)) return hr;
        // Waits for a callback to this client under way on the notification thread, unless
        // called from that thread.
        return m_engine.Clients().Remove(pClient) ? S_OK : E_NOTFOUND;
    }

private:
    static bool Injected(const char* method, std::wstring_view endpointId, HRESULT& hr) {
        return FailureRules::Instance().Match(endpointId, method, hr);
    }

    Engine& m_engine;
};

}  // namespace

HRESULT CreateDeviceEnumerator(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    auto* enumerator = new (std::nothrow) DeviceEnumerator(Engine::Instance());
    if (enumerator == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = enumerator->QueryInterface(riid, ppv);
    enumerator->Release();  // the creator's reference; the query's stays with the caller
    return hr;
}

}  // namespace zqplatform::audio
