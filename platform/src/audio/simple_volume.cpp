// ISimpleAudioVolume of an endpoint's session: from IAudioClient::GetService (the stream's
// session) and from IAudioSessionManager::GetSimpleAudioVolume.
#include <cmath>

#include "com_object.h"
#include "objects.h"

namespace zqplatform::audio {
namespace {

class SimpleVolume final : public ISimpleAudioVolume, private ComObject {
public:
    explicit SimpleVolume(const EndpointBinding& binding) : m_binding(binding) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<ISimpleAudioVolume>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE SetMasterVolume(float fLevel, LPCGUID EventContext) override {
        HRESULT hr;
        if (m_binding.Intercept("ISimpleAudioVolume::SetMasterVolume", hr)) return hr;
        if (!(fLevel >= 0.0f && fLevel <= 1.0f)) return E_INVALIDARG;  // NaN too
        m_binding->session->SetVolume(fLevel, EventContext);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetMasterVolume(float* pfLevel) override {
        if (pfLevel == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("ISimpleAudioVolume::GetMasterVolume", hr)) return hr;
        *pfLevel = m_binding->session->Volume();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetMute(BOOL bMute, LPCGUID EventContext) override {
        HRESULT hr;
        if (m_binding.Intercept("ISimpleAudioVolume::SetMute", hr)) return hr;
        m_binding->session->SetMute(bMute != FALSE, EventContext);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetMute(BOOL* pbMute) override {
        if (pbMute == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("ISimpleAudioVolume::GetMute", hr)) return hr;
        *pbMute = m_binding->session->Mute() ? TRUE : FALSE;
        return S_OK;
    }

private:
    const EndpointBinding m_binding;
};

}  // namespace

HRESULT CreateSimpleVolume(const EndpointBinding& binding, void** ppv) {
    auto* volume = new (std::nothrow) SimpleVolume(binding);
    if (volume == nullptr) return E_OUTOFMEMORY;
    return HandOut<ISimpleAudioVolume>(volume, ppv);
}

}  // namespace zqplatform::audio
