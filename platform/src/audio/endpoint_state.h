// One endpoint of the virtual machine as the engine keeps it, shared by the engine and by
// every object made for the endpoint (objects keep it alive after removal, and then find it
// invalidated). Internal to the platform library.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <string>

#include "audio_format.h"
#include "capture_source.h"
#include "device_volume.h"
#include "render_sink.h"
#include "session.h"
#include "zqplatform/vm/audio_machine.h"

namespace zqplatform::audio {

class EndpointState {
public:
    EndpointState(std::wstring id, EDataFlow flow, MixFormat format, std::wstring name, GUID container, DWORD state,
                  uint32_t keepSeconds, EventDispatcher& sessionEvents);

    const std::wstring id;
    const EDataFlow flow;
    const MixFormat format;
    const std::wstring name;
    const GUID container;
    const std::shared_ptr<Session> session;

    std::atomic<DWORD> state;
    // Audio objects remember the generation they were made in; leaving the active state or
    // the machine starts a new one, which invalidates them.
    std::atomic<uint64_t> generation{1};
    std::atomic<long> deviceRefs{0};  // references held on the endpoint's IMMDevice objects
    std::atomic<int> runningStreams{0};

    // Capture: the source (replaced by the control API, picked up by each stream's clock).
    void SetSource(const ResolvedSource& source);
    // On the device clock: restarts generator when the source changed since seenVersion.
    void RefreshGenerator(uint64_t& seenVersion, SourceGenerator& generator);
    FedQueue fed;

    // Render.
    RenderSink sink;

    // The device's own volume, kept across a disable and enable as a device keeps it.
    DeviceVolumeState deviceVolume;

    // The device clock: rate error in parts per billion and period phase in 100-ns units, read
    // by the streams' clocks (the error every period, the phase at Start).
    static constexpr int64_t kMaxClockErrorPpb = 1000000000 / 1000;  // 1000 ppm
    std::atomic<int64_t> clockErrorPpb{0};
    std::atomic<int64_t> clockPhase{0};
    // False (nothing changes) when ppm or the phase is out of range.
    bool SetClock(double ppm, double phaseMs);
    // Device periods whose stream event is not to be set (zqvm::HoldStreamEvents); true when
    // the current period is one of them, counting it off.
    std::atomic<uint32_t> heldEvents{0};
    bool TakeHeldEvent();
    // How late this period's event is to be set (zqvm::SetWakeJitter), in 100-ns units; the
    // device clocks call it once per period.
    bool SetWakeJitter(const zqvm::WakeJitter& jitter);
    int64_t TakeWakeDelay();

    // Meter: the peaks of the last period of a running stream, per channel and overall.
    void SetPeaks(const float* channelPeaks);
    void ClearPeaks();
    float Peak() const { return m_peak.load(std::memory_order_relaxed); }
    float ChannelPeak(size_t channel) const { return m_channelPeaks[channel].load(std::memory_order_relaxed); }

    // Progress of the stream threads, for the control API's waits.
    std::atomic<uint64_t> capturePacketsReleased{0};
    std::atomic<uint64_t> renderBuffersReleased{0};
    std::atomic<uint64_t> renderPeriods{0};

private:
    std::mutex m_jitterLock;  // the settings and the generator: clocks of several streams draw
    zqvm::WakeJitter m_jitter;
    std::mt19937 m_jitterRandom;
    std::mutex m_sourceLock;
    ResolvedSource m_source;
    std::atomic<uint64_t> m_sourceVersion{1};
    std::atomic<float> m_peak{0.0f};
    std::array<std::atomic<float>, 8> m_channelPeaks{};
};

// Wakes the control API's waits after a counter above moved. Called by stream threads: it
// takes one short lock and never allocates.
void NotifyProgress();
// Waits in real time until done() holds or the time-out passes; false on time-out.
bool WaitForProgress(const std::function<bool()>& done, std::chrono::milliseconds timeout);

// An audio object's tie to its endpoint: whether the endpoint has gone away since the object
// was made.
class EndpointBinding {
public:
    explicit EndpointBinding(std::shared_ptr<EndpointState> endpoint)
        : m_endpoint(std::move(endpoint)), m_generation(m_endpoint->generation.load(std::memory_order_acquire)) {}

    EndpointState& operator*() const { return *m_endpoint; }
    EndpointState* operator->() const { return m_endpoint.get(); }
    const std::shared_ptr<EndpointState>& Shared() const { return m_endpoint; }

    bool Valid() const { return m_endpoint->generation.load(std::memory_order_acquire) == m_generation; }

private:
    std::shared_ptr<EndpointState> m_endpoint;
    uint64_t m_generation;
};

}  // namespace zqplatform::audio
