// A recording session event sink for the virtual audio engine tests: what it was told and on
// which thread; a latch can hold a callback in progress. Endpoint notifications are recorded by
// the shared recording client.
#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "recording_notification_client.h"
#include "zqPlatform.h"

namespace vaetest {

using zqtest::DeviceEvent;
using zqtest::Latch;
using zqtest::RecordingClient;

struct VolumeEvent {
    float volume;
    BOOL mute;
    std::optional<GUID> context;
    std::thread::id thread;
};

class RecordingSessionSink final : public IAudioSessionEvents {
public:
    std::vector<VolumeEvent> Volumes() {
        std::lock_guard lock(m_lock);
        return m_volumes;
    }
    std::vector<AudioSessionDisconnectReason> Disconnects() {
        std::lock_guard lock(m_lock);
        return m_disconnects;
    }
    std::vector<AudioSessionState> States() {
        std::lock_guard lock(m_lock);
        return m_states;
    }
    Latch latch;
    std::atomic<bool> inCallback{false};

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        if (riid != IID_IUnknown && riid != IID_IAudioSessionEvents) return E_NOINTERFACE;
        *ppv = static_cast<IAudioSessionEvents*>(this);
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnDisplayNameChanged(LPCWSTR, LPCGUID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnIconPathChanged(LPCWSTR, LPCGUID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnSimpleVolumeChanged(float volume, BOOL mute, LPCGUID context) override {
        inCallback = true;
        {
            std::lock_guard lock(m_lock);
            m_volumes.push_back(VolumeEvent{volume, mute, context ? std::optional<GUID>(*context) : std::nullopt,
                                            std::this_thread::get_id()});
        }
        latch.Pass();
        inCallback = false;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnChannelVolumeChanged(DWORD, float[], DWORD, LPCGUID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnGroupingParamChanged(LPCGUID, LPCGUID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnStateChanged(AudioSessionState state) override {
        std::lock_guard lock(m_lock);
        m_states.push_back(state);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnSessionDisconnected(AudioSessionDisconnectReason reason) override {
        std::lock_guard lock(m_lock);
        m_disconnects.push_back(reason);
        return S_OK;
    }

private:
    std::mutex m_lock;
    std::vector<VolumeEvent> m_volumes;
    std::vector<AudioSessionDisconnectReason> m_disconnects;
    std::vector<AudioSessionState> m_states;
};

}  // namespace vaetest
