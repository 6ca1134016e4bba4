// The process's session on one endpoint of the sound server: the session state and events the
// virtual engine uses too (volume, mute, texts, event sinks), tied to the server's streams of
// this process on that endpoint, whose sink-input or source-output volume is the session
// volume. Internal to the platform library.
//
// Volume changes made through the library reach the sinks with the caller's event context and
// go to the server; changes the server reports that differ from what the library last set came
// from someone else (pactl, a mixer) and reach the sinks with GUID_NULL as context.
//
// Threads: SetVolume and SetMute run on client threads and take the loop lock; everything
// marked "loop lock" runs with it held (mostly on the loop's thread). The meter peak is an
// atomic written by the loop's thread and taken by the meter's readers.
#pragma once

#include <pulse/pulseaudio.h>

#include <atomic>
#include <memory>
#include <vector>

#include "../audio/session.h"

namespace zqplatform::pulse {

class Connection;

class Session {
public:
    Session(EDataFlow direction, audio::EventDispatcher& events)
        : flow(direction), state(std::make_shared<audio::Session>(events)) {}

    const EDataFlow flow;
    const std::shared_ptr<audio::Session> state;

    // Client thread. The level is checked by the caller (0..1). False when the server did not
    // take the change (it has gone).
    bool SetVolume(Connection& connection, float level, const GUID* context);
    bool SetMute(Connection& connection, bool mute, const GUID* context);

    // Loop lock: a stream of the session joins or leaves; the volume a new stream starts with.
    void AddStream(uint32_t index, uint8_t channels);
    void RemoveStream(uint32_t index);
    pa_volume_t ServerLevel() const { return m_applied; }
    bool ServerMute() const { return m_appliedMute; }
    // Loop lock: what the server reports for one of the session's streams.
    void ServerVolume(const pa_cvolume& volume, bool mute);

    // The endpoint's meter: the peak of the samples through the session's streams since the
    // last TakePeak.
    void NotePeak(float peak);
    float TakePeak() { return m_peak.exchange(0.0f, std::memory_order_relaxed); }

private:
    struct StreamRef {
        uint32_t index;
        uint8_t channels;
    };
    // Loop lock: sends the session's level and mute to every stream; waits for the server.
    bool SendLocked(Connection& connection);

    std::vector<StreamRef> m_streams;  // loop lock
    pa_volume_t m_applied = PA_VOLUME_NORM;  // loop lock: what the library last set
    bool m_appliedMute = false;
    int m_pending = 0;  // loop lock: own changes the server has not confirmed yet
    std::atomic<float> m_peak{0.0f};
};

}  // namespace zqplatform::pulse
