// The process's session on a sink or source: IAudioSessionManager, IAudioSessionControl (the
// session control of the virtual engine, over the same kind of session) and ISimpleAudioVolume,
// whose level is the server's volume of the session's streams.
#include <cmath>

#include "../audio/com_object.h"
#include "../audio/objects.h"
#include "objects.h"

namespace zqplatform::pulse {
namespace {

using audio::AnswerQuery;
using audio::ComObject;

class SimpleVolume final : public ISimpleAudioVolume, private ComObject {
public:
    SimpleVolume(std::shared_ptr<Connection> connection, std::shared_ptr<Session> session)
        : m_connection(std::move(connection)), m_session(std::move(session)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<ISimpleAudioVolume>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE SetMasterVolume(float fLevel, LPCGUID EventContext) override {
        if (!m_connection->Alive()) return AUDCLNT_E_DEVICE_INVALIDATED;
        if (!(fLevel >= 0.0f && fLevel <= 1.0f)) return E_INVALIDARG;  // NaN too
        return m_session->SetVolume(*m_connection, fLevel, EventContext) ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
    }
    HRESULT STDMETHODCALLTYPE GetMasterVolume(float* pfLevel) override {
        if (pfLevel == nullptr) return E_POINTER;
        if (!m_connection->Alive()) return AUDCLNT_E_DEVICE_INVALIDATED;
        *pfLevel = m_session->state->Volume();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetMute(BOOL bMute, LPCGUID EventContext) override {
        if (!m_connection->Alive()) return AUDCLNT_E_DEVICE_INVALIDATED;
        return m_session->SetMute(*m_connection, bMute != FALSE, EventContext) ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
    }
    HRESULT STDMETHODCALLTYPE GetMute(BOOL* pbMute) override {
        if (pbMute == nullptr) return E_POINTER;
        if (!m_connection->Alive()) return AUDCLNT_E_DEVICE_INVALIDATED;
        *pbMute = m_session->state->Mute() ? TRUE : FALSE;
        return S_OK;
    }

private:
    const std::shared_ptr<Connection> m_connection;
    const std::shared_ptr<Session> m_session;
};

class SessionManager final : public IAudioSessionManager, private ComObject {
public:
    SessionManager(std::shared_ptr<Connection> connection, std::shared_ptr<Session> session)
        : m_connection(std::move(connection)), m_session(std::move(session)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioSessionManager>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    // One session per device and process: every session GUID names it; cross-process sessions
    // are not offered.
    HRESULT STDMETHODCALLTYPE GetAudioSessionControl(LPCGUID, DWORD StreamFlags,
                                                     IAudioSessionControl** SessionControl) override {
        if (SessionControl == nullptr) return E_POINTER;
        *SessionControl = nullptr;
        if ((StreamFlags & AUDCLNT_STREAMFLAGS_CROSSPROCESS) != 0) return E_INVALIDARG;
        return CreateSessionControl(m_connection, m_session, reinterpret_cast<void**>(SessionControl));
    }
    HRESULT STDMETHODCALLTYPE GetSimpleAudioVolume(LPCGUID, DWORD StreamFlags, ISimpleAudioVolume** AudioVolume) override {
        if (AudioVolume == nullptr) return E_POINTER;
        *AudioVolume = nullptr;
        if ((StreamFlags & AUDCLNT_STREAMFLAGS_CROSSPROCESS) != 0) return E_INVALIDARG;
        return CreateSimpleVolume(m_connection, m_session, reinterpret_cast<void**>(AudioVolume));
    }

private:
    const std::shared_ptr<Connection> m_connection;
    const std::shared_ptr<Session> m_session;
};

}  // namespace

HRESULT CreateSimpleVolume(std::shared_ptr<Connection> connection, std::shared_ptr<Session> session, void** ppv) {
    auto* volume = new (std::nothrow) SimpleVolume(std::move(connection), std::move(session));
    if (volume == nullptr) return E_OUTOFMEMORY;
    return audio::HandOut<ISimpleAudioVolume>(volume, ppv);
}

HRESULT CreateSessionManager(std::shared_ptr<Connection> connection, const Endpoint& endpoint, REFIID riid, void** ppv) {
    std::shared_ptr<Session> session = connection->SessionOf(endpoint);
    auto* manager = new (std::nothrow) SessionManager(std::move(connection), std::move(session));
    if (manager == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = manager->QueryInterface(riid, ppv);
    manager->Release();
    return hr;
}

HRESULT CreateSessionControl(std::shared_ptr<Connection> connection, std::shared_ptr<Session> session, void** ppv) {
    // The session state keeps the pulse session's sinks and texts; the server's going away
    // ends everything but unregistration, as a device's removal does.
    return audio::CreateSessionControl(
        session->state,
        [connection = std::move(connection)](const char*, HRESULT& hr, bool checkValid) {
            if (!checkValid || connection->Alive()) return false;
            hr = AUDCLNT_E_DEVICE_INVALIDATED;
            return true;
        },
        ppv);
}

}  // namespace zqplatform::pulse
