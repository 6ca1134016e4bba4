// The transform's tables, its portable path, the choice of path, and the power.
#include <cmath>
#include <memory>

#include "SpectrumMath.h"

namespace spectrum {
namespace {

struct TwiddleTable : Twiddles {
    TwiddleTable() {
        // The angle goes through a volatile so that the compiler cannot evaluate sin and cos
        // at build time (correctly rounded) where the running code calls the platform's
        // functions: both must give the platform's values.
        volatile double twoPi = 6.283185307179586;
        for (int half = 1; half < kLength; half *= 2) {
            const double delta = twoPi / static_cast<double>(2 * half);
            const double sm2 = std::sin(-2.0 * delta);
            const double sm1 = std::sin(-delta);
            const double cm2 = std::cos(-2.0 * delta);
            const double cm1 = std::cos(-delta);
            const double w = 2.0 * cm1;
            // The recurrence from the values of n = -2 and n = -1, exactly as every block of
            // the stage restarts it.
            double ar2 = cm2, ar1 = cm1, ai2 = sm2, ai1 = sm1;
            for (int n = 0; n < half; ++n) {
                const double ar0 = w * ar1 - ar2;
                ar2 = ar1;
                ar1 = ar0;
                const double ai0 = w * ai1 - ai2;
                ai2 = ai1;
                ai1 = ai0;
                re[half - 1 + n] = ar0;
                im[half - 1 + n] = ai0;
            }
        }
    }
};

struct BitReversalTable {
    uint16_t index[kLength];

    BitReversalTable() {
        for (int i = 0; i < kLength; ++i) {
            int reversed = 0;
            for (int bit = 0; bit < kStages; ++bit) reversed |= ((i >> bit) & 1) << (kStages - 1 - bit);
            index[i] = static_cast<uint16_t>(reversed);
        }
    }
};

// One radix-2 stage, one butterfly at a time.
void PortableStage(int half, const double* cosines, const double* sines, float* re, float* im) {
    for (int block = 0; block < kLength; block += 2 * half) {
        for (int n = 0; n < half; ++n) {
            const int j = block + n;
            const int k = j + half;
            const double ar = cosines[n];
            const double ai = sines[n];
            const double tr = ar * re[k] - ai * im[k];
            const double ti = ar * im[k] + ai * re[k];
            re[k] = static_cast<float>(static_cast<double>(re[j]) - tr);
            im[k] = static_cast<float>(static_cast<double>(im[j]) - ti);
            re[j] = static_cast<float>(tr) + re[j];
            im[j] = static_cast<float>(ti) + im[j];
        }
    }
}

void TransformPortable(const float* in, float* re, float* im) {
    const uint16_t* reversed = BitReversal();
    for (int i = 0; i < kLength; ++i) {
        re[reversed[i]] = in[i];
        im[reversed[i]] = 0.0f;
    }
    const Twiddles& twiddles = GetTwiddles();
    for (int half = 1; half < kLength; half *= 2) {
        PortableStage(half, twiddles.re + half - 1, twiddles.im + half - 1, re, im);
    }
}

TransformPath PickPath() {
    if (IsPathAvailable(TransformPath::Avx512)) return TransformPath::Avx512;
    if (IsPathAvailable(TransformPath::Avx)) return TransformPath::Avx;
    return TransformPath::Portable;
}

}  // namespace

const Twiddles& GetTwiddles() {
    static const std::unique_ptr<const TwiddleTable> table = std::make_unique<const TwiddleTable>();
    return *table;
}

const uint16_t* BitReversal() {
    static const BitReversalTable table;
    return table.index;
}

bool IsPathAvailable(TransformPath path) {
    switch (path) {
        case TransformPath::Portable: return true;
        case TransformPath::Avx: return detail::CpuHasAvx();
        case TransformPath::Avx512: return detail::CpuHasAvx512();
    }
    return false;
}

TransformPath SelectedPath() {
    static const TransformPath path = PickPath();
    return path;
}

const char* PathName(TransformPath path) {
    switch (path) {
        case TransformPath::Portable: return "portable";
        case TransformPath::Avx: return "avx";
        case TransformPath::Avx512: return "avx512";
    }
    return "?";
}

void TransformWith(TransformPath path, const float* in, float* re, float* im) {
    switch (path) {
        case TransformPath::Avx512:
            if (detail::CpuHasAvx512()) return detail::TransformAvx512(in, re, im);
            break;
        case TransformPath::Avx:
            if (detail::CpuHasAvx()) return detail::TransformAvx(in, re, im);
            break;
        case TransformPath::Portable:
            break;
    }
    TransformPortable(in, re, im);
}

void Transform(const float* in, float* re, float* im) { TransformWith(SelectedPath(), in, re, im); }

ZQ_WIDE_CLONES void Power(const float* __restrict re, const float* __restrict im, float* __restrict power) {
    for (int k = 0; k < kBins; ++k) power[k] = re[k] * re[k] + im[k] * im[k];
}

}  // namespace spectrum
