// IAudioSessionManager of an endpoint. The engine keeps one session per endpoint, the
// process's default session: every session GUID names it.
#include "com_object.h"
#include "objects.h"

namespace zqplatform::audio {
namespace {

class SessionManager final : public IAudioSessionManager, private ComObject {
public:
    explicit SessionManager(const EndpointBinding& binding) : m_binding(binding) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioSessionManager>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetAudioSessionControl(LPCGUID /*AudioSessionGuid*/, DWORD StreamFlags,
                                                     IAudioSessionControl** SessionControl) override {
        if (SessionControl == nullptr) return E_POINTER;
        *SessionControl = nullptr;
        HRESULT hr;
        if (m_binding.Intercept("IAudioSessionManager::GetAudioSessionControl", hr)) return hr;
        if ((StreamFlags & ~static_cast<DWORD>(AUDCLNT_STREAMFLAGS_CROSSPROCESS)) != 0) return E_INVALIDARG;
        return CreateSessionControl(m_binding, reinterpret_cast<void**>(SessionControl));
    }

    HRESULT STDMETHODCALLTYPE GetSimpleAudioVolume(LPCGUID /*AudioSessionGuid*/, DWORD StreamFlags,
                                                   ISimpleAudioVolume** AudioVolume) override {
        if (AudioVolume == nullptr) return E_POINTER;
        *AudioVolume = nullptr;
        HRESULT hr;
        if (m_binding.Intercept("IAudioSessionManager::GetSimpleAudioVolume", hr)) return hr;
        if ((StreamFlags & ~static_cast<DWORD>(AUDCLNT_STREAMFLAGS_CROSSPROCESS)) != 0) return E_INVALIDARG;
        return CreateSimpleVolume(m_binding, reinterpret_cast<void**>(AudioVolume));
    }

private:
    const EndpointBinding m_binding;
};

}  // namespace

HRESULT CreateSessionManager(const EndpointBinding& binding, REFIID riid, void** ppv) {
    auto* manager = new (std::nothrow) SessionManager(binding);
    if (manager == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = manager->QueryInterface(riid, ppv);
    manager->Release();
    return hr;
}

}  // namespace zqplatform::audio
