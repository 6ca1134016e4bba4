// The monitoring path's rate control through the whole path on the stepped clock: microphone,
// capture thread, rate control, render queue, render thread, speaker. The clocks drift, the
// stream threads are woken late (seeded, so every run is the same) and the render thread is
// held up; the checks are the bounds a listener relies on: the correction's size and its
// steps, no underrun once started, the latency held, no start-up drain, a stall recovered at
// once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio/MonitorRateControl.h"
#include "audio_fixture.h"
#include "scoped_environment.h"
#include "stepped_streams.h"

namespace {

using zqtest::AudioMachineTest;
using zqtest::ScopedEnvironment;

constexpr const char* kSwitch = CMonitorRateControl::kDisableVariable;
constexpr int64_t kMs = 10000;  // platform-clock units

// The path and its controller at one moment, read under the packet lock the stream threads hold.
struct Snapshot {
    double seconds;
    double ppm;
    double cushionMs;
    double targetMs;
    uint64_t dryRefills;
    uint64_t droppedFrames;
    bool rateControlled;
    size_t queuedFrames;  // what waits to be heard: the device's frames and the queue's
};

class RateControlledMonitoring : public AudioMachineTest {
protected:
    // A microphone and a speaker with the given clock errors; jitter for both stream threads.
    void Start(const char* rateControl, uint32_t micRate, uint32_t speakerRate, double speakerPpm,
               const zqvm::WakeJitter& jitter = {}, uint32_t heldRenderPeriods = 0) {
        environment = std::make_unique<ScopedEnvironment>(kSwitch, rateControl);
        zqvm::EndpointSpec speakerSpec;
        speakerSpec.flow = eRender;
        speakerSpec.name = L"Speakers (test)";
        speakerSpec.rate = speakerRate;
        speakerSpec.ppm = speakerPpm;
        speakerSpec.phaseMs = 5.0;
        speakerSpec.defaultFor = {eConsole, eMultimedia, eCommunications};
        speaker = zqvm::AddEndpoint(speakerSpec);
        mic = AddCapture(micRate, 1, zqvm::SampleFormat::Float32, zqvm::CaptureSource::Tone(440, 0.5));
        zqvm::WakeJitter micJitter = jitter;
        micJitter.seed = jitter.seed + 1000;
        ASSERT_TRUE(zqvm::SetWakeJitter(mic, micJitter));
        ASSERT_TRUE(zqvm::SetWakeJitter(speaker, jitter));
        core->Init(window->Handle());
        ASSERT_TRUE(core->SetCaptureDevice(Device(mic)));
        if (heldRenderPeriods != 0) {
            ASSERT_TRUE(zqvm::HoldStreamEvents(speaker, heldRenderPeriods));
        }
        start = zqvm::ClockNow();
        core->Start();
        ASSERT_TRUE(core->IsStarted());
    }

    // Runs to `seconds` after the start, every expiry in turn, with a snapshot every 10 ms.
    void RunUntil(double seconds) {
        CAudioCapture* capture = core->GetCaptureEngine();
        const std::initializer_list<HANDLE> events = {capture->m_CaptureAudioSamplesReadyEvent.get(),
                                                      core->GetRenderEngine()->m_RenderAudioSamplesReadyEvent.get()};
        const int64_t until = start + std::llround(seconds * 1e7);
        while (zqvm::ClockNow() < until) {
            const int64_t next = std::min(until, zqvm::ClockNow() + 10 * kMs);
            ASSERT_TRUE(zqtest::StepStreamsUntil(next, events, zqtest::kStreamWaitMs));
            history.push_back(Take());
        }
    }

