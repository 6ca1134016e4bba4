// The spectrum's arithmetic: window tables, the 4096-point transform, the power, and the
// element-wise steps of the display (hold view, decay).
//
// Every result is bit-for-bit what the plain arithmetic gives (the single/double precision mix
// of each formula, the transform's twiddle recurrence): the window values and the twiddle
// factors are computed once, with the same formulas, and reused; the kernels
// (SpectrumTransformKernel.cpp, SpectrumArrayKernel.cpp) are written once with Highway's
// portable vectors and compiled for every instruction set Highway builds for, one of which is
// chosen at run time. Each does the same IEEE operations in the same order per element, only
// several elements at a time. That holds only without fused multiply-adds: the code is built
// with -ffp-contract=off and calls no multiply-add operation.
//
// Threads: everything here is reentrant. The tables are built on first use (thread-safe) and
// are read-only afterwards.
#pragma once

#include <cstdint>
#include <vector>

namespace spectrum {

constexpr int kLength = 4096;  // transform length
constexpr int kBins = 2048;    // bins that carry the spectrum: 0 .. kLength / 2 - 1
constexpr int kStages = 12;    // log2(kLength)

// Window functions by the core's setting: 1 triangular, 2 Hamming, 3 Hann, 4 Blackman,
// 5 Blackman-Harris, 6 Welch, 7 to 9 Gaussian (alpha 2.5, 3.5, 4.5). Any other: no window.
constexpr int kFirstWindow = 1;
constexpr int kLastWindow = 9;

// The kLength values of a window, or null for a function without a window.
const float* WindowTable(int nFunction);

// The transform's twiddle factors: for the stage with half size H (1, 2, ..., 2048), the
// recurrence's (cos n*delta, sin n*delta) for n < H at index H - 1 + n. They depend only on the
// stage, because the recurrence restarts for every block.
struct Twiddles {
    double re[kLength - 1];
    double im[kLength - 1];
};
const Twiddles& GetTwiddles();

// i with its 12 low bits in reverse order, for i < kLength.
const uint16_t* BitReversal();

// ---- the kernels (dispatched to the processor's best instruction set) ----------------------

// Radix-2 decimation-in-time transform with bit-reversed input order, kernel e^(+2 pi i kn/N),
// unscaled. in must not overlap re or im. No checks: the caller validates the pointers.
void Transform(const float* in, float* re, float* im);

// data[n] = table[n] * data[n] for n < kLength.
void MultiplyByWindow(const float* table, float* data);

// power[k] = re[k] * re[k] + im[k] * im[k] for k < kBins; power[kBins ..] untouched.
void Power(const float* re, const float* im, float* power);

// Hold view for i < kBins: shown[i] = power[i] if larger (strictly), then peak[i] = shown[i]
// if larger (strictly). A NaN never replaces a value.
void Hold(const float* power, float* shown, float* peak);

// The 5 ms decay for i < kLength: minus one tenth of the lower bound of the value's decade
// (100 from 1000 up, 0.0001 below 0.01), never below 0.0; a NaN stays NaN.
void Decay(float* values);

// ---- the instruction sets ---------------------------------------------------------------
// Targets are Highway's target bits (HWY_AVX2 and so on).

// The targets the kernels were built for that this processor runs, best first (while a
// ScopedKernelTarget lives, only its target).
std::vector<int64_t> KernelTargets();
// The target the kernels run on now.
int64_t ActiveKernelTarget();
// "AVX3", "AVX2", "SSE4", "SSSE3", "SCALAR", "NEON", "SVE", ...
const char* KernelTargetName(int64_t target);

// While it lives, the kernels run on the given target only, one of KernelTargets(): for tests
// and benchmarks, which compare the targets in one process. Process-wide; one at a time.
class ScopedKernelTarget {
public:
    explicit ScopedKernelTarget(int64_t target);
    ~ScopedKernelTarget();
    ScopedKernelTarget(const ScopedKernelTarget&) = delete;
    ScopedKernelTarget& operator=(const ScopedKernelTarget&) = delete;
};

}  // namespace spectrum
