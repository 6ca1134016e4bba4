// The analyzer's 10 ms tick (both sides) for each window function, its 4096-point transform,
// and FFTW's single-precision 4096-point real transform as the yardstick in the same run.
//
// Reports, after the table: each tick's share of its 10 ms budget and the transform's time
// against FFTW's.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "analysis/AudioAnalyzer.h"
#include "analysis/SpectrumMath.h"
#include "audio/AudioCapture.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/clock.h"

namespace {

constexpr int kBlock = CAudioAnalyzer::kBlockSamples;
constexpr int kBlocksPerRefill = 24;  // the analyzer feed holds 25 blocks

// A core with its engines, on the stepped clock so that its own analyzer thread stays idle,
// and an analyzer of the benchmark's whose jobs run directly.
struct Bench {
    Bench() {
        zqvm::SetClockMode(zqvm::ClockMode::Stepped);
        core = std::make_unique<CZQCoreAudio>();
        core->Init(nullptr);
        analyzer = std::make_unique<CAudioAnalyzer>();
        // A 1 kHz tone with a little of 5 kHz, as stereo engine frames.
        for (int i = 0; i < kBlock * kBlocksPerRefill; ++i) {
            const double t = static_cast<double>(i) / 48000.0;
            const float s = static_cast<float>(0.5 * std::sin(2.0 * std::numbers::pi * 1000.0 * t) +
                                               0.05 * std::sin(2.0 * std::numbers::pi * 5000.0 * t));
            frames.push_back(s);
            frames.push_back(s);
        }
    }
    ~Bench() {
        analyzer.reset();
        core->Shutdown();
        core.reset();
        zqvm::SetClockMode(zqvm::ClockMode::RealTime);
    }
    void Refill() {
        CAudioCapture* capture = core->GetCaptureEngine();
        const auto count = static_cast<uint32_t>(frames.size() / 2);
        capture->WithFeeds([&](CAudioSharedMem& input, CAudioSharedMem& output) {
            input.WritePacket(frames.data(), count);
            output.WritePacket(frames.data(), count);
        });
    }

