// Window tables: each window's 4096 values, computed once with the window's own formula and
// reused for every tick. Recomputing them per tick would give the same bits at many times the
// cost (three cosines or one exponential per sample).
#include <cmath>
#include <memory>

#include "analysis/SpectrumMath.h"

namespace spectrum {
namespace {

constexpr int kHalf = kLength / 2;
constexpr int kWindowCount = kLastWindow - kFirstWindow + 1;

// Products with the sample are single precision; the window value itself is formed as below,
// each in the precision written.

// The angle of the m-th cosine term: n times 2*pi*m first, divided by N - 1 after.
float CosineTerm(int n, double twoPiTimesM) {
    return static_cast<float>(std::cos(static_cast<double>(n) * twoPiTimesM / 4095.0));
}

void FillTriangular(float* w) {
    for (int i = 0; i < kHalf; ++i) {
        const float x = static_cast<float>(i) * 0.00048828125f;  // i / 2048
        w[i] = x;
        w[i + kHalf] = static_cast<float>(1.0 - static_cast<double>(x));
    }
}

void FillCosine(int nFunction, float* w) {
    constexpr double kTwoPi = 6.283185307179586;
    constexpr double kFourPi = 12.566370614359172;
    constexpr double kSixPi = 18.84955592153876;
    for (int n = 0; n < kLength; ++n) {
        const float c1 = CosineTerm(n, kTwoPi);
        switch (nFunction) {
            case 2:  // Hamming
                w[n] = 0.54f - c1 * 0.46f;
                break;
            case 3:  // Hann
                w[n] = 0.5f - c1 * 0.5f;
                break;
            case 4:  // Blackman
                w[n] = (0.42f - c1 * 0.5f) + CosineTerm(n, kFourPi) * 0.08f;
                break;
            default:  // 5: Blackman-Harris, four terms
                w[n] = ((0.35875f - c1 * 0.48829f) + CosineTerm(n, kFourPi) * 0.14128f) -
                       CosineTerm(n, kSixPi) * 0.01168f;
                break;
        }
    }
}

void FillWelch(float* w) {
    for (int n = 0; n < kLength; ++n) {
        const float x = static_cast<float>(n) / 4096.0f;
        const float y = (4.0f * static_cast<float>(n)) / 4096.0f;
        w[n] = (1.0f - x) * y;
    }
}

// exp(K * (n/N - 0.5)^2) with the square expanded as q + 0.25 - x; K = -2 alpha^2.
void FillGaussian(double k, float* w) {
    for (int n = 0; n < kLength; ++n) {
        const float x = static_cast<float>(n) / 4096.0f;
        const float q = x * x;
        const double a = ((static_cast<double>(q) + 0.25) - static_cast<double>(x)) * k;
        w[n] = static_cast<float>(std::exp(a));
    }
}

struct WindowTables {
    float values[kWindowCount][kLength];

    WindowTables() {
        FillTriangular(values[0]);
        for (int f = 2; f <= 5; ++f) FillCosine(f, values[f - kFirstWindow]);
        FillWelch(values[5]);
        FillGaussian(-12.5, values[6]);
        FillGaussian(-24.5, values[7]);
        FillGaussian(-40.5, values[8]);
    }
};

const WindowTables& Tables() {
    // 144 KiB: on the heap, built once by the first caller (thread-safe initialisation).
    static const std::unique_ptr<const WindowTables> tables = std::make_unique<const WindowTables>();
    return *tables;
}

}  // namespace

const float* WindowTable(int nFunction) {
    if (nFunction < kFirstWindow || nFunction > kLastWindow) return nullptr;
    return Tables().values[nFunction - kFirstWindow];
}

}  // namespace spectrum