    Snapshot Take() {
        UINT32 padding = 0;
        EXPECT_EQ(core->GetRenderEngine()->m_spRenderAudioClient->GetCurrentPadding(&padding), S_OK);
        CAudioCapture* capture = core->GetCaptureEngine();
        Snapshot snapshot = capture->WithQueue([&](CCircularBuffer& queue) {
            const CMonitorRateControl* stage = capture->RateControl();
            Snapshot s{};
            s.queuedFrames = queue.GetCount() / 8;
            s.rateControlled = stage != nullptr;
            if (stage != nullptr) {
                const CMonitorDepthControl& control = stage->Control();
                s.ppm = control.CorrectionPpm();
                s.cushionMs = control.CushionMs();
                s.targetMs = control.TargetMs();
                s.dryRefills = control.DryRefills();
                s.droppedFrames = control.DroppedFrames();
            }
            return s;
        });
        snapshot.seconds = static_cast<double>(zqvm::ClockNow() - start) / 1e7;
        snapshot.queuedFrames += padding;
        return snapshot;
    }

    // The bounds a listener relies on, over the whole history: the correction never beyond
    // 2000 ppm, and never more than 100 ppm apart within 100 ms.
    void ExpectCorrectionBounds() {
        for (size_t i = 0; i < history.size(); ++i) {
            ASSERT_LE(std::fabs(history[i].ppm), CMonitorDepthControl::kMaxCorrectionPpm) << "at " << history[i].seconds;
            for (size_t j = i + 1; j < history.size() && history[j].seconds - history[i].seconds <= 0.1 + 1e-9; ++j)
                ASSERT_LE(std::fabs(history[j].ppm - history[i].ppm), 100.0)
                    << "from " << history[i].seconds << " s to " << history[j].seconds << " s";
        }
    }

    // The correction's worst distance from `ppm` from `fromSeconds` on.
    double WorstCorrectionOff(double ppm, double fromSeconds) const {
        double worst = 0.0;
        for (const Snapshot& s : history)
            if (s.seconds >= fromSeconds) worst = std::max(worst, std::fabs(s.ppm - ppm));
        return worst;
    }

