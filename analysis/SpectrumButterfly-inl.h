// The transform's butterfly in Highway's portable vectors, per target (included once per target
// after foreach_target.h, as Highway's -inl headers are): the spectrum kernel and the benchmark
// that measures the butterfly's own cost share it.
//
// Each lane does exactly the plain transform's operations: the float inputs widened to double,
// tr = ar*re[k] - ai*im[k] and ti = ar*im[k] + ai*re[k] in double, re[k] = float(re[j] - tr),
// im[k] = float(im[j] - ti), re[j] = float(tr) + re[j] and im[j] = float(ti) + im[j] in single
// precision. IEEE arithmetic per lane and no contraction keep the bits identical on every target.

// Per-target include guard: toggled by foreach_target.h for each target it compiles.
#if defined(ZQ_ANALYSIS_SPECTRUM_BUTTERFLY_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef ZQ_ANALYSIS_SPECTRUM_BUTTERFLY_INL_H_
#undef ZQ_ANALYSIS_SPECTRUM_BUTTERFLY_INL_H_
#else
#define ZQ_ANALYSIS_SPECTRUM_BUTTERFLY_INL_H_
#endif

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace spectrum {
namespace HWY_NAMESPACE {
namespace butterfly {

namespace hn = hwy::HWY_NAMESPACE;

// At most eight doubles per vector, so that a vector never spans two groups of eight places.
using DD = hn::CappedTag<double, 8>;
using DF = hn::Rebind<float, DD>;  // as many floats as doubles
using VD = hn::Vec<DD>;
using VF = hn::Vec<DF>;

// Double to float, rounded to nearest, beyond the largest float to infinity: what the
// processors' conversions do, and what the emulated targets' DemoteTo does not (it clamps to
// the largest float), so there the conversion is the language's.
HWY_INLINE VF Narrow(VD v) {
    const DF df;
#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
    const DD dd;
    HWY_ALIGN double wide[hn::MaxLanes(dd)];
    HWY_ALIGN float narrow[hn::MaxLanes(dd)];
    hn::Store(v, dd, wide);
    for (size_t i = 0; i < hn::MaxLanes(dd); ++i) narrow[i] = static_cast<float>(wide[i]);
    return hn::Load(df, narrow);
#else
    return hn::DemoteTo(df, v);
#endif
}

HWY_INLINE void Butterfly(VF& rj, VF& ij, VF& rk, VF& ik, VD ar, VD ai) {
    const DD dd;
    const VD rkd = hn::PromoteTo(dd, rk);
    const VD ikd = hn::PromoteTo(dd, ik);
    const VD tr = hn::Sub(hn::Mul(ar, rkd), hn::Mul(ai, ikd));
    const VD ti = hn::Add(hn::Mul(ar, ikd), hn::Mul(ai, rkd));
    rk = Narrow(hn::Sub(hn::PromoteTo(dd, rj), tr));
    ik = Narrow(hn::Sub(hn::PromoteTo(dd, ij), ti));
    rj = hn::Add(Narrow(tr), rj);
    ij = hn::Add(Narrow(ti), ij);
}

}  // namespace butterfly
}  // namespace HWY_NAMESPACE
}  // namespace spectrum
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard
