// The analyzer's 10 ms tick (both sides), its 4096-point transform and its 5 ms decay on every
// instruction set the spectrum kernels run on here, and FFTW's single-precision 4096-point
// real transform as the yardstick in the same run.
//
// Reports, after the table: per instruction set, the transform's time against FFTW's and the
// tick's share of its 10 ms budget; FFTW's planning time and chosen plan.
// Pinned, median and fastest of five:
//   taskset -c 1 analysis_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
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

std::vector<float> TransformInput() {
    std::vector<float> input(4096);
    for (int i = 0; i < 4096; ++i) input[i] = static_cast<float>(std::sin(0.1 * i) + 0.25 * std::cos(0.37 * i));
    return input;
}

// The 10 ms tick, both sides, with the default window (Hamming; every window is one table
// product, "none" skips it).
void BM_Tick(benchmark::State& state, int64_t target) {
    spectrum::ScopedKernelTarget pin(target);
    Bench& bench = Shared();
    bench.core->SetWhichFunction(2);
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
}

// The 5 ms decay job (not part of the tick), on a spectrum that a tick left.
void BM_Decay(benchmark::State& state, int64_t target) {
    spectrum::ScopedKernelTarget pin(target);
    CAudioAnalyzer& analyzer = *Shared().analyzer;
    for (auto _ : state) analyzer.DecaySpectrum();
    state.counters["budget_%"] = benchmark::Counter(0.5e-4, benchmark::Counter::kIsIterationInvariantRate |
                                                               benchmark::Counter::kInvert);  // of 5 ms
}

void BM_Transform(benchmark::State& state, int64_t target) {
    spectrum::ScopedKernelTarget pin(target);
    CAudioAnalyzer& analyzer = *Shared().analyzer;
    const std::vector<float> input = TransformInput();
    for (auto _ : state) {
        analyzer.ComputeFFT(input.data(), analyzer.m_vecReIn.data(), analyzer.m_vecImIn.data());
        benchmark::DoNotOptimize(analyzer.m_vecReIn.data());
        benchmark::ClobberMemory();
    }
}

// FFTW's single-precision real-to-complex transform of the same length: the yardstick. Its plan
// is chosen by measurement once per process (main), so it may differ between runs.
struct FftwPlan {
    FftwPlan() {
        input = fftwf_alloc_real(4096);
        output = fftwf_alloc_complex(2049);
        const auto start = std::chrono::steady_clock::now();
        plan = fftwf_plan_dft_r2c_1d(4096, input, output, FFTW_MEASURE);
        planSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const std::vector<float> samples = TransformInput();
        std::copy(samples.begin(), samples.end(), input);
    }
    ~FftwPlan() {
        fftwf_destroy_plan(plan);
        fftwf_free(output);
        fftwf_free(input);
    }
    std::string Description() const {
        char* text = fftwf_sprint_plan(plan);
        std::string description = text != nullptr ? text : "?";
        std::free(text);  // NOLINT: FFTW allocates it with malloc
        description.erase(std::remove(description.begin(), description.end(), '\n'), description.end());
        return description;
    }
    float* input;
    fftwf_complex* output;
    fftwf_plan plan;
    double planSeconds = 0.0;
};

FftwPlan& Fftw() {
    static FftwPlan plan;
    return plan;
}

void BM_FftwR2c(benchmark::State& state) {
    FftwPlan& fftw = Fftw();
    for (auto _ : state) {
        fftwf_execute(fftw.plan);
        benchmark::DoNotOptimize(fftw.output);
        benchmark::ClobberMemory();
    }
}

// Keeps each benchmark's CPU time per iteration (ns) for the summary, by statistic: "run" for a
// single run, "median" and "min" over repetitions.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            const std::string statistic = run.run_type == Run::RT_Iteration ? "run" : run.aggregate_name;
            if (statistic != "run" && statistic != "median" && statistic != "min") continue;
            const double ns = run.GetAdjustedCPUTime() * benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                              benchmark::GetTimeUnitMultiplier(run.time_unit);
            times[statistic][run.run_name.str()] = ns;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    double Time(const std::string& statistic, const std::string& name) const {
        const auto table = times.find(statistic);
        if (table == times.end()) return 0.0;
        const auto found = table->second.find(name);
        return found == table->second.end() ? 0.0 : found->second;
    }
    std::map<std::string, std::map<std::string, double>> times;
};

// The fastest repetition: under load from other processes, the closest to the code's own cost.
double Fastest(const std::vector<double>& values) { return *std::min_element(values.begin(), values.end()); }

void PrintTable(const SummaryReporter& reporter, const std::string& statistic, const std::vector<int64_t>& targets) {
    const double fftw = reporter.Time(statistic, "BM_FftwR2c");
    std::printf("\n%s: FFTW r2c %.2f us\n", statistic.c_str(), fftw / 1000.0);
    std::printf("%-8s %14s %10s %12s %16s\n", "target", "transform us", "/ FFTW", "tick us", "tick % of 10 ms");
    for (int64_t target : targets) {
        const std::string name = spectrum::KernelTargetName(target);
        const double transform = reporter.Time(statistic, "BM_Transform/" + name);
        const double tick = reporter.Time(statistic, "BM_Tick/" + name);
        if (transform <= 0.0 && tick <= 0.0) continue;  // filtered out
        std::printf("%-8s %14.2f %9.2fx %12.2f %15.3f%%\n", name.c_str(), transform / 1000.0,
                    fftw > 0.0 ? transform / fftw : 0.0, tick / 1000.0, tick / 1.0e5);
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    const std::vector<int64_t> targets = spectrum::KernelTargets();
    for (int64_t target : targets) {
        const std::string name = spectrum::KernelTargetName(target);
        benchmark::RegisterBenchmark(("BM_Transform/" + name).c_str(), BM_Transform, target)
            ->ComputeStatistics("min", Fastest);
        benchmark::RegisterBenchmark(("BM_Tick/" + name).c_str(), BM_Tick, target)->ComputeStatistics("min", Fastest);
        benchmark::RegisterBenchmark(("BM_Decay/" + name).c_str(), BM_Decay, target)->ComputeStatistics("min", Fastest);
    }
    benchmark::RegisterBenchmark("BM_FftwR2c", BM_FftwR2c)->ComputeStatistics("min", Fastest);
    Fftw();  // planned before the runs, not inside one
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\nFFTW r2c 4096, FFTW_MEASURE: planned in %.3f s; plan %s\n", Fftw().planSeconds,
                Fftw().Description().c_str());
    for (const char* statistic : {"run", "median", "min"}) {
        if (reporter.times.count(statistic) != 0) PrintTable(reporter, statistic, targets);
    }
    std::printf("targets: tick <= 0.5 %% of 10 ms everywhere; transform <= 4x FFTW (AVX2), <= 3x FFTW (AVX3)\n");
    std::printf("the analyzer runs on %s\n", spectrum::KernelTargetName(spectrum::ActiveKernelTarget()));
    Shared();  // the shared bench object goes at exit, after the runs
    return 0;
}