    std::unique_ptr<ScopedEnvironment> environment;
    std::wstring speaker;
    std::wstring mic;
    int64_t start = 0;
    std::vector<Snapshot> history;
};

// Each stream thread woken up to 8 ms late, one period in ten.
zqvm::WakeJitter Jitter(uint32_t seed) {
    zqvm::WakeJitter jitter;
    jitter.randomMaxMs = 8.0;
    jitter.probability = 0.1;
    jitter.seed = seed;
    return jitter;
}

struct DriftCase {
    uint32_t micRate, speakerRate;
    double speakerPpm;
    double steadyFromSeconds;  // from when the correction holds the clocks' difference within 100 ppm
};

class DriftingMonitoring : public RateControlledMonitoring, public testing::WithParamInterface<DriftCase> {};

// Up to 1000 ppm, as far as a device clock may be off: the controller comes to hold the
// clocks' difference, and the latency stays where it started.
TEST_P(DriftingMonitoring, IsFollowedWithinTheBoundsAtAConstantLatency) {
    const DriftCase c = GetParam();
    Start("1", c.micRate, c.speakerRate, c.speakerPpm);
    RunUntil(5.0);
    const uint64_t underruns = zqvm::UnderrunFrames(speaker);
    const double settledMs = history.back().queuedFrames * 1000.0 / c.speakerRate;
    RunUntil(120.0);
    ExpectCorrectionBounds();
    EXPECT_LE(WorstCorrectionOff(c.speakerPpm, c.steadyFromSeconds), 100.0) << "steady state: the clocks' difference";
    EXPECT_EQ(zqvm::UnderrunFrames(speaker), underruns);
    EXPECT_EQ(core->GetCaptureEngine()->QueueDroppedFrames(), 0u);
    for (const Snapshot& s : history) {
        if (s.seconds < 5.0) continue;
        ASSERT_NEAR(s.queuedFrames * 1000.0 / c.speakerRate, settledMs, 2.0) << "at " << s.seconds;
    }
}

INSTANTIATE_TEST_SUITE_P(Clocks, DriftingMonitoring,
                         testing::Values(DriftCase{48000, 44100, 1000.0, 5.0}, DriftCase{44100, 48000, -1000.0, 5.0},
                                         DriftCase{48000, 48000, 300.0, 5.0}, DriftCase{96000, 48000, -300.0, 5.0}));

TEST_F(RateControlledMonitoring, LateWakeUpsAreAbsorbedByTheCushionNotByThePitch) {
    Start("1", 48000, 44100, 300.0, Jitter(7));
    RunUntil(5.0);
    const uint64_t underruns = zqvm::UnderrunFrames(speaker);
    RunUntil(60.0);
    ExpectCorrectionBounds();
    EXPECT_EQ(zqvm::UnderrunFrames(speaker), underruns) << "no underrun once the cushion has adapted";
    // Steady state: from 5 s after the last time the speaker ran dry, the correction is the
    // clocks' difference, however the threads' wake-ups fall.
    double lastDry = 0.0;
    for (size_t i = 1; i < history.size(); ++i)
        if (history[i].dryRefills != history[i - 1].dryRefills) lastDry = history[i].seconds;
    ASSERT_LT(lastDry, 10.0);
    EXPECT_LE(WorstCorrectionOff(300.0, std::max(5.0, lastDry + 5.0)), 100.0);
    EXPECT_EQ(core->GetCaptureEngine()->QueueDroppedFrames(), 0u);
    // The latency grew by what late threads need (a packet, a cushion step), no more.
    EXPECT_GE(history.back().targetMs, 10.0 + 10.0 + CMonitorDepthControl::kInitialCushionMs);
    EXPECT_LE(history.back().targetMs,
              10.0 + 10.0 + 8.0 + CMonitorDepthControl::kInitialCushionMs + 2 * CMonitorDepthControl::kCushionStepMs);
}

TEST_F(RateControlledMonitoring, WhatCameBeforeTheFirstRefillIsDroppedNotDrained) {
    // The render thread's first 100 ms held up: the capture has queued them when it first refills.
    Start("1", 48000, 44100, 0.0, {}, 10);
    RunUntil(0.2);
    EXPECT_GT(history.back().droppedFrames, 4 * 441u);
    const double startMs = history.back().queuedFrames * 1000.0 / 44100;
    RunUntil(10.0);
    ExpectCorrectionBounds();
    EXPECT_LE(WorstCorrectionOff(0.0, 0.0), 50.0) << "no drain at a changed pitch";
    EXPECT_NEAR(history.back().queuedFrames * 1000.0 / 44100, startMs, 0.5) << "the latency it starts at is the one it keeps";
}

TEST_F(RateControlledMonitoring, AHeldUpRenderThreadIsResynchronisedAndTheCushionComesBack) {
    Start("1", 48000, 48000, 0.0);
    RunUntil(5.0);
    const size_t settled = history.back().queuedFrames;
    ASSERT_TRUE(zqvm::HoldStreamEvents(speaker, 5));
    RunUntil(5.2);
    EXPECT_EQ(history.back().dryRefills, 1u);
    EXPECT_DOUBLE_EQ(history.back().cushionMs, CMonitorDepthControl::kInitialCushionMs + CMonitorDepthControl::kCushionStepMs);
    EXPECT_LE(history.back().queuedFrames, settled + 48 * CMonitorDepthControl::kCushionStepMs + 48)
        << "the backlog of 50 ms is dropped, not played late";
    const uint64_t underruns = zqvm::UnderrunFrames(speaker);
    RunUntil(120.0);
    ExpectCorrectionBounds();
    EXPECT_EQ(zqvm::UnderrunFrames(speaker), underruns);
    EXPECT_LT(history.back().cushionMs, CMonitorDepthControl::kInitialCushionMs + 0.2) << "back over a quiet two minutes";
    EXPECT_NEAR(static_cast<double>(history.back().queuedFrames), static_cast<double>(settled), 12.0);
    EXPECT_EQ(core->GetCaptureEngine()->QueueDroppedFrames(), 0u);
}

TEST_F(RateControlledMonitoring, WithoutItASlowSpeakerBuildsABacklog) {
    Start("0", 44100, 48000, -1000.0);
    RunUntil(2.0);
    EXPECT_FALSE(history.back().rateControlled);
    const size_t settled = history.back().queuedFrames;
    RunUntil(62.0);
    EXPECT_GE(history.back().queuedFrames, settled + 2800) << "a minute at 1000 ppm leaves 2880 frames behind, for good";
}

}  // namespace
