// The spectrum's element-wise steps: window product, power, hold view, decay. Written once with
// Highway's portable vectors, compiled for each instruction set it builds for and chosen at run
// time (foreach_target.h re-includes this file once per target).
//
// Each element gets the plain code's operations in its order (no multiply-add), and selects
// stand for its comparisons: a comparison with a NaN is false in both, so NaNs take the same
// branch. The array lengths (2048, 4096) are multiples of every target's vector length.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "SpectrumArrayKernel.cpp"
#include <hwy/foreach_target.h>  // must come before highway.h
#include <hwy/highway.h>

#include "analysis/SpectrumMath.h"

HWY_BEFORE_NAMESPACE();
namespace spectrum {
namespace HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using DF = hn::ScalableTag<float>;
static_assert(kBins % (HWY_MAX_BYTES / sizeof(float)) == 0, "whole vectors only");

// Runs step(d, i) for each vector of [0, count).
template <class Step>
HWY_INLINE void ForEachVector(size_t count, const Step& step) {
    const DF d;
    const size_t lanes = hn::Lanes(d);
    for (size_t i = 0; i < count; i += lanes) step(d, i);
}

struct WindowStep {
    const float* table;
    float* data;
    template <class D>
    HWY_INLINE void operator()(D d, size_t i) const {
        hn::StoreU(hn::Mul(hn::LoadU(d, table + i), hn::LoadU(d, data + i)), d, data + i);
    }
};

struct PowerStep {
    const float* re;
    const float* im;
    float* power;
    template <class D>
    HWY_INLINE void operator()(D d, size_t i) const {
        const auto r = hn::LoadU(d, re + i);
        const auto m = hn::LoadU(d, im + i);
        hn::StoreU(hn::Add(hn::Mul(r, r), hn::Mul(m, m)), d, power + i);
    }
};

// value = power > shown ? power : shown; peak = value > peak ? value : peak.
struct HoldStep {
    const float* power;
    float* shown;
    float* peak;
    template <class D>
    HWY_INLINE void operator()(D d, size_t i) const {
        const auto p = hn::LoadU(d, power + i);
        const auto s = hn::LoadU(d, shown + i);
        const auto k = hn::LoadU(d, peak + i);
        const auto value = hn::IfThenElse(hn::Gt(p, s), p, s);
        hn::StoreU(value, d, shown + i);
        hn::StoreU(hn::IfThenElse(hn::Gt(value, k), value, k), d, peak + i);
    }
};

// The step of the highest decade bound the value reaches, the bounds in rising order; then the
// difference, with a negative result stored as 0.0.
struct DecayStep {
    float* values;
    template <class D>
    HWY_INLINE void operator()(D d, size_t i) const {
        const auto x = hn::LoadU(d, values + i);
        auto step = hn::Set(d, 0.0001f);
        step = hn::IfThenElse(hn::Ge(x, hn::Set(d, 0.01f)), hn::Set(d, 0.001f), step);
        step = hn::IfThenElse(hn::Ge(x, hn::Set(d, 0.1f)), hn::Set(d, 0.01f), step);
        step = hn::IfThenElse(hn::Ge(x, hn::Set(d, 1.0f)), hn::Set(d, 0.1f), step);
        step = hn::IfThenElse(hn::Ge(x, hn::Set(d, 10.0f)), hn::Set(d, 1.0f), step);
        step = hn::IfThenElse(hn::Ge(x, hn::Set(d, 100.0f)), hn::Set(d, 10.0f), step);
        step = hn::IfThenElse(hn::Ge(x, hn::Set(d, 1000.0f)), hn::Set(d, 100.0f), step);
        const auto y = hn::Sub(x, step);
        const auto zero = hn::Zero(d);
        hn::StoreU(hn::IfThenElse(hn::Lt(y, zero), zero, y), d, values + i);
    }
};

}  // namespace

void MultiplyByWindowKernel(const float* table, float* data) { ForEachVector(kLength, WindowStep{table, data}); }

void PowerKernel(const float* re, const float* im, float* power) { ForEachVector(kBins, PowerStep{re, im, power}); }

void HoldKernel(const float* power, float* shown, float* peak) { ForEachVector(kBins, HoldStep{power, shown, peak}); }

void DecayKernel(float* values) { ForEachVector(kLength, DecayStep{values}); }

}  // namespace HWY_NAMESPACE
}  // namespace spectrum
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace spectrum {

HWY_EXPORT(MultiplyByWindowKernel);
HWY_EXPORT(PowerKernel);
HWY_EXPORT(HoldKernel);
HWY_EXPORT(DecayKernel);

void MultiplyByWindow(const float* table, float* data) { HWY_DYNAMIC_DISPATCH(MultiplyByWindowKernel)(table, data); }

void Power(const float* re, const float* im, float* power) { HWY_DYNAMIC_DISPATCH(PowerKernel)(re, im, power); }

void Hold(const float* power, float* shown, float* peak) { HWY_DYNAMIC_DISPATCH(HoldKernel)(power, shown, peak); }

void Decay(float* values) { HWY_DYNAMIC_DISPATCH(DecayKernel)(values); }

}  // namespace spectrum
#endif  // HWY_ONCE
