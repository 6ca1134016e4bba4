// Monitoring latency as a listener measures it: impulses through the whole monitoring path
// (virtual microphone, capture thread, render queue, render thread, virtual speaker) on the
// stepped clock, for five capture/render format pairs.
//
// Reported per case (as counters; the times are simulated, not the benchmark's own):
// - steady/<pair>/phase_<p>ms: the latency with the speaker's periods p ms after the
//   microphone's, median of the impulses from 2 s to 6 s;
// - underrun/<pair>: the render thread held up for 50 ms at 3 s; latency before it, and 5 s
//   after it;
// - drift/<pair>/<±300, ±1000>ppm: one simulated hour with the speaker's clock that much fast or slow;
//   latency over the first seconds and the last seconds, frames the capture thread dropped
//   (render queue full) and speaker underruns after the start-up.
//
// An impulse every 500 ms: the latency of the impulse heard at time t is t less the time the
// last impulse before t sounded at the microphone. Frame times: the microphone's frame f
// sounds f / rate after its stream started; the speaker plays the frames its stream takes at a
// period during the period that follows.
//
// - quality/<case>: a 1 kHz tone at -6 dBFS from a 48 kHz mono microphone to a 44.1 kHz stereo
//   speaker for 20 s: quiet; each stream thread woken up to 8 ms late now and then (seeded);
//   the speaker's clock 300 ppm fast or slow; both; the render thread held up for 50 ms at 10 s.
//   Reports dropouts after the first second, the largest correction (ppm and cents) and its
//   largest change over 100 ms, the worst pitch of the heard tone after 5 s (ppm), the worst
//   10 ms window's SNR against a locally fitted sine, latency (median and worst, from a second
//   run of the same case with impulses), speaker underruns after 5 s and the final cushion.
//
// - realtime/<pair>: the path on the real clock for 20 s: latency, underruns, final cushion.
//
// Run: bench/monitoring_latency_bench --benchmark_filter=steady (or underrun, drift, quality,
// realtime).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <string>
#include <vector>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "stepped_monitoring.h"
#include "stepped_streams.h"
#include "tone_quality.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/clock.h"
#include "zqplatform/vm/thread_waits.h"

