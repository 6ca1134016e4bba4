// IAudioSessionControl of an endpoint's session: its state, texts and event sinks. The pulse
// backend's sessions are the same sessions, with a check of their own before each method.
#include "com_object.h"
#include "objects.h"
#include "text.h"

namespace zqplatform::audio {
namespace {

class SessionControl final : public IAudioSessionControl, private ComObject {
public:
    SessionControl(std::shared_ptr<Session> session, SessionCheck check)
        : m_session(std::move(session)), m_check(std::move(check)) {}
    // Sinks registered through this object end with it (after a callback under way).
    ~SessionControl() override { m_session->Sinks().RemoveOwner(this); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioSessionControl>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetState(AudioSessionState* pRetVal) override {
        if (pRetVal == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_check("IAudioSessionControl::GetState", hr, true)) return hr;
        *pRetVal = m_session->State();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetDisplayName(LPWSTR* pRetVal) override {
        return GetText("IAudioSessionControl::GetDisplayName", m_session->DisplayName(), pRetVal);
    }

    HRESULT STDMETHODCALLTYPE SetDisplayName(LPCWSTR Value, LPCGUID EventContext) override {
        if (Value == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_check("IAudioSessionControl::SetDisplayName", hr, true)) return hr;
        m_session->SetDisplayName(Value, EventContext);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetIconPath(LPWSTR* pRetVal) override {
        return GetText("IAudioSessionControl::GetIconPath", m_session->IconPath(), pRetVal);
    }

    HRESULT STDMETHODCALLTYPE SetIconPath(LPCWSTR Value, LPCGUID EventContext) override {
        if (Value == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_check("IAudioSessionControl::SetIconPath", hr, true)) return hr;
        m_session->SetIconPath(Value, EventContext);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetGroupingParam(GUID* pRetVal) override {
        if (pRetVal == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_check("IAudioSessionControl::GetGroupingParam", hr, true)) return hr;
        *pRetVal = m_session->GroupingParam();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetGroupingParam(LPCGUID Override, LPCGUID EventContext) override {
        if (Override == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_check("IAudioSessionControl::SetGroupingParam", hr, true)) return hr;
        m_session->SetGroupingParam(*Override, EventContext);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE RegisterAudioSessionNotification(IAudioSessionEvents* NewNotifications) override {
        if (NewNotifications == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_check("IAudioSessionControl::RegisterAudioSessionNotification", hr, true)) return hr;
        // No reference is taken: the sink's owner keeps it until it unregisters, as on Windows
        // a sink that unregisters in its destructor relies on. A second registration changes nothing.
        m_session->Sinks().Add(NewNotifications, this);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE UnregisterAudioSessionNotification(IAudioSessionEvents* NewNotifications) override {
        if (NewNotifications == nullptr) return E_POINTER;
        HRESULT hr;
        // Works on a session whose device has gone too: a sink must always be able to leave.
        if (m_check("IAudioSessionControl::UnregisterAudioSessionNotification", hr, false)) return hr;
        // Waits for a callback to this sink under way on the session event thread, unless
        // called from that thread.
        return m_session->Sinks().Remove(NewNotifications) ? S_OK : E_NOTFOUND;
    }

private:
    HRESULT GetText(const char* method, const std::wstring& text, LPWSTR* out) const {
        if (out == nullptr) return E_POINTER;
        *out = nullptr;
        HRESULT hr;
        if (m_check(method, hr, true)) return hr;
        *out = TaskMemCopy(text);
        return *out != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    const std::shared_ptr<Session> m_session;
    const SessionCheck m_check;
};

}  // namespace

HRESULT CreateSessionControl(const EndpointBinding& binding, void** ppv) {
    return CreateSessionControl(binding->session,
                                [binding](const char* method, HRESULT& hr, bool checkValid) {
                                    return binding.Intercept(method, hr, checkValid);
                                },
                                ppv);
}

HRESULT CreateSessionControl(std::shared_ptr<Session> session, SessionCheck check, void** ppv) {
    auto* control = new (std::nothrow) SessionControl(std::move(session), std::move(check));
    if (control == nullptr) return E_OUTOFMEMORY;
    return HandOut<IAudioSessionControl>(control, ppv);
}

}  // namespace zqplatform::audio