    std::unique_ptr<CZQCoreAudio> core;
    std::unique_ptr<CAudioAnalyzer> analyzer;
    std::vector<float> frames;
};

Bench& Shared() {
    static Bench bench;
    return bench;
}

// Share of the 10 ms budget in percent: time per iteration / 10 ms * 100.
benchmark::Counter BudgetShare() {
    return benchmark::Counter(1.0e-4, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_Tick(benchmark::State& state) {
    Bench& bench = Shared();
    bench.core->SetWhichFunction(static_cast<int>(state.range(0)));
    int blocksLeft = 0;
    for (auto _ : state) {
        if (blocksLeft == 0) {
            state.PauseTiming();
            bench.Refill();
            blocksLeft = kBlocksPerRefill;
            state.ResumeTiming();
        }
        bench.analyzer->AnalyzeInput();
        bench.analyzer->AnalyzeOutput();
        --blocksLeft;
    }
    state.counters["budget_%"] = BudgetShare();
    bench.core->SetWhichFunction(2);
}
BENCHMARK(BM_Tick)->DenseRange(0, 9)->ArgName("window");

// The 5 ms decay job (not part of the tick), on a spectrum that a tick left.
void BM_Decay(benchmark::State& state) {
    CAudioAnalyzer& analyzer = *Shared().analyzer;
    for (auto _ : state) analyzer.DecaySpectrum();
    state.counters["budget_%"] = benchmark::Counter(0.5e-4, benchmark::Counter::kIsIterationInvariantRate |
                                                               benchmark::Counter::kInvert);  // of 5 ms
}
BENCHMARK(BM_Decay);

void BM_Transform(benchmark::State& state) {
    CAudioAnalyzer& analyzer = *Shared().analyzer;
    std::vector<float> input(4096);
    for (int i = 0; i < 4096; ++i) input[i] = static_cast<float>(std::sin(0.1 * i) + 0.25 * std::cos(0.37 * i));
    for (auto _ : state) {
        analyzer.ComputeFFT(input.data(), analyzer.m_vecReIn.data(), analyzer.m_vecImIn.data());
        benchmark::DoNotOptimize(analyzer.m_vecReIn.data());
        benchmark::ClobberMemory();
    }
    state.SetLabel(spectrum::PathName(spectrum::SelectedPath()));
}
BENCHMARK(BM_Transform);

// Each code path of the transform, for comparison (the analyzer uses the widest available).
void BM_TransformPath(benchmark::State& state) {
    const auto path = static_cast<spectrum::TransformPath>(state.range(0));
    if (!spectrum::IsPathAvailable(path)) {
        state.SkipWithError("not available on this processor");
        return;
    }
    CAudioAnalyzer& analyzer = *Shared().analyzer;
    std::vector<float> input(4096);
    for (int i = 0; i < 4096; ++i) input[i] = static_cast<float>(std::sin(0.1 * i) + 0.25 * std::cos(0.37 * i));
    for (auto _ : state) {
        spectrum::TransformWith(path, input.data(), analyzer.m_vecReIn.data(), analyzer.m_vecImIn.data());
        benchmark::ClobberMemory();
    }
    state.SetLabel(spectrum::PathName(path));
}
BENCHMARK(BM_TransformPath)->DenseRange(0, 2)->ArgName("path");

void BM_FftwR2c(benchmark::State& state) {
    float* input = fftwf_alloc_real(4096);
    fftwf_complex* output = fftwf_alloc_complex(2049);
    fftwf_plan plan = fftwf_plan_dft_r2c_1d(4096, input, output, FFTW_MEASURE);
    for (int i = 0; i < 4096; ++i) input[i] = static_cast<float>(std::sin(0.1 * i) + 0.25 * std::cos(0.37 * i));
    for (auto _ : state) {
        fftwf_execute(plan);
        benchmark::DoNotOptimize(output);
        benchmark::ClobberMemory();
    }
    fftwf_destroy_plan(plan);
    fftwf_free(output);
    fftwf_free(input);
}
BENCHMARK(BM_FftwR2c);

// Keeps each run's CPU time per iteration (ns) for the summary.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            const double ns = run.GetAdjustedCPUTime() * benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                              benchmark::GetTimeUnitMultiplier(run.time_unit);
            times[run.benchmark_name()] = ns;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\nSummary (transform path: %s)\n", spectrum::PathName(spectrum::SelectedPath()));
    double worst = 0.0;
    for (const auto& [name, ns] : reporter.times) {
        if (name.rfind("BM_Tick/", 0) != 0) continue;
        std::printf("  %-20s %8.2f us = %.3f %% of 10 ms\n", name.c_str(), ns / 1000.0, ns / 1.0e5);
        if (ns > worst) worst = ns;
    }
    if (worst > 0.0) std::printf("  slowest tick: %.3f %% of its 10 ms budget (target <= 0.5 %%)\n", worst / 1.0e5);
    const auto transform = reporter.times.find("BM_Transform");
    const auto fftw = reporter.times.find("BM_FftwR2c");
    if (transform != reporter.times.end() && fftw != reporter.times.end() && fftw->second > 0.0) {
        std::printf("  transform %.2f us, FFTW r2c %.2f us: %.2fx FFTW (target <= 4x)\n", transform->second / 1000.0,
                    fftw->second / 1000.0, transform->second / fftw->second);
        for (int path = 0; path < 3; ++path) {
            const auto run = reporter.times.find("BM_TransformPath/path:" + std::to_string(path));
            if (run == reporter.times.end()) continue;
            std::printf("    %-8s path: %6.2f us, %.2fx FFTW\n", spectrum::PathName(static_cast<spectrum::TransformPath>(path)),
                        run->second / 1000.0, run->second / fftw->second);
        }
    }
    Shared();  // the shared bench object goes at exit, after the runs
    return 0;
}
