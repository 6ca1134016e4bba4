// Recording notification clients and session event sinks for the virtual audio engine tests.
// Each records what it was told and on which thread; a latch can hold a callback in progress.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "zqPlatform.h"

namespace vaetest {

// Holds callbacks until opened; tells when one is waiting.
class Latch {
public:
    void Close() {
        std::lock_guard lock(m_lock);
        m_open = false;
    }
    void Open() {
        {
            std::lock_guard lock(m_lock);
            m_open = true;
        }
        m_changed.notify_all();
    }
    void Pass() {
        std::unique_lock lock(m_lock);
        m_waiting = true;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_open; });
        m_waiting = false;
    }
    bool WaitUntilHeld(std::chrono::milliseconds timeout) {
        std::unique_lock lock(m_lock);
        return m_changed.wait_for(lock, timeout, [this] { return m_waiting; });
    }

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_open = true;
    bool m_waiting = false;
};

struct DeviceEvent {
    enum class Kind { Added, Removed, State, Default } kind;
    std::wstring id;  // empty for a default change to no endpoint
    DWORD state = 0;
    EDataFlow flow = eRender;
    ERole role = eConsole;
    std::thread::id thread;
};

class RecordingClient final : public IMMNotificationClient {
public:
    std::vector<DeviceEvent> Events() {
        std::lock_guard lock(m_lock);
        return m_events;
    }
    void Clear() {
        std::lock_guard lock(m_lock);
        m_events.clear();
    }
    Latch latch;
    std::atomic<bool> inCallback{false};

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        if (riid != IID_IUnknown && riid != IID_IMMNotificationClient) return E_NOINTERFACE;
        *ppv = static_cast<IMMNotificationClient*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }  // lives on the test's stack
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR id, DWORD state) override {
        return Record(DeviceEvent::Kind::State, id, state);
    }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR id) override { return Record(DeviceEvent::Kind::Added, id); }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR id) override {
        return Record(DeviceEvent::Kind::Removed, id);
    }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR id) override {
        return Record(DeviceEvent::Kind::Default, id != nullptr ? id : L"", 0, flow, role);
    }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }

private:
    HRESULT Record(DeviceEvent::Kind kind, LPCWSTR id, DWORD state = 0, EDataFlow flow = eRender,
                   ERole role = eConsole) {
        inCallback = true;
        DeviceEvent event{kind, id, state, flow, role, std::this_thread::get_id()};
        {
            std::lock_guard lock(m_lock);
            m_events.push_back(std::move(event));
        }
        latch.Pass();
        inCallback = false;
        return S_OK;
    }
    std::mutex m_lock;
    std::vector<DeviceEvent> m_events;
};

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
