// The 4096-point transform: one kernel, compiled by Highway for each instruction set it builds
// for (foreach_target.h re-includes this file once per target) and chosen at run time.
//
// Arithmetic. Each butterfly does exactly the plain transform's operations, lane by lane
// (SpectrumButterfly-inl.h). Lanes hold independent butterflies of a stage.
//
// Where the table's twiddle is exactly (1.0, +0.0) (the first stage, and n = 0 of the second,
// as the recurrence gives them here; checked at run time), the butterfly's double arithmetic is
// exact in single precision: tr = re[k] - 0*im[k] and ti = im[k] + 0*re[k] (the zero products
// keep the signs of zero and NaN), and float(double(a) - double(b)) is a - b for floats a and b
// (double has more than 2*24 + 2 bits, so rounding twice gives the once-rounded result). Those
// butterflies run as single-precision additions and multiplications, no conversions.
//
// Memory order. Place p = 8q + r (r < 8) of the bit-reversed order is kept at address
// 8 * rev9(q) + r of a scratch array: groups of eight places, the groups in bit-reversed order.
// Then:
// - the first three stages stay inside a group. The group at address 8i holds
//   in[i + 512 * rev3(r)] for r = 0 .. 7, so consecutive i give contiguous loads; those three
//   stages run in registers, one group per lane, and an interleaving store writes each lane's
//   group to its eight addresses (no separate bit-reversal pass);
// - every later stage s (half size H = 2^s, 8 .. 2048) pairs whole groups, 2^(11 - s) groups
//   apart, and the twiddle of place r of a group is entry 8m + r of the stage's table, m the
//   group's position in its block: vectors of up to eight lanes along r load their twiddles
//   contiguously;
// - the last stage writes each group to its natural place 8 * rev9(address / 8) in the output.
// Stages 3 to 10 share a pass in pairs (four groups loaded once, four butterflies).
//
// Highway's vectors are sizeless on some targets (no arrays of them): hence the named variables.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "SpectrumTransformKernel.cpp"
#include <hwy/foreach_target.h>  // must come before highway.h
#include <hwy/highway.h>

#include <cmath>

#include "analysis/SpectrumButterfly-inl.h"
#include "analysis/SpectrumMath.h"

