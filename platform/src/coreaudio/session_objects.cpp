// ISimpleAudioVolume and IAudioSessionManager of an endpoint's session (the process's default
// session on it: every session GUID names it). The volume comes from IAudioClient::GetService
// (the stream's session) and from IAudioSessionManager::GetSimpleAudioVolume.
#include "com_object.h"
#include "objects.h"

namespace zqplatform::coreaudio {
namespace {

class SimpleVolume final : public Implements<ISimpleAudioVolume> {
public:
    explicit SimpleVolume(std::shared_ptr<Endpoint> endpoint) : m_endpoint(std::move(endpoint)) {}

    HRESULT STDMETHODCALLTYPE SetMasterVolume(float fLevel, LPCGUID EventContext) override {
        HRESULT hr;
        if (Intercepted(*m_endpoint, "ISimpleAudioVolume::SetMasterVolume", hr)) return hr;
        if (!(fLevel >= 0.0f && fLevel <= 1.0f)) return E_INVALIDARG;  // NaN too
        return m_endpoint->SetSessionVolume(fLevel, EventContext) ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
    }

    HRESULT STDMETHODCALLTYPE GetMasterVolume(float* pfLevel) override {
        return Read(*m_endpoint, "ISimpleAudioVolume::GetMasterVolume", pfLevel,
                    [this] { return m_endpoint->Session()->Volume(); });
    }

    HRESULT STDMETHODCALLTYPE SetMute(BOOL bMute, LPCGUID EventContext) override {
        HRESULT hr;
        if (Intercepted(*m_endpoint, "ISimpleAudioVolume::SetMute", hr)) return hr;
        return m_endpoint->SetSessionMute(bMute != FALSE, EventContext) ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
    }

    HRESULT STDMETHODCALLTYPE GetMute(BOOL* pbMute) override {
        return Read(*m_endpoint, "ISimpleAudioVolume::GetMute", pbMute,
                    [this] { return m_endpoint->Session()->Mute() ? TRUE : FALSE; });
    }

private:
    const std::shared_ptr<Endpoint> m_endpoint;
};

class SessionManager final : public Implements<IAudioSessionManager> {
public:
    explicit SessionManager(std::shared_ptr<Endpoint> endpoint) : m_endpoint(std::move(endpoint)) {}

    HRESULT STDMETHODCALLTYPE GetAudioSessionControl(LPCGUID /*AudioSessionGuid*/, DWORD StreamFlags,
                                                     IAudioSessionControl** SessionControl) override {
        return Hand("IAudioSessionManager::GetAudioSessionControl", StreamFlags, SessionControl, &CreateSessionControl);
    }

    HRESULT STDMETHODCALLTYPE GetSimpleAudioVolume(LPCGUID /*AudioSessionGuid*/, DWORD StreamFlags,
                                                   ISimpleAudioVolume** AudioVolume) override {
        return Hand("IAudioSessionManager::GetSimpleAudioVolume", StreamFlags, AudioVolume, &CreateSimpleVolume);
    }

private:
    template <typename Interface>
    HRESULT Hand(const char* method, DWORD streamFlags, Interface** out,
                 HRESULT (*create)(std::shared_ptr<Endpoint>, void**)) {
        if (out == nullptr) return E_POINTER;
        *out = nullptr;
        HRESULT hr;
        if (Intercepted(*m_endpoint, method, hr)) return hr;
        // AUDCLNT_STREAMFLAGS_CROSSPROCESS is the one flag these take (and it changes nothing).
        if ((streamFlags & ~static_cast<DWORD>(AUDCLNT_STREAMFLAGS_CROSSPROCESS)) != 0) return E_INVALIDARG;
        return create(m_endpoint, reinterpret_cast<void**>(out));
    }

    const std::shared_ptr<Endpoint> m_endpoint;
};

}  // namespace

HRESULT CreateSimpleVolume(std::shared_ptr<Endpoint> endpoint, void** ppv) {
    return Make<ISimpleAudioVolume, SimpleVolume>(reinterpret_cast<ISimpleAudioVolume**>(ppv), std::move(endpoint));
}

HRESULT CreateSessionManager(std::shared_ptr<Endpoint> endpoint, REFIID riid, void** ppv) {
    return MakeAs<SessionManager>(riid, ppv, std::move(endpoint));
}

}  // namespace zqplatform::coreaudio
