// The spectrum's arithmetic written out plainly, step by step as the analyzer's documentation
// gives it: the window values computed afresh for every sample, the twiddle recurrence run for
// every block, the bit reversal as its own pass, the display's comparisons as branches. The
// kernels must match it bit for bit on every instruction set.
#pragma once

#include <cmath>

namespace reference {

inline void ApplyWindow(int nFunction, float* pData) {
    const double twoPi = 6.283185307179586, fourPi = 12.566370614359172, sixPi = 18.84955592153876;
    switch (nFunction) {
        case 1:
            for (int i = 0; i < 2048; ++i) {
                const float x = static_cast<float>(i) * 0.00048828125f;
                pData[i] = pData[i] * x;
                pData[i + 2048] = pData[i + 2048] * static_cast<float>(1.0 - static_cast<double>(x));
            }
            break;
        case 2:
        case 3:
        case 4:
        case 5:
            for (int n = 0; n < 4096; ++n) {
                const float c1 = static_cast<float>(std::cos(static_cast<double>(n) * twoPi / 4095.0));
                const float c2 = static_cast<float>(std::cos(static_cast<double>(n) * fourPi / 4095.0));
                const float c3 = static_cast<float>(std::cos(static_cast<double>(n) * sixPi / 4095.0));
                float w = 0.0f;
                if (nFunction == 2) w = 0.54f - c1 * 0.46f;
                if (nFunction == 3) w = 0.5f - c1 * 0.5f;
                if (nFunction == 4) w = (0.42f - c1 * 0.5f) + c2 * 0.08f;
                if (nFunction == 5) w = ((0.35875f - c1 * 0.48829f) + c2 * 0.14128f) - c3 * 0.01168f;
                pData[n] = w * pData[n];
            }
            break;
        case 6:
            for (int n = 0; n < 4096; ++n) {
                const float x = static_cast<float>(n) / 4096.0f;
                const float y = (4.0f * static_cast<float>(n)) / 4096.0f;
                pData[n] = ((1.0f - x) * y) * pData[n];
            }
            break;
        case 7:
        case 8:
        case 9: {
            const double k = nFunction == 7 ? -12.5 : nFunction == 8 ? -24.5 : -40.5;
            for (int n = 0; n < 4096; ++n) {
                const float x = static_cast<float>(n) / 4096.0f;
                const float q = x * x;
                const double a = ((static_cast<double>(q) + 0.25) - static_cast<double>(x)) * k;
                pData[n] = static_cast<float>(std::exp(a)) * pData[n];
            }
            break;
        }
        default:
            break;
    }
}

inline void ComputeFFT(const float* pIn, float* pRe, float* pIm) {
    for (int i = 0; i < 4096; ++i) {
        int j = 0;
        for (int bit = 0; bit < 12; ++bit) j |= ((i >> bit) & 1) << (11 - bit);
        pRe[j] = pIn[i];
        pIm[j] = 0.0f;
    }
    // Through a volatile, so that sin and cos are the platform's, as in the library, and never
    // folded at build time.
    volatile double twoPi = 6.283185307179586;
    for (int B = 2; B <= 4096; B *= 2) {
        const int H = B / 2;
        const double delta = twoPi / B;
        const double sm2 = std::sin(-2 * delta), sm1 = std::sin(-delta);
        const double cm2 = std::cos(-2 * delta), cm1 = std::cos(-delta);
        const double w = 2 * cm1;
        for (int b = 0; b < 4096; b += B) {
            double ar2 = cm2, ar1 = cm1, ai2 = sm2, ai1 = sm1;
            for (int n = 0; n < H; ++n) {
                const int j = b + n, k = j + H;
                const double ar0 = w * ar1 - ar2;
                ar2 = ar1;
                ar1 = ar0;
                const double ai0 = w * ai1 - ai2;
                ai2 = ai1;
                ai1 = ai0;
                const double tr = ar0 * pRe[k] - ai0 * pIm[k];
                const double ti = ar0 * pIm[k] + ai0 * pRe[k];
                pRe[k] = static_cast<float>(static_cast<double>(pRe[j]) - tr);
                pIm[k] = static_cast<float>(static_cast<double>(pIm[j]) - ti);
                pRe[j] = static_cast<float>(tr) + pRe[j];
                pIm[j] = static_cast<float>(ti) + pIm[j];
            }
        }
    }
}

inline void ComputePower(const float* pRe, const float* pIm, float* pPower) {
    for (int k = 0; k < 2048; ++k) pPower[k] = pRe[k] * pRe[k] + pIm[k] * pIm[k];
}

// The hold view's loop over the spectrum's bins: both comparisons strict.
inline void Hold(const float* pPower, float* pShown, float* pPeak) {
    for (int i = 0; i < 2048; ++i) {
        if (pPower[i] > pShown[i]) pShown[i] = pPower[i];
        if (pShown[i] > pPeak[i]) pPeak[i] = pShown[i];
    }
}

// The 5 ms decay of 4096 displayed values, by the table of decades.
inline void Decay(float* pValues) {
    for (int i = 0; i < 4096; ++i) {
        const float x = pValues[i];
        float y;
        if (x >= 1000.0f) {
            y = x - 100.0f;
        } else if (x >= 100.0f) {
            y = x - 10.0f;
        } else if (x >= 10.0f) {
            y = x - 1.0f;
        } else if (x >= 1.0f) {
            y = x - 0.1f;
        } else if (x >= 0.1f) {
            y = x - 0.01f;
        } else if (x >= 0.01f) {
            y = x - 0.001f;
        } else {
            y = x - 0.0001f;
        }
        pValues[i] = y < 0.0f ? 0.0f : y;
    }
}

}  // namespace reference
