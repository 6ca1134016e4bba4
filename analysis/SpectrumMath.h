// The spectrum's arithmetic: window tables, the 4096-point transform and the power.
//
// Every result is bit-for-bit what the plain arithmetic gives (the single/double precision mix
// of each formula, the transform's twiddle recurrence): the window values and the twiddle
// factors are computed once, with the same formulas, and reused; the transform's kernels for the
// wide instruction sets do the same operations in the same order per element, only several
// elements at a time. That holds only without fused multiply-adds, hence -ffp-contract=off for
// this code.
//
// Threads: everything here is reentrant. The tables are built on first use (thread-safe) and
// are read-only afterwards.
#pragma once

#include <cstdint>

// Simple element-wise loops are compiled for the wide instruction sets too, the one the
// processor has picked at load time (GCC's function multi-versioning on ELF platforms). Such
// loops hold no multiply-add, so every version gives the same bits. Not in sanitizer builds:
// the versions' resolvers run before the sanitizer's runtime is up.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && defined(__ELF__) && \
    !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define ZQ_WIDE_CLONES __attribute__((target_clones("avx512f", "avx2", "default")))
#else
#define ZQ_WIDE_CLONES
#endif

#if defined(__GNUC__)
#define ZQ_UNROLL_8 _Pragma("GCC unroll 8")
#else
#define ZQ_UNROLL_8
#endif

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
// data[n] = table[n] * data[n] for n < kLength.
void MultiplyByWindow(const float* table, float* data);

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

// The code paths of the transform. Portable runs everywhere; the others only where the
// processor has the instruction set (Avx: 4 lanes of double, Avx512: 8 lanes).
enum class TransformPath { Portable, Avx, Avx512 };
bool IsPathAvailable(TransformPath path);
// The widest available path: chosen once, at first use.
TransformPath SelectedPath();
const char* PathName(TransformPath path);

// Radix-2 decimation-in-time transform with bit-reversed input order, kernel e^(+2 pi i kn/N),
// unscaled. in must not overlap re or im. No checks: the caller validates the pointers.
void Transform(const float* in, float* re, float* im);
void TransformWith(TransformPath path, const float* in, float* re, float* im);

// power[k] = re[k] * re[k] + im[k] * im[k] for k < kBins; power[kBins ..] untouched.
void Power(const float* re, const float* im, float* power);

namespace detail {
// Kernels of the wide paths (SpectrumTransformWide.cpp); only called where available.
void TransformAvx(const float* in, float* re, float* im);
void TransformAvx512(const float* in, float* re, float* im);
bool CpuHasAvx();
bool CpuHasAvx512();
}  // namespace detail

}  // namespace spectrum
