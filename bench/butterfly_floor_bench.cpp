// The floor under the 4096-point transform on each instruction set: its 21,504 butterflies that
// need the double-precision arithmetic (all of the 12 stages' 24,576 but the first stage and
// n = 0 of the second, whose twiddle is exactly 1) run on independent data in the first-level
// cache, with the twiddles held in registers: no reordering of the data, no bit reversal, no
// twiddle loads. The transform (analysis_bench) can come near this time but not below it, since
// it does these same operations and more. Each butterfly widens four floats to double and rounds
// four doubles back; those conversions and its ten additions and multiplications set the floor.
//   taskset -c 1 butterfly_floor_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "bench/butterfly_floor_bench.cpp"
#include <hwy/foreach_target.h>  // must come before highway.h
#include <hwy/highway.h>

#include "analysis/SpectrumButterfly-inl.h"

HWY_BEFORE_NAMESPACE();
namespace floor_bench {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;
using spectrum::HWY_NAMESPACE::butterfly::Butterfly;
using spectrum::HWY_NAMESPACE::butterfly::DD;
using spectrum::HWY_NAMESPACE::butterfly::DF;

// count butterflies (a multiple of 1024) over four quarters of 256 places, in passes that do
// what the transform's paired stages do best: four values loaded once, four butterflies, stored.
void Butterflies(float* HWY_RESTRICT re, float* HWY_RESTRICT im, int count) {
    const DD dd;
    const DF df;
    const size_t lanes = hn::Lanes(df);
    const auto ar1 = hn::Set(dd, 0.7071067811865476), ai1 = hn::Set(dd, -0.7071067811865475);
    const auto ar2 = hn::Set(dd, 0.9238795325112867), ai2 = hn::Set(dd, -0.3826834323650898);
    const auto ar3 = hn::Set(dd, 0.3826834323650898), ai3 = hn::Set(dd, -0.9238795325112867);
    constexpr size_t kQuarter = 256;
    for (int pass = 0; pass < count / static_cast<int>(4 * kQuarter); ++pass) {
        for (size_t i = 0; i < kQuarter; i += lanes) {
            auto r0 = hn::Load(df, re + i), i0 = hn::Load(df, im + i);
            auto r1 = hn::Load(df, re + kQuarter + i), i1 = hn::Load(df, im + kQuarter + i);
            auto r2 = hn::Load(df, re + 2 * kQuarter + i), i2 = hn::Load(df, im + 2 * kQuarter + i);
            auto r3 = hn::Load(df, re + 3 * kQuarter + i), i3 = hn::Load(df, im + 3 * kQuarter + i);
            Butterfly(r0, i0, r2, i2, ar1, ai1);
            Butterfly(r1, i1, r3, i3, ar1, ai1);
            Butterfly(r0, i0, r1, i1, ar2, ai2);
            Butterfly(r2, i2, r3, i3, ar3, ai3);
            hn::Store(r0, df, re + i);
            hn::Store(i0, df, im + i);
            hn::Store(r1, df, re + kQuarter + i);
            hn::Store(i1, df, im + kQuarter + i);
            hn::Store(r2, df, re + 2 * kQuarter + i);
            hn::Store(i2, df, im + 2 * kQuarter + i);
            hn::Store(r3, df, re + 3 * kQuarter + i);
            hn::Store(i3, df, im + 3 * kQuarter + i);
        }
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace floor_bench
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <benchmark/benchmark.h>

#include <cmath>
#include <string>
#include <vector>

#include "analysis/SpectrumMath.h"

namespace floor_bench {

HWY_EXPORT(Butterflies);

// 21,504, rounded to whole passes of 1024: 21,504 is 21 passes.
constexpr int kTransformButterflies = 12 * 2048 - 2048 - 1024;

void BM_TransformFloor(benchmark::State& state, int64_t target) {
    spectrum::ScopedKernelTarget pin(target);  // Highway's dispatch, for this benchmark's table too
    HWY_ALIGN static float re[1024];
    HWY_ALIGN static float im[1024];
    // The values grow by about sqrt(2) a pass, to infinity and then NaN: the processors named
    // in the table handle those at full speed (only subnormals are slow, and growing values
    // never become subnormal).
    for (int i = 0; i < 1024; ++i) {
        re[i] = static_cast<float>(std::sin(0.1 * i));
        im[i] = static_cast<float>(std::cos(0.37 * i));
    }
    for (auto _ : state) {
        HWY_DYNAMIC_DISPATCH(Butterflies)(re, im, kTransformButterflies);
        benchmark::ClobberMemory();
    }
    state.counters["ns_per_butterfly"] =
        benchmark::Counter(kTransformButterflies, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace floor_bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    for (int64_t target : spectrum::KernelTargets()) {
        const std::string name = std::string("BM_TransformFloor/") + spectrum::KernelTargetName(target);
        benchmark::RegisterBenchmark(name.c_str(), floor_bench::BM_TransformFloor, target);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
#endif  // HWY_ONCE
