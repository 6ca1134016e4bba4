// IAudioSessionControl of an endpoint's session: its state, texts and event sinks, kept by the
// session state every backend shares (audio/session.h).
#include "../audio/text.h"
#include "com_object.h"
#include "objects.h"

namespace zqplatform::coreaudio {
namespace {

class SessionControl final : public Implements<IAudioSessionControl> {
public:
    explicit SessionControl(std::shared_ptr<Endpoint> endpoint)
        : m_endpoint(std::move(endpoint)), m_session(m_endpoint->Session()) {}
    // Sinks registered through this object end with it (after a callback under way).
    ~SessionControl() override { m_session->Sinks().RemoveOwner(this); }

    HRESULT STDMETHODCALLTYPE GetState(AudioSessionState* pRetVal) override {
        return Read(*m_endpoint, "IAudioSessionControl::GetState", pRetVal,
                    [this] { return m_session->State(); });
    }

    HRESULT STDMETHODCALLTYPE GetDisplayName(LPWSTR* pRetVal) override {
        return GetText("IAudioSessionControl::GetDisplayName", m_session->DisplayName(), pRetVal);
    }

    HRESULT STDMETHODCALLTYPE SetDisplayName(LPCWSTR Value, LPCGUID EventContext) override {
        return Apply(*m_endpoint, "IAudioSessionControl::SetDisplayName", Value,
                     [&] { m_session->SetDisplayName(Value, EventContext); });
    }

    HRESULT STDMETHODCALLTYPE GetIconPath(LPWSTR* pRetVal) override {
        return GetText("IAudioSessionControl::GetIconPath", m_session->IconPath(), pRetVal);
    }

    HRESULT STDMETHODCALLTYPE SetIconPath(LPCWSTR Value, LPCGUID EventContext) override {
        return Apply(*m_endpoint, "IAudioSessionControl::SetIconPath", Value,
                     [&] { m_session->SetIconPath(Value, EventContext); });
    }

    HRESULT STDMETHODCALLTYPE GetGroupingParam(GUID* pRetVal) override {
        return Read(*m_endpoint, "IAudioSessionControl::GetGroupingParam", pRetVal,
                    [this] { return m_session->GroupingParam(); });
    }

    HRESULT STDMETHODCALLTYPE SetGroupingParam(LPCGUID Override, LPCGUID EventContext) override {
        return Apply(*m_endpoint, "IAudioSessionControl::SetGroupingParam", Override,
                     [&] { m_session->SetGroupingParam(*Override, EventContext); });
    }

    HRESULT STDMETHODCALLTYPE RegisterAudioSessionNotification(IAudioSessionEvents* NewNotifications) override {
        if (NewNotifications == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioSessionControl::RegisterAudioSessionNotification", hr)) return hr;
        // No reference is taken: the sink's owner keeps it until it unregisters, as on Windows
        // a sink that unregisters in its destructor relies on. A second registration changes nothing.
        m_session->Sinks().Add(NewNotifications, this);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE UnregisterAudioSessionNotification(IAudioSessionEvents* NewNotifications) override {
        if (NewNotifications == nullptr) return E_POINTER;
        HRESULT hr;
        // Works on a session whose device has gone too: a sink must always be able to leave.
        if (Intercepted(*m_endpoint, "IAudioSessionControl::UnregisterAudioSessionNotification", hr, false)) return hr;
        // Waits for a callback to this sink under way on the session event thread, unless
        // called from that thread.
        return m_session->Sinks().Remove(NewNotifications) ? S_OK : E_NOTFOUND;
    }

private:
    HRESULT GetText(const char* method, const std::wstring& text, LPWSTR* out) const {
        if (out == nullptr) return E_POINTER;
        *out = nullptr;
        HRESULT hr;
        if (Intercepted(*m_endpoint, method, hr)) return hr;
        *out = audio::TaskMemCopy(text);
        return *out != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    const std::shared_ptr<Endpoint> m_endpoint;
    const std::shared_ptr<audio::Session> m_session;
};

}  // namespace

HRESULT CreateSessionControl(std::shared_ptr<Endpoint> endpoint, void** ppv) {
    return Make<IAudioSessionControl, SessionControl>(reinterpret_cast<IAudioSessionControl**>(ppv),
                                                      std::move(endpoint));
}

}  // namespace zqplatform::coreaudio
