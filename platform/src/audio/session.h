// An endpoint's audio session (the process's default session on that endpoint): its volume
// and mute state, which scale every stream of the endpoint, its display texts, and its event
// sinks. Internal to the platform library.
//
// Every change is reported to every registered IAudioSessionEvents on the session event
// thread, with the event context of the change, in the order of the changes.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "event_dispatcher.h"
#include "sink_registry.h"
#include "zqplatform/win/coreaudio.h"

namespace zqplatform::audio {

class Session : public std::enable_shared_from_this<Session> {
public:
    explicit Session(EventDispatcher& events) : m_events(events), m_sinks(events) {}

    // Read by the device clock without a lock.
    float Volume() const { return m_volume.load(std::memory_order_relaxed); }
    bool Mute() const { return m_mute.load(std::memory_order_relaxed); }

    // The level is checked by the caller (0..1).
    void SetVolume(float level, const GUID* context);
    void SetMute(bool mute, const GUID* context);
    void SetVolumeAndMute(float level, bool mute, const GUID* context);

    std::wstring DisplayName();
    void SetDisplayName(std::wstring name, const GUID* context);
    std::wstring IconPath();
    void SetIconPath(std::wstring path, const GUID* context);
    GUID GroupingParam();
    void SetGroupingParam(const GUID& grouping, const GUID* context);

    AudioSessionState State() const;
    void StreamStarted();
    void StreamStopped();
    void Disconnect(AudioSessionDisconnectReason reason);

    SinkRegistry<IAudioSessionEvents>& Sinks() { return m_sinks; }

private:
    // Queues call(sink) for every sink registered now; called with m_lock held so events keep
    // the order of the changes.
    template <typename Call>
    void PostToSinks(Call call) {
        m_events.Post([self = shared_from_this(), sinks = m_sinks.Snapshot(), call] {
            self->m_sinks.Deliver(sinks, call);
        });
    }
    static std::optional<GUID> Copy(const GUID* context) {
        return context != nullptr ? std::optional<GUID>(*context) : std::nullopt;
    }
    void PostVolumeLocked(const GUID* context);

    EventDispatcher& m_events;
    SinkRegistry<IAudioSessionEvents> m_sinks;
    std::mutex m_lock;  // orders changes and their events; guards the texts
    std::atomic<float> m_volume{1.0f};
    std::atomic<bool> m_mute{false};
    std::atomic<int> m_runningStreams{0};
    std::wstring m_displayName;
    std::wstring m_iconPath;
    GUID m_grouping = GUID_NULL;
};

}  // namespace zqplatform::audio
