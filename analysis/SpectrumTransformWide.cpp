// The transform's kernels for the wide instruction sets, chosen at run time.
//
// Each butterfly does exactly the portable path's operations, lane by lane: the float inputs
// widened to double, tr = ar*re[k] - ai*im[k] and ti = ar*im[k] + ai*re[k] in double,
// re[k] = float(re[j] - tr), im[k] = float(im[j] - ti), re[j] = float(tr) + re[j] and
// im[j] = float(ti) + im[j] in single precision. Lanes hold consecutive butterflies of a stage;
// IEEE arithmetic per lane and no contraction (-ffp-contract=off) keep the bits identical.
//
// The first three stages are done together, straight from the input: after the bit reversal,
// the eight places 8q .. 8q + 7 hold in[i + 512 * rev3(r)] with i = rev9(q), so eight
// consecutive i give eight complete groups whose three stages run in registers, one group per
// lane; a transpose then writes each group to its eight places. That replaces the bit-reversal
// pass and the two stages whose butterflies are closer together than a vector.
//
// Where the table's twiddle is exactly (1.0, +0.0) (the first stage, and n = 0 of the second,
// as the recurrence gives them here; checked at run time), the butterfly's double arithmetic is
// exact in single precision: tr = re[k] - 0*im[k] and ti = im[k] + 0*re[k] (the zero products
// keep the signs of zero and NaN), and float(double(a) - double(b)) is a - b for floats a and b
// (double has more than 2*24 + 2 bits, so rounding twice gives the once-rounded result). Those
// butterflies run as six single-precision additions and two multiplications, no conversions.
#include "SpectrumMath.h"

#include <cmath>

#if (defined(__GNUC__) || defined(__clang__)) && (defined(__x86_64__) || defined(__i386__))
#define ZQ_SPECTRUM_WIDE 1
#include <immintrin.h>
#endif