HWY_BEFORE_NAMESPACE();
namespace spectrum {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using butterfly::Butterfly;
using butterfly::DD;
using butterfly::DF;
using butterfly::VD;
using butterfly::VF;

constexpr int kGroupSize = 8;
constexpr int kGroups = kLength / kGroupSize;  // 512
constexpr int kGroupBits = 9;

// The butterfly with the twiddle (1.0, +0.0), in single precision (see the top of the file).
HWY_INLINE void IdentityButterfly(VF& rj, VF& ij, VF& rk, VF& ik) {
    const DF df;
    const VF zero = hn::Zero(df);
    const VF tr = hn::Sub(rk, hn::Mul(zero, ik));
    const VF ti = hn::Add(ik, hn::Mul(zero, rk));
    rk = hn::Sub(rj, tr);
    ik = hn::Sub(ij, ti);
    rj = hn::Add(tr, rj);
    ij = hn::Add(ti, ij);
}

// A butterfly of the first three stages: twiddle t of the table, the same in every lane.
HWY_INLINE void GroupButterfly(VF& rj, VF& ij, VF& rk, VF& ik, const Twiddles& tw, int t, bool identity) {
    if (identity) {
        IdentityButterfly(rj, ij, rk, ik);
    } else {
        const DD dd;
        Butterfly(rj, ij, rk, ik, hn::Set(dd, tw.re[t]), hn::Set(dd, tw.im[t]));
    }
}

bool IsIdentity(const Twiddles& tw, int t) { return tw.re[t] == 1.0 && tw.im[t] == 0.0 && !std::signbit(tw.im[t]); }

// Two float vectors as one vector of 64-bit lanes: a's lane in the low half, b's in the high
// half, so that storing it writes a's lane, then b's (little-endian targets only).
HWY_INLINE hn::Vec<hn::Rebind<uint64_t, DF>> Pair(VF a, VF b) {
    const hn::RebindToUnsigned<DF> du;
    const hn::Rebind<uint64_t, DF> dw;
    return hn::Or(hn::PromoteTo(dw, hn::BitCast(du, a)), hn::ShiftLeft<32>(hn::PromoteTo(dw, hn::BitCast(du, b))));
}

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "Pair puts the first float in the low half: little-endian targets only"
#endif

// Lane l of v0 .. v7 to out[8l .. 8l + 7].
HWY_INLINE void StoreGroups(VF v0, VF v1, VF v2, VF v3, VF v4, VF v5, VF v6, VF v7, float* out) {
#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
    // Emulated vectors are arrays already: element by element.
    const DF df;
    constexpr size_t kLanes = hn::MaxLanes(DF());
    HWY_ALIGN float lanes[kGroupSize][kLanes];
    hn::Store(v0, df, lanes[0]);
    hn::Store(v1, df, lanes[1]);
    hn::Store(v2, df, lanes[2]);
    hn::Store(v3, df, lanes[3]);
    hn::Store(v4, df, lanes[4]);
    hn::Store(v5, df, lanes[5]);
    hn::Store(v6, df, lanes[6]);
    hn::Store(v7, df, lanes[7]);
    for (size_t lane = 0; lane < kLanes; ++lane) {
        for (int r = 0; r < kGroupSize; ++r) out[kGroupSize * lane + r] = lanes[r][lane];
    }
#elif HWY_TARGET == HWY_SSSE3 || HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_NEON
    // Two lanes, groups A and B, in vectors of four floats: pairs of places interleaved
    // (A0 A1 B0 B1), then joined by halves.
    const hn::Twice<DF> dq;
    const auto p01 = hn::InterleaveLower(dq, hn::ZeroExtendVector(dq, v0), hn::ZeroExtendVector(dq, v1));
    const auto p23 = hn::InterleaveLower(dq, hn::ZeroExtendVector(dq, v2), hn::ZeroExtendVector(dq, v3));
    const auto p45 = hn::InterleaveLower(dq, hn::ZeroExtendVector(dq, v4), hn::ZeroExtendVector(dq, v5));
    const auto p67 = hn::InterleaveLower(dq, hn::ZeroExtendVector(dq, v6), hn::ZeroExtendVector(dq, v7));
    hn::StoreU(hn::ConcatLowerLower(dq, p23, p01), dq, out);
    hn::StoreU(hn::ConcatLowerLower(dq, p67, p45), dq, out + 4);
    hn::StoreU(hn::ConcatUpperUpper(dq, p23, p01), dq, out + kGroupSize);
    hn::StoreU(hn::ConcatUpperUpper(dq, p67, p45), dq, out + kGroupSize + 4);
#else
    const hn::Rebind<uint64_t, DF> dw;
    hn::StoreInterleaved4(Pair(v0, v1), Pair(v2, v3), Pair(v4, v5), Pair(v6, v7), dw,
                          reinterpret_cast<uint64_t*>(out));
#endif
}

// Stages H = 1, 2, 4 from the input into the scratch's group order. kIdentity: twiddles 0 and 1
// are (1.0, +0.0).
template <bool kIdentity>
void FirstStages(const float* HWY_RESTRICT in, float* HWY_RESTRICT re, float* HWY_RESTRICT im, const Twiddles& tw) {
    const DF df;
    const size_t lanes = hn::Lanes(df);
    for (size_t i = 0; i < kGroups; i += lanes) {
        // Place r of the group: in[i + 512 * rev3(r)].
        VF r0 = hn::LoadU(df, in + i), r1 = hn::LoadU(df, in + i + 2048);
        VF r2 = hn::LoadU(df, in + i + 1024), r3 = hn::LoadU(df, in + i + 3072);
        VF r4 = hn::LoadU(df, in + i + 512), r5 = hn::LoadU(df, in + i + 2560);
        VF r6 = hn::LoadU(df, in + i + 1536), r7 = hn::LoadU(df, in + i + 3584);
        VF i0 = hn::Zero(df), i1 = i0, i2 = i0, i3 = i0, i4 = i0, i5 = i0, i6 = i0, i7 = i0;
        // H = 1: twiddle 0.
        GroupButterfly(r0, i0, r1, i1, tw, 0, kIdentity);
        GroupButterfly(r2, i2, r3, i3, tw, 0, kIdentity);
        GroupButterfly(r4, i4, r5, i5, tw, 0, kIdentity);
        GroupButterfly(r6, i6, r7, i7, tw, 0, kIdentity);
        // H = 2: twiddles 1 (n = 0) and 2 (n = 1).
        GroupButterfly(r0, i0, r2, i2, tw, 1, kIdentity);
        GroupButterfly(r1, i1, r3, i3, tw, 2, false);
        GroupButterfly(r4, i4, r6, i6, tw, 1, kIdentity);
        GroupButterfly(r5, i5, r7, i7, tw, 2, false);
        // H = 4: twiddles 3 .. 6.
        GroupButterfly(r0, i0, r4, i4, tw, 3, false);
        GroupButterfly(r1, i1, r5, i5, tw, 4, false);
        GroupButterfly(r2, i2, r6, i6, tw, 5, false);
        GroupButterfly(r3, i3, r7, i7, tw, 6, false);
        StoreGroups(r0, r1, r2, r3, r4, r5, r6, r7, re + kGroupSize * i);
        StoreGroups(i0, i1, i2, i3, i4, i5, i6, i7, im + kGroupSize * i);
    }
}

// rev9(g) for g < 512: rev12(8g).
HWY_INLINE int Rev9(const uint16_t* rev12, int g) { return rev12[kGroupSize * g]; }

// Stages s and s + 1 in one pass, in place. Stage s pairs groups D1 = 2^(11 - s) apart, stage
// s + 1 groups D2 = D1 / 2 apart: the four groups g, g + D2, g + D1, g + D1 + D2 take part in
// two butterflies of each. Stage s + 1's twiddles are those of the same m in its first block
// and of m + 2^(s - 3) (entry + H) in its second.
void TwoStages(int s, const Twiddles& tw, const uint16_t* rev12, float* re, float* im) {
    const DD dd;
    const DF df;
    const size_t lanes = hn::Lanes(df);
    const int half = 1 << s;
    const int d1 = kGroups >> (s - 2);
    const int d2 = d1 / 2;
    for (int block = 0; block < (1 << (s - 3)); ++block) {
        const int m = Rev9(rev12, block) >> (kGroupBits - (s - 3));
        const double* c1 = tw.re + half - 1 + kGroupSize * m;
        const double* s1 = tw.im + half - 1 + kGroupSize * m;
        const double* c2 = tw.re + 2 * half - 1 + kGroupSize * m;
        const double* s2 = tw.im + 2 * half - 1 + kGroupSize * m;
        // Place r of every group of the block, then the next places: the six twiddle vectors
        // stay in registers for the whole block.
        for (size_t r = 0; r < kGroupSize; r += lanes) {
            const VD ar1 = hn::LoadU(dd, c1 + r), ai1 = hn::LoadU(dd, s1 + r);
            const VD ar2 = hn::LoadU(dd, c2 + r), ai2 = hn::LoadU(dd, s2 + r);
            const VD ar3 = hn::LoadU(dd, c2 + half + r), ai3 = hn::LoadU(dd, s2 + half + r);
            float* r0p = re + kGroupSize * (2 * d1 * block) + r;
            float* i0p = im + kGroupSize * (2 * d1 * block) + r;
            for (int g = 0; g < d2; ++g, r0p += kGroupSize, i0p += kGroupSize) {
                float* r1p = r0p + kGroupSize * d2;
                float* i1p = i0p + kGroupSize * d2;
                float* r2p = r0p + kGroupSize * d1;
                float* i2p = i0p + kGroupSize * d1;
                float* r3p = r2p + kGroupSize * d2;
                float* i3p = i2p + kGroupSize * d2;
                VF r0 = hn::LoadU(df, r0p), i0 = hn::LoadU(df, i0p);
                VF r1 = hn::LoadU(df, r1p), i1 = hn::LoadU(df, i1p);
                VF r2 = hn::LoadU(df, r2p), i2 = hn::LoadU(df, i2p);
                VF r3 = hn::LoadU(df, r3p), i3 = hn::LoadU(df, i3p);
                Butterfly(r0, i0, r2, i2, ar1, ai1);
                Butterfly(r1, i1, r3, i3, ar1, ai1);
                Butterfly(r0, i0, r1, i1, ar2, ai2);
                Butterfly(r2, i2, r3, i3, ar3, ai3);
                hn::StoreU(r0, df, r0p);
                hn::StoreU(i0, df, i0p);
                hn::StoreU(r1, df, r1p);
                hn::StoreU(i1, df, i1p);
                hn::StoreU(r2, df, r2p);
                hn::StoreU(i2, df, i2p);
                hn::StoreU(r3, df, r3p);
                hn::StoreU(i3, df, i3p);
            }
        }
    }
}

// The last stage (H = 2048): groups 2c and 2c + 1 (m = rev8(c)), each written to its natural
// place in the output, rev9(2c) and rev9(2c) + 256 groups.
void LastStage(const Twiddles& tw, const uint16_t* rev12, const float* re, const float* im, float* outRe,
               float* outIm) {
    const DD dd;
    const DF df;
    const size_t lanes = hn::Lanes(df);
    constexpr int kHalf = kLength / 2;
    for (int block = 0; block < kGroups / 2; ++block) {
        const int m = Rev9(rev12, block) >> 1;
        const double* cosines = tw.re + kHalf - 1 + kGroupSize * m;
        const double* sines = tw.im + kHalf - 1 + kGroupSize * m;
        const int g = 2 * block;
        const int place = kGroupSize * Rev9(rev12, g);
        const int partner = place + kHalf;
        for (size_t r = 0; r < kGroupSize; r += lanes) {
            VF vrj = hn::LoadU(df, re + kGroupSize * g + r), vij = hn::LoadU(df, im + kGroupSize * g + r);
            VF vrk = hn::LoadU(df, re + kGroupSize * (g + 1) + r), vik = hn::LoadU(df, im + kGroupSize * (g + 1) + r);
            Butterfly(vrj, vij, vrk, vik, hn::LoadU(dd, cosines + r), hn::LoadU(dd, sines + r));
            hn::StoreU(vrj, df, outRe + place + r);
            hn::StoreU(vij, df, outIm + place + r);
            hn::StoreU(vrk, df, outRe + partner + r);
            hn::StoreU(vik, df, outIm + partner + r);
        }
    }
}

}  // namespace