namespace {

constexpr int64_t kPeriod = 100000;  // 10 ms in 100-ns units
constexpr double kImpulseSpacing = 0.5;
constexpr uint32_t kWaitMs = 5000;

struct FormatPair {
    const char* name;
    uint32_t micRate;
    uint16_t micChannels;
    uint32_t speakerRate;
};

const FormatPair kPairs[] = {
    {"48k>48k_stereo", 48000, 2, 48000},  {"44.1k>48k_stereo", 44100, 2, 48000},
    {"48k>44.1k_stereo", 48000, 2, 44100}, {"96k>48k_stereo", 96000, 2, 48000},
    {"48k>48k_mono", 48000, 1, 48000},
};

double Median(std::vector<double> values) {
    if (values.empty()) return NAN;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

zqvm::EndpointSpec SpeakerSpec(const FormatPair& pair, double phaseMs, double ppm) {
    zqvm::EndpointSpec endpointSpec;
    endpointSpec.name = L"Speakers";
    endpointSpec.rate = pair.speakerRate;
    endpointSpec.keepSeconds = 25;
    endpointSpec.ppm = ppm;
    endpointSpec.phaseMs = phaseMs;
    return endpointSpec;
}

zqvm::EndpointSpec MicSpec(const FormatPair& pair, bool tone) {
    zqvm::EndpointSpec endpointSpec;
    endpointSpec.name = L"Microphone";
    endpointSpec.rate = pair.micRate;
    endpointSpec.channels = pair.micChannels;
    endpointSpec.source = tone ? zqvm::CaptureSource::ToneDbfs(1000.0, -6.0)
                               : zqvm::CaptureSource::Impulse(0.9, static_cast<uint32_t>(pair.micRate * kImpulseSpacing));
    return endpointSpec;
}

// The monitoring path between one microphone and one speaker, driven period by period.
class Rig {
public:
    Rig(const FormatPair& pair, double speakerPhaseMs, double speakerPpm, bool tone = false,
        const zqvm::WakeJitter& jitter = {}, zqvm::ClockMode mode = zqvm::ClockMode::Stepped)
        : m_machine(SpeakerSpec(pair, speakerPhaseMs, speakerPpm), MicSpec(pair, tone), mode),
          m_phaseMs(speakerPhaseMs),
          m_speaker(m_machine.speaker),
          m_speakerRate(pair.speakerRate * (1.0 + speakerPpm * 1e-6)),
          m_core(m_machine.core) {
        // Each endpoint draws its own late wake-ups from its own seed.
        zqvm::WakeJitter micJitter = jitter;
        micJitter.seed = jitter.seed * 2 + 1;
        zqvm::SetWakeJitter(m_machine.mic, micJitter);
        zqvm::SetWakeJitter(m_speaker, jitter);
        m_start = zqvm::ClockNow();
        m_core->Start();
    }

    bool Started() const { return m_core->IsStarted(); }
    double Seconds() const { return static_cast<double>(zqvm::ClockNow() - m_start) / 1e7; }

    // Runs the device periods up to `seconds` after the start, each stream thread done with what
    // one expiry started before the next one comes. False when a thread did not get back to its wait.
    bool RunUntil(double seconds) {
        return zqtest::StepStreamsUntil(m_start + std::llround(seconds * 1e7),
                                        {m_core->GetCaptureEngine()->m_CaptureAudioSamplesReadyEvent.get(),
                                         m_core->GetRenderEngine()->m_RenderAudioSamplesReadyEvent.get()},
                                        kWaitMs);
    }

    // The rate control's correction and cushion now, read under the packet lock its threads hold.
    std::pair<double, double> Control() const {
        CAudioCapture* capture = m_core->GetCaptureEngine();
        return capture->WithQueue([capture](CCircularBuffer&) {
            const CMonitorRateControl* stage = capture->RateControl();
            return stage ? std::make_pair(stage->Control().CorrectionPpm(), stage->Control().CushionMs())
                         : std::make_pair(0.0, 0.0);
        });
    }

    // The first channel of what the speaker played, as far as it keeps it.
    std::vector<float> Heard() const {
        const std::vector<float> played = zqvm::RenderedFrames(m_speaker);
        std::vector<float> left(played.size() / 2);
        for (size_t i = 0; i < left.size(); ++i) left[i] = played[2 * i];
        return left;
    }

    // Latencies, in ms, of the impulses the speaker played from `fromSeconds` on, as far as the
    // speaker keeps them.
    std::vector<double> Latencies(double fromSeconds) const {
        // On the real clock the speaker plays on while its frames are copied: they are taken
        // again until no period ended meanwhile, or the count would date them a period late.
        std::vector<float> played;
        uint64_t count = 0;
        for (int tries = 0; tries < 100; ++tries) {
            count = zqvm::RenderedFrameCount(m_speaker);
            played = zqvm::RenderedFrames(m_speaker);
            if (zqvm::RenderedFrameCount(m_speaker) == count) break;
        }
        const size_t kept = played.size() / 2;
        const uint64_t firstKept = count - kept;
        const double firstPlayed = m_phaseMs / 1000.0 + 0.010;  // the first period's frames
        std::vector<double> latencies;
        const size_t skip = static_cast<size_t>(m_speakerRate * 0.1);
        for (size_t i = 0; i < kept; ++i) {
            if (std::fabs(played[2 * i]) < 0.05f) continue;
            size_t peak = i;  // the resamplers spread an impulse over a few frames
            for (size_t j = i; j < std::min(kept, i + 64); ++j)
                if (std::fabs(played[2 * j]) > std::fabs(played[2 * peak])) peak = j;
            const double heard = firstPlayed + static_cast<double>(firstKept + peak) / m_speakerRate;
            if (heard >= fromSeconds) {
                const double sounded = std::floor(heard / kImpulseSpacing) * kImpulseSpacing;
                latencies.push_back((heard - sounded) * 1000.0);
            }
            i = peak + skip;
        }
        return latencies;
    }

    uint64_t Underruns() const { return zqvm::Underruns(m_speaker); }
    uint64_t Dropped() const { return m_core->GetCaptureEngine()->QueueDroppedFrames(); }
    void HoldRenderThread(uint32_t periods) const { zqvm::HoldStreamEvents(m_speaker, periods); }

private:
    SteppedMonitoring m_machine;
    double m_phaseMs;
    std::wstring m_speaker;
    double m_speakerRate;
    CZQCoreAudio* m_core;
    int64_t m_start = 0;
};

void SteadyState(benchmark::State& state, FormatPair pair, double phaseMs) {
    for (auto _ : state) {
        Rig rig(pair, phaseMs, 0.0);
        if (!rig.Started() || !rig.RunUntil(6.0)) {
            state.SkipWithError("the streams did not run");
            return;
        }
        const std::vector<double> latencies = rig.Latencies(2.0);
        state.counters["latency_ms"] = Median(latencies);
        state.counters["spread_ms"] = latencies.empty() ? NAN
            : *std::max_element(latencies.begin(), latencies.end()) - *std::min_element(latencies.begin(), latencies.end());
        state.counters["impulses"] = static_cast<double>(latencies.size());
    }
}

void AfterUnderrun(benchmark::State& state, FormatPair pair) {
    for (auto _ : state) {
        Rig rig(pair, 5.0, 0.0);
        if (!rig.Started() || !rig.RunUntil(3.0)) {
            state.SkipWithError("the streams did not run");
            return;
        }
        const double before = Median(rig.Latencies(1.0));
        const uint64_t underruns = rig.Underruns();
        rig.HoldRenderThread(5);
        if (!rig.RunUntil(9.0)) {
            state.SkipWithError("the streams did not run");
            return;
        }
        state.counters["before_ms"] = before;
        state.counters["after_5s_ms"] = Median(rig.Latencies(8.0));
        state.counters["underruns"] = static_cast<double>(rig.Underruns() - underruns);
    }
}

void Drift(benchmark::State& state, FormatPair pair, double ppm) {
    for (auto _ : state) {
        Rig rig(pair, 5.0, ppm);
        if (!rig.Started() || !rig.RunUntil(1.0)) {
            state.SkipWithError("the streams did not run");
            return;
        }
        const uint64_t underruns = rig.Underruns();
        const uint64_t dropped = rig.Dropped();
        if (!rig.RunUntil(6.0)) {
            state.SkipWithError("the streams did not run");
            return;
        }
        const double start = Median(rig.Latencies(2.0));
        constexpr double kHour = 3600.0;
        if (!rig.RunUntil(kHour)) {
            state.SkipWithError("the streams did not run");
            return;
        }
        const std::vector<double> end = rig.Latencies(kHour - 5.0);
        state.counters["start_ms"] = start;
        state.counters["end_ms"] = Median(end);
        state.counters["end_worst_ms"] = end.empty() ? NAN : *std::max_element(end.begin(), end.end());
        state.counters["dropped_frames"] = static_cast<double>(rig.Dropped() - dropped);
        state.counters["underruns"] = static_cast<double>(rig.Underruns() - underruns);
    }
}

struct QualityCase {
    const char* name;
    double speakerPpm;
    bool jitter;
    bool stall;
};

const QualityCase kQualityCases[] = {
    {"quiet", 0.0, false, false},          {"jitter_8ms", 0.0, true, false},
    {"drift_+300ppm", 300.0, false, false}, {"drift_-300ppm", -300.0, false, false},
    {"jitter_8ms_drift_+300ppm", 300.0, true, false}, {"stall_50ms", 0.0, false, true},
};

// Each stream thread: now and then (one period in ten) woken up to 8 ms late.
zqvm::WakeJitter QualityJitter(bool on) {
    zqvm::WakeJitter jitter;
    if (on) {
        jitter.randomMaxMs = 8.0;
        jitter.probability = 0.1;
        jitter.seed = 19;
    }
    return jitter;
}

// Runs one case to 20 s; with `sample`, reads the controller every 100 ms on the way, and the
// speaker's underruns at 5 s into *underrunsAt5s.
bool RunQualityCase(Rig& rig, const QualityCase& c, std::vector<std::pair<double, double>>* sample,
                    uint64_t* underrunsAt5s) {
    constexpr double kSeconds = 20.0;
    for (int tenth = 1; tenth <= static_cast<int>(kSeconds * 10); ++tenth) {
        if (c.stall && tenth == 100) rig.HoldRenderThread(5);
        if (!rig.RunUntil(tenth / 10.0)) return false;
        if (sample) sample->push_back(rig.Control());
        if (underrunsAt5s && tenth == 50) *underrunsAt5s = rig.Underruns();
    }
    return true;
}

void Quality(benchmark::State& state, QualityCase c) {
    const FormatPair pair{"48k>44.1k_mono", 48000, 1, 44100};
    for (auto _ : state) {
        std::vector<std::pair<double, double>> control;
        std::vector<float> heard;
        uint64_t lateUnderruns = 0;
        {
            Rig rig(pair, 5.0, c.speakerPpm, true, QualityJitter(c.jitter));
            uint64_t underrunsAt5s = 0;
            if (!rig.Started() || !RunQualityCase(rig, c, &control, &underrunsAt5s)) {
                state.SkipWithError("the streams did not run");
                return;
            }
            lateUnderruns = rig.Underruns() - underrunsAt5s;
            heard = rig.Heard();
        }
        std::vector<double> latencies;
        {
            Rig rig(pair, 5.0, c.speakerPpm, false, QualityJitter(c.jitter));
            if (!rig.Started() || !RunQualityCase(rig, c, nullptr, nullptr)) {
                state.SkipWithError("the streams did not run");
                return;
            }
            latencies = rig.Latencies(1.0);
        }
        // The first second of the tone is left out. The listener hears the speaker's frames at
        // its own clock's rate.
        const size_t skip = std::min(heard.size(), static_cast<size_t>(pair.speakerRate));
        const zqtest::ToneQuality quality =
            zqtest::MeasureToneQuality(std::vector<float>(heard.begin() + static_cast<long>(skip), heard.end()),
                                       pair.speakerRate * (1.0 + c.speakerPpm * 1e-6), 1000.0);
        double largest = 0.0, largestStep = 0.0;
        for (size_t i = 0; i < control.size(); ++i) {
            largest = std::max(largest, std::fabs(control[i].first));
            if (i > 0) largestStep = std::max(largestStep, std::fabs(control[i].first - control[i - 1].first));
        }
        double steadyPitch = 0.0;  // the heard tone's worst pitch from 5 s on (windows of 100 ms)
        for (size_t w = 40; w < quality.pitchPpm.size(); ++w)
            if (!std::isnan(quality.pitchPpm[w])) steadyPitch = std::max(steadyPitch, std::fabs(quality.pitchPpm[w]));
        state.counters["dropouts"] = static_cast<double>(quality.dropouts);
        state.counters["corr_max_ppm"] = largest;
        state.counters["corr_max_cents"] = zqtest::PpmToCents(largest);
        state.counters["corr_step_ppm"] = largestStep;
        state.counters["pitch_after5s_ppm"] = steadyPitch;
        state.counters["worst_snr_db"] = quality.worstSnrDb;
        state.counters["latency_med_ms"] = Median(latencies);
        state.counters["latency_max_ms"] = latencies.empty() ? NAN : *std::max_element(latencies.begin(), latencies.end());
        state.counters["underruns_after5s"] = static_cast<double>(lateUnderruns);
        state.counters["cushion_ms"] = control.empty() ? NAN : control.back().second;
    }
}

// The same path on the real clock, as on a machine (quiet, or with other load: run it beside a
// busy loop): latency of the impulses from 2 s to 20 s, speaker underruns after 2 s, and the
// cushion the rate control settled at.
void RealTime(benchmark::State& state) {
    const FormatPair pair{"48k>44.1k_mono", 48000, 1, 44100};
    for (auto _ : state) {
        Rig rig(pair, 5.0, 0.0, false, {}, zqvm::ClockMode::RealTime);
        if (!rig.Started()) {
            state.SkipWithError("the streams did not run");
            return;
        }
        const auto start = std::chrono::steady_clock::now();
        std::this_thread::sleep_until(start + std::chrono::seconds(2));  // the run's length, not a sync
        const uint64_t underruns = rig.Underruns();
        std::this_thread::sleep_until(start + std::chrono::seconds(20));
        const std::vector<double> latencies = rig.Latencies(2.0);
        state.counters["latency_med_ms"] = Median(latencies);
        state.counters["latency_max_ms"] = latencies.empty() ? NAN : *std::max_element(latencies.begin(), latencies.end());
        state.counters["underruns_after2s"] = static_cast<double>(rig.Underruns() - underruns);
        state.counters["cushion_ms"] = rig.Control().second;
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (const FormatPair& pair : kPairs) {
        for (double phase : {1.0, 3.0, 5.0, 7.0, 9.0}) {
            const std::string name = std::string("steady/") + pair.name + "/phase_" + std::to_string(int(phase)) + "ms";
            benchmark::RegisterBenchmark(name.c_str(), SteadyState, pair, phase)->Iterations(1)->Unit(benchmark::kMillisecond);
        }
    }
    for (const FormatPair& pair : kPairs) {
        benchmark::RegisterBenchmark((std::string("underrun/") + pair.name).c_str(), AfterUnderrun, pair)
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
    }
    for (const FormatPair& pair : kPairs) {
        for (double ppm : {300.0, -300.0, 1000.0, -1000.0}) {
            const std::string name = std::string("drift/") + pair.name + "/" + (ppm > 0 ? "+" : "") +
                                     std::to_string(static_cast<int>(ppm)) + "ppm";
            benchmark::RegisterBenchmark(name.c_str(), Drift, pair, ppm)->Iterations(1)->Unit(benchmark::kSecond);
        }
    }
    for (const QualityCase& c : kQualityCases)
        benchmark::RegisterBenchmark((std::string("quality/") + c.name).c_str(), Quality, c)
            ->Iterations(1)
            ->Unit(benchmark::kSecond);
    benchmark::RegisterBenchmark("realtime/48k>44.1k_mono", RealTime)
        ->Iterations(1)
        ->Unit(benchmark::kSecond)
        ->UseRealTime();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