namespace spectrum::detail {

#if defined(ZQ_SPECTRUM_WIDE)

namespace {

constexpr int kGroups = kLength / 8;          // groups of the first three stages
constexpr int kRev3[8] = {0, 4, 2, 6, 1, 5, 3, 7};

bool IsIdentity(const Twiddles& tw, int t) { return tw.re[t] == 1.0 && tw.im[t] == 0.0 && !std::signbit(tw.im[t]); }

#define ZQ_AVX __attribute__((target("avx")))
#define ZQ_AVX512 __attribute__((target("avx512f")))

// Widening (exact) and narrowing (rounded to nearest) between float and double lanes. The
// 512-bit forms take an all-lanes mask: the plain intrinsics pass an undefined operand that
// GCC 12 warns about.
ZQ_AVX inline __m256d Widen(__m128 v) { return _mm256_cvtps_pd(v); }
ZQ_AVX inline __m128 Narrow(__m256d v) { return _mm256_cvtpd_ps(v); }
ZQ_AVX512 inline __m512d Widen(__m256 v) { return _mm512_maskz_cvtps_pd(0xFF, v); }
ZQ_AVX512 inline __m256 Narrow(__m512d v) { return _mm512_maskz_cvtpd_ps(0xFF, v); }

// ---- 4 lanes: __m128 floats, __m256d doubles ---------------------------------------------

ZQ_AVX inline void Butterfly4(__m128& rj, __m128& ij, __m128& rk, __m128& ik, __m256d ar, __m256d ai) {
    const __m256d rkd = Widen(rk);
    const __m256d ikd = Widen(ik);
    const __m256d tr = _mm256_sub_pd(_mm256_mul_pd(ar, rkd), _mm256_mul_pd(ai, ikd));
    const __m256d ti = _mm256_add_pd(_mm256_mul_pd(ar, ikd), _mm256_mul_pd(ai, rkd));
    rk = Narrow(_mm256_sub_pd(Widen(rj), tr));
    ik = Narrow(_mm256_sub_pd(Widen(ij), ti));
    rj = _mm_add_ps(Narrow(tr), rj);
    ij = _mm_add_ps(Narrow(ti), ij);
}

// The butterfly with the twiddle (1.0, +0.0), in single precision (see the top of the file).
ZQ_AVX inline void IdentityButterfly4(__m128& rj, __m128& ij, __m128& rk, __m128& ik) {
    const __m128 zero = _mm_setzero_ps();
    const __m128 tr = _mm_sub_ps(rk, _mm_mul_ps(zero, ik));
    const __m128 ti = _mm_add_ps(ik, _mm_mul_ps(zero, rk));
    rk = _mm_sub_ps(rj, tr);
    ik = _mm_sub_ps(ij, ti);
    rj = _mm_add_ps(tr, rj);
    ij = _mm_add_ps(ti, ij);
}

// Butterfly of places a and b of the group vectors with twiddle t of the table.
ZQ_AVX inline void GroupButterfly4(__m128* re, __m128* im, int a, int b, const Twiddles& tw, int t, bool identity) {
    if (identity) {
        IdentityButterfly4(re[a], im[a], re[b], im[b]);
    } else {
        Butterfly4(re[a], im[a], re[b], im[b], _mm256_set1_pd(tw.re[t]), _mm256_set1_pd(tw.im[t]));
    }
}

ZQ_AVX void FirstStagesAvx(const float* in, float* outRe, float* outIm, const Twiddles& tw, const uint16_t* rev) {
    const bool identity1 = IsIdentity(tw, 0);
    const bool identity2 = IsIdentity(tw, 1);
    for (int i0 = 0; i0 < kGroups; i0 += 4) {
        __m128 re[8], im[8];
#pragma GCC unroll 8
        for (int r = 0; r < 8; ++r) {
            re[r] = _mm_loadu_ps(in + i0 + kGroups * kRev3[r]);
            im[r] = _mm_setzero_ps();
        }
#pragma GCC unroll 4
        for (int r = 0; r < 8; r += 2) GroupButterfly4(re, im, r, r + 1, tw, 0, identity1);  // H = 1
#pragma GCC unroll 2
        for (int g = 0; g < 8; g += 4) {                                                      // H = 2
            GroupButterfly4(re, im, g, g + 2, tw, 1, identity2);
            GroupButterfly4(re, im, g + 1, g + 3, tw, 2, false);
        }
#pragma GCC unroll 4
        for (int n = 0; n < 4; ++n) GroupButterfly4(re, im, n, n + 4, tw, 3 + n, false);  // H = 4
        // re[r] holds place r of the groups of i0 .. i0 + 3: transpose to one group per vector.
        _MM_TRANSPOSE4_PS(re[0], re[1], re[2], re[3]);
        _MM_TRANSPOSE4_PS(re[4], re[5], re[6], re[7]);
        _MM_TRANSPOSE4_PS(im[0], im[1], im[2], im[3]);
        _MM_TRANSPOSE4_PS(im[4], im[5], im[6], im[7]);
#pragma GCC unroll 4
        for (int lane = 0; lane < 4; ++lane) {
            const int place = rev[i0 + lane];
            _mm_storeu_ps(outRe + place, re[lane]);
            _mm_storeu_ps(outRe + place + 4, re[lane + 4]);
            _mm_storeu_ps(outIm + place, im[lane]);
            _mm_storeu_ps(outIm + place + 4, im[lane + 4]);
        }
    }
}

ZQ_AVX void StageAvx(int half, const double* cosines, const double* sines, float* re, float* im) {
    for (int block = 0; block < kLength; block += 2 * half) {
        float* rj = re + block;
        float* ij = im + block;
        float* rk = rj + half;
        float* ik = ij + half;
        for (int n = 0; n < half; n += 4) {
            __m128 vrj = _mm_loadu_ps(rj + n), vij = _mm_loadu_ps(ij + n);
            __m128 vrk = _mm_loadu_ps(rk + n), vik = _mm_loadu_ps(ik + n);
            Butterfly4(vrj, vij, vrk, vik, _mm256_loadu_pd(cosines + n), _mm256_loadu_pd(sines + n));
            _mm_storeu_ps(rj + n, vrj);
            _mm_storeu_ps(ij + n, vij);
            _mm_storeu_ps(rk + n, vrk);
            _mm_storeu_ps(ik + n, vik);
        }
    }
}

// Two stages in one pass (H and 2H): see TwoStagesAvx512.
ZQ_AVX void TwoStagesAvx(int half, const Twiddles& tw, float* re, float* im) {
    const double* c1 = tw.re + half - 1;
    const double* s1 = tw.im + half - 1;
    const double* c2 = tw.re + 2 * half - 1;
    const double* s2 = tw.im + 2 * half - 1;
    for (int block = 0; block < kLength; block += 4 * half) {
        float* r = re + block;
        float* i = im + block;
        for (int n = 0; n < half; n += 4) {
            __m128 r0 = _mm_loadu_ps(r + n), i0 = _mm_loadu_ps(i + n);
            __m128 r1 = _mm_loadu_ps(r + n + half), i1 = _mm_loadu_ps(i + n + half);
            __m128 r2 = _mm_loadu_ps(r + n + 2 * half), i2 = _mm_loadu_ps(i + n + 2 * half);
            __m128 r3 = _mm_loadu_ps(r + n + 3 * half), i3 = _mm_loadu_ps(i + n + 3 * half);
            const __m256d ar1 = _mm256_loadu_pd(c1 + n), ai1 = _mm256_loadu_pd(s1 + n);
            Butterfly4(r0, i0, r1, i1, ar1, ai1);
            Butterfly4(r2, i2, r3, i3, ar1, ai1);
            Butterfly4(r0, i0, r2, i2, _mm256_loadu_pd(c2 + n), _mm256_loadu_pd(s2 + n));
            Butterfly4(r1, i1, r3, i3, _mm256_loadu_pd(c2 + n + half), _mm256_loadu_pd(s2 + n + half));
            _mm_storeu_ps(r + n, r0);
            _mm_storeu_ps(i + n, i0);
            _mm_storeu_ps(r + n + half, r1);
            _mm_storeu_ps(i + n + half, i1);
            _mm_storeu_ps(r + n + 2 * half, r2);
            _mm_storeu_ps(i + n + 2 * half, i2);
            _mm_storeu_ps(r + n + 3 * half, r3);
            _mm_storeu_ps(i + n + 3 * half, i3);
        }
    }
}

// ---- 8 lanes: __m256 floats, __m512d doubles ---------------------------------------------

ZQ_AVX512 inline void Butterfly8(__m256& rj, __m256& ij, __m256& rk, __m256& ik, __m512d ar, __m512d ai) {
    const __m512d rkd = Widen(rk);
    const __m512d ikd = Widen(ik);
    const __m512d tr = _mm512_sub_pd(_mm512_mul_pd(ar, rkd), _mm512_mul_pd(ai, ikd));
    const __m512d ti = _mm512_add_pd(_mm512_mul_pd(ar, ikd), _mm512_mul_pd(ai, rkd));
    rk = Narrow(_mm512_sub_pd(Widen(rj), tr));
    ik = Narrow(_mm512_sub_pd(Widen(ij), ti));
    rj = _mm256_add_ps(Narrow(tr), rj);
    ij = _mm256_add_ps(Narrow(ti), ij);
}

ZQ_AVX512 inline void IdentityButterfly8(__m256& rj, __m256& ij, __m256& rk, __m256& ik) {
    const __m256 zero = _mm256_setzero_ps();
    const __m256 tr = _mm256_sub_ps(rk, _mm256_mul_ps(zero, ik));
    const __m256 ti = _mm256_add_ps(ik, _mm256_mul_ps(zero, rk));
    rk = _mm256_sub_ps(rj, tr);
    ik = _mm256_sub_ps(ij, ti);
    rj = _mm256_add_ps(tr, rj);
    ij = _mm256_add_ps(ti, ij);
}

ZQ_AVX512 inline void GroupButterfly8(__m256* re, __m256* im, int a, int b, const Twiddles& tw, int t, bool identity) {
    if (identity) {
        IdentityButterfly8(re[a], im[a], re[b], im[b]);
    } else {
        Butterfly8(re[a], im[a], re[b], im[b], _mm512_set1_pd(tw.re[t]), _mm512_set1_pd(tw.im[t]));
    }
}

// 8 x 8 transpose of v[0..7] in place.
ZQ_AVX512 inline void Transpose8(__m256* v) {
    const __m256 t0 = _mm256_unpacklo_ps(v[0], v[1]), t1 = _mm256_unpackhi_ps(v[0], v[1]);
    const __m256 t2 = _mm256_unpacklo_ps(v[2], v[3]), t3 = _mm256_unpackhi_ps(v[2], v[3]);
    const __m256 t4 = _mm256_unpacklo_ps(v[4], v[5]), t5 = _mm256_unpackhi_ps(v[4], v[5]);
    const __m256 t6 = _mm256_unpacklo_ps(v[6], v[7]), t7 = _mm256_unpackhi_ps(v[6], v[7]);
    const __m256 s0 = _mm256_shuffle_ps(t0, t2, 0x44), s1 = _mm256_shuffle_ps(t0, t2, 0xEE);
    const __m256 s2 = _mm256_shuffle_ps(t1, t3, 0x44), s3 = _mm256_shuffle_ps(t1, t3, 0xEE);
    const __m256 s4 = _mm256_shuffle_ps(t4, t6, 0x44), s5 = _mm256_shuffle_ps(t4, t6, 0xEE);
    const __m256 s6 = _mm256_shuffle_ps(t5, t7, 0x44), s7 = _mm256_shuffle_ps(t5, t7, 0xEE);
    v[0] = _mm256_permute2f128_ps(s0, s4, 0x20);
    v[1] = _mm256_permute2f128_ps(s1, s5, 0x20);
    v[2] = _mm256_permute2f128_ps(s2, s6, 0x20);
    v[3] = _mm256_permute2f128_ps(s3, s7, 0x20);
    v[4] = _mm256_permute2f128_ps(s0, s4, 0x31);
    v[5] = _mm256_permute2f128_ps(s1, s5, 0x31);
    v[6] = _mm256_permute2f128_ps(s2, s6, 0x31);
    v[7] = _mm256_permute2f128_ps(s3, s7, 0x31);
}

ZQ_AVX512 void FirstStagesAvx512(const float* in, float* outRe, float* outIm, const Twiddles& tw,
                                 const uint16_t* rev) {
    const bool identity1 = IsIdentity(tw, 0);
    const bool identity2 = IsIdentity(tw, 1);
    for (int i0 = 0; i0 < kGroups; i0 += 8) {
        __m256 re[8], im[8];
#pragma GCC unroll 8
        for (int r = 0; r < 8; ++r) {
            re[r] = _mm256_loadu_ps(in + i0 + kGroups * kRev3[r]);
            im[r] = _mm256_setzero_ps();
        }
#pragma GCC unroll 4
        for (int r = 0; r < 8; r += 2) GroupButterfly8(re, im, r, r + 1, tw, 0, identity1);  // H = 1
#pragma GCC unroll 2
        for (int g = 0; g < 8; g += 4) {                                                      // H = 2
            GroupButterfly8(re, im, g, g + 2, tw, 1, identity2);
            GroupButterfly8(re, im, g + 1, g + 3, tw, 2, false);
        }
#pragma GCC unroll 4
        for (int n = 0; n < 4; ++n) GroupButterfly8(re, im, n, n + 4, tw, 3 + n, false);  // H = 4
        Transpose8(re);
        Transpose8(im);
#pragma GCC unroll 8
        for (int lane = 0; lane < 8; ++lane) {
            const int place = rev[i0 + lane];
            _mm256_storeu_ps(outRe + place, re[lane]);
            _mm256_storeu_ps(outIm + place, im[lane]);
        }
    }
}

ZQ_AVX512 void StageAvx512(int half, const double* cosines, const double* sines, float* re, float* im) {
    for (int block = 0; block < kLength; block += 2 * half) {
        float* rj = re + block;
        float* ij = im + block;
        float* rk = rj + half;
        float* ik = ij + half;
        for (int n = 0; n < half; n += 8) {
            __m256 vrj = _mm256_loadu_ps(rj + n), vij = _mm256_loadu_ps(ij + n);
            __m256 vrk = _mm256_loadu_ps(rk + n), vik = _mm256_loadu_ps(ik + n);
            Butterfly8(vrj, vij, vrk, vik, _mm512_loadu_pd(cosines + n), _mm512_loadu_pd(sines + n));
            _mm256_storeu_ps(rj + n, vrj);
            _mm256_storeu_ps(ij + n, vij);
            _mm256_storeu_ps(rk + n, vrk);
            _mm256_storeu_ps(ik + n, vik);
        }
    }
}

// Two stages in one pass: the stage with half size H and the next one (2H). The four places
// b + n, + H, + 2H, + 3H of a block of 4H take part in two butterflies of each stage, so they
// are loaded once and stored once for both.
ZQ_AVX512 void TwoStagesAvx512(int half, const Twiddles& tw, float* re, float* im) {
    const double* c1 = tw.re + half - 1;
    const double* s1 = tw.im + half - 1;
    const double* c2 = tw.re + 2 * half - 1;
    const double* s2 = tw.im + 2 * half - 1;
    for (int block = 0; block < kLength; block += 4 * half) {
        float* r = re + block;
        float* i = im + block;
        for (int n = 0; n < half; n += 8) {
            __m256 r0 = _mm256_loadu_ps(r + n), i0 = _mm256_loadu_ps(i + n);
            __m256 r1 = _mm256_loadu_ps(r + n + half), i1 = _mm256_loadu_ps(i + n + half);
            __m256 r2 = _mm256_loadu_ps(r + n + 2 * half), i2 = _mm256_loadu_ps(i + n + 2 * half);
            __m256 r3 = _mm256_loadu_ps(r + n + 3 * half), i3 = _mm256_loadu_ps(i + n + 3 * half);
            const __m512d ar1 = _mm512_loadu_pd(c1 + n), ai1 = _mm512_loadu_pd(s1 + n);
            Butterfly8(r0, i0, r1, i1, ar1, ai1);
            Butterfly8(r2, i2, r3, i3, ar1, ai1);
            Butterfly8(r0, i0, r2, i2, _mm512_loadu_pd(c2 + n), _mm512_loadu_pd(s2 + n));
            Butterfly8(r1, i1, r3, i3, _mm512_loadu_pd(c2 + n + half), _mm512_loadu_pd(s2 + n + half));
            _mm256_storeu_ps(r + n, r0);
            _mm256_storeu_ps(i + n, i0);
            _mm256_storeu_ps(r + n + half, r1);
            _mm256_storeu_ps(i + n + half, i1);
            _mm256_storeu_ps(r + n + 2 * half, r2);
            _mm256_storeu_ps(i + n + 2 * half, i2);
            _mm256_storeu_ps(r + n + 3 * half, r3);
            _mm256_storeu_ps(i + n + 3 * half, i3);
        }
    }
}

}  // namespace

bool CpuHasAvx() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx");
}

bool CpuHasAvx512() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f");
}

void TransformAvx(const float* in, float* re, float* im) {
    const Twiddles& tw = GetTwiddles();
    FirstStagesAvx(in, re, im, tw, BitReversal());
    int half = 8;
    for (; 4 * half <= kLength; half *= 4) TwoStagesAvx(half, tw, re, im);
    for (; half < kLength; half *= 2) StageAvx(half, tw.re + half - 1, tw.im + half - 1, re, im);
}

void TransformAvx512(const float* in, float* re, float* im) {
    const Twiddles& tw = GetTwiddles();
    FirstStagesAvx512(in, re, im, tw, BitReversal());
    int half = 8;
    for (; 4 * half <= kLength; half *= 4) TwoStagesAvx512(half, tw, re, im);
    for (; half < kLength; half *= 2) StageAvx512(half, tw.re + half - 1, tw.im + half - 1, re, im);
}

#else  // no wide kernels on this compiler or processor family

bool CpuHasAvx() { return false; }
bool CpuHasAvx512() { return false; }
void TransformAvx(const float*, float*, float*) {}
void TransformAvx512(const float*, float*, float*) {}

#endif

}  // namespace spectrum::detail
