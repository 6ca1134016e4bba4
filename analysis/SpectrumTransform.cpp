// The transform's tables: twiddle factors and bit reversal, built once.
#include <cmath>
#include <memory>

#include "analysis/SpectrumMath.h"

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

}  // namespace

const Twiddles& GetTwiddles() {
    static const std::unique_ptr<const TwiddleTable> table = std::make_unique<const TwiddleTable>();
    return *table;
}

const uint16_t* BitReversal() {
    static const BitReversalTable table;
    return table.index;
}

}  // namespace spectrum
