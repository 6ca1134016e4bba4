// IAudioSessionControl of an endpoint's session: its state, texts and event sinks.
#include "com_object.h"
#include "objects.h"
#include "text.h"

namespace zqplatform::audio {
namespace {

class SessionControl final : public IAudioSessionControl, private ComObject {
public:
    explicit SessionControl(const EndpointBinding& binding) : m_binding(binding) {}
    // Sinks registered through this object end with it (after a callback under way).
    ~SessionControl() override { m_binding->session->Sinks().RemoveOwner(this); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioSessionControl>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetState(AudioSessionState* pRetVal) override {
        if (pRetVal == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioSessionControl::GetState", hr)) return hr;
        *pRetVal = m_binding->session->State();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetDisplayName(LPWSTR* pRetVal) override {
        return GetText("IAudioSessionControl::GetDisplayName", m_binding->session->DisplayName(), pRetVal);
    }

    HRESULT STDMETHODCALLTYPE SetDisplayName(LPCWSTR Value, LPCGUID EventContext) override {
        if (Value == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioSessionControl::SetDisplayName", hr)) return hr;
        m_binding->session->SetDisplayName(Value, EventContext);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetIconPath(LPWSTR* pRetVal) override {
        return GetText("IAudioSessionControl::GetIconPath", m_binding->session->IconPath(), pRetVal);
    }

    HRESULT STDMETHODCALLTYPE SetIconPath(LPCWSTR Value, LPCGUID EventContext) override {
        if (Value == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioSessionControl::SetIconPath", hr)) return hr;
        m_binding->session->SetIconPath(Value, EventContext);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetGroupingParam(GUID* pRetVal) override {
        if (pRetVal == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioSessionControl::GetGroupingParam", hr)) return hr;
        *pRetVal = m_binding->session->GroupingParam();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetGroupingParam(LPCGUID Override, LPCGUID EventContext) override {
        if (Override == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioSessionControl::SetGroupingParam", hr)) return hr;
        m_binding->session->SetGroupingParam(*Override, EventContext);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE RegisterAudioSessionNotification(IAudioSessionEvents* NewNotifications) override {
        if (NewNotifications == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioSessionControl::RegisterAudioSessionNotification", hr)) return hr;
        // No reference is taken: the sink's owner keeps it until it unregisters, as on Windows
        // a sink that unregisters in its destructor relies on. A second registration changes nothing.
        m_binding->session->Sinks().Add(NewNotifications, this);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE UnregisterAudioSessionNotification(IAudioSessionEvents* NewNotifications) override {
        if (NewNotifications == nullptr) return E_POINTER;
        HRESULT hr;
        // Works on a session whose device has gone too: a sink must always be able to leave.
        if (m_binding.Intercept("IAudioSessionControl::UnregisterAudioSessionNotification", hr, false)) return hr;
        // Waits for a callback to this sink under way on the session event thread, unless
        // called from that thread.
        return m_binding->session->Sinks().Remove(NewNotifications) ? S_OK : E_NOTFOUND;
    }

private:
    HRESULT GetText(const char* method, const std::wstring& text, LPWSTR* out) const {
        if (out == nullptr) return E_POINTER;
        *out = nullptr;
        HRESULT hr;
        if (m_binding.Intercept(method, hr)) return hr;
        *out = TaskMemCopy(text);
        return *out != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    const EndpointBinding m_binding;
};

}  // namespace

HRESULT CreateSessionControl(const EndpointBinding& binding, void** ppv) {
    auto* control = new (std::nothrow) SessionControl(binding);
    if (control == nullptr) return E_OUTOFMEMORY;
    return HandOut<IAudioSessionControl>(control, ppv);
}

}  // namespace zqplatform::audio
