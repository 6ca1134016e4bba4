// Endpoint state shared by the engine and the endpoint's objects.
#include "endpoint_state.h"

#include <algorithm>
#include <cmath>

namespace zqplatform::audio {
namespace {

struct Progress {
    std::mutex lock;
    std::condition_variable changed;
};

Progress& TheProgress() {
    static Progress* progress = new Progress;  // never destroyed: stream threads may outlive statics
    return *progress;
}

}  // namespace

EndpointState::EndpointState(std::wstring id_, EDataFlow flow_, MixFormat format_, std::wstring name_,
                             GUID container_, DWORD state_, uint32_t keepSeconds, EventDispatcher& sessionEvents)
    : id(std::move(id_)),
      flow(flow_),
      format(format_),
      name(std::move(name_)),
      container(container_),
      session(std::make_shared<Session>(sessionEvents)),
      state(state_),
      sink(format_.Rate(), format_.Channels(), keepSeconds),
      deviceVolume(format_.Channels()) {}

void EndpointState::SetSource(const ResolvedSource& source) {
    std::lock_guard lock(m_sourceLock);
    m_source = source;
    m_sourceVersion.fetch_add(1, std::memory_order_release);
}

void EndpointState::RefreshGenerator(uint64_t& seenVersion, SourceGenerator& generator) {
    if (m_sourceVersion.load(std::memory_order_acquire) == seenVersion) return;
    std::lock_guard lock(m_sourceLock);
    generator.Restart(m_source);
    seenVersion = m_sourceVersion.load(std::memory_order_relaxed);
}

bool EndpointState::SetClock(double ppm, double phaseMs) {
    constexpr double kPeriodMs = 10.0;
    if (!(ppm >= -1000.0 && ppm <= 1000.0) || !(phaseMs >= 0.0 && phaseMs < kPeriodMs)) return false;
    clockErrorPpb.store(std::llround(ppm * 1000.0), std::memory_order_relaxed);
    clockPhase.store(std::llround(phaseMs * 10000.0), std::memory_order_relaxed);
    return true;
}

bool EndpointState::TakeHeldEvent() {
    uint32_t held = heldEvents.load(std::memory_order_relaxed);
    while (held != 0 && !heldEvents.compare_exchange_weak(held, held - 1, std::memory_order_relaxed)) {
    }
    return held != 0;
}

bool EndpointState::SetWakeJitter(const zqvm::WakeJitter& jitter) {
    constexpr double kPeriodMs = 10.0;
    if (!(jitter.delayMs >= 0.0) || !(jitter.randomMaxMs >= 0.0) || !(jitter.delayMs + jitter.randomMaxMs < kPeriodMs) ||
        !(jitter.probability >= 0.0 && jitter.probability <= 1.0))
        return false;
    std::lock_guard lock(m_jitterLock);
    m_jitter = jitter;
    m_jitterRandom.seed(jitter.seed);
    return true;
}

int64_t EndpointState::TakeWakeDelay() {
    std::lock_guard lock(m_jitterLock);
    double ms = m_jitter.delayMs;
    if (m_jitter.probability > 0.0 && m_jitter.randomMaxMs > 0.0) {
        // Both draws every period, so that the sequence does not depend on which periods hit.
        const double draw = std::uniform_real_distribution<double>(0.0, 1.0)(m_jitterRandom);
        const double amount = std::uniform_real_distribution<double>(0.0, m_jitter.randomMaxMs)(m_jitterRandom);
        if (draw < m_jitter.probability) ms += amount;
    }
    return std::llround(ms * 10000.0);
}

void EndpointState::SetPeaks(const float* channelPeaks) {
    float peak = 0.0f;
    for (size_t c = 0; c < format.Channels(); ++c) {
        m_channelPeaks[c].store(channelPeaks[c], std::memory_order_relaxed);
        peak = std::max(peak, channelPeaks[c]);
    }
    m_peak.store(peak, std::memory_order_relaxed);
}

void EndpointState::ClearPeaks() {
    for (auto& p : m_channelPeaks) p.store(0.0f, std::memory_order_relaxed);
    m_peak.store(0.0f, std::memory_order_relaxed);
}

void NotifyProgress() {
    Progress& progress = TheProgress();
    { std::lock_guard lock(progress.lock); }  // a waiter between its check and its wait is not missed
    progress.changed.notify_all();
}

bool WaitForProgress(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    Progress& progress = TheProgress();
    std::unique_lock lock(progress.lock);
    return progress.changed.wait_for(lock, timeout, done);
}

}  // namespace zqplatform::audio