void TransformKernel(const float* HWY_RESTRICT in, float* HWY_RESTRICT re, float* HWY_RESTRICT im) {
    // The group-ordered scratch: 32 KiB on the analyzer thread's stack.
    HWY_ALIGN float scratchRe[kLength];
    HWY_ALIGN float scratchIm[kLength];
    const Twiddles& tw = GetTwiddles();
    const uint16_t* rev12 = BitReversal();
    if (IsIdentity(tw, 0) && IsIdentity(tw, 1)) {
        FirstStages<true>(in, scratchRe, scratchIm, tw);
    } else {
        FirstStages<false>(in, scratchRe, scratchIm, tw);
    }
    static_assert(kStages == 12, "stages 3 .. 10 in pairs, then the last");
    for (int s = 3; s < kStages - 1; s += 2) TwoStages(s, tw, rev12, scratchRe, scratchIm);
    LastStage(tw, rev12, scratchRe, scratchIm, re, im);
}

int64_t CurrentTarget() { return HWY_TARGET; }

}  // namespace HWY_NAMESPACE
}  // namespace spectrum
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace spectrum {

HWY_EXPORT(TransformKernel);
HWY_EXPORT(CurrentTarget);

void Transform(const float* in, float* re, float* im) { HWY_DYNAMIC_DISPATCH(TransformKernel)(in, re, im); }

std::vector<int64_t> KernelTargets() { return hwy::SupportedAndGeneratedTargets(); }

int64_t ActiveKernelTarget() { return HWY_DYNAMIC_DISPATCH(CurrentTarget)(); }

const char* KernelTargetName(int64_t target) { return hwy::TargetName(target); }

ScopedKernelTarget::ScopedKernelTarget(int64_t target) { hwy::SetSupportedTargetsForTest(target); }

ScopedKernelTarget::~ScopedKernelTarget() { hwy::SetSupportedTargetsForTest(0); }

}  // namespace spectrum
#endif  // HWY_ONCE
