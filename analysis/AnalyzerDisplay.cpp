// The display step of the tick (hold view, statistic views), the 5 ms decay and the 1000 ms
// peak reset. Each works on the thread's private copies (vectorisable loops) and then
// publishes what it changed into the shared arrays that the getters read. The hold view's and the
// decay's element-wise loops are the spectrum kernels' (SpectrumArrayKernel.cpp).
//
// The tick's display loops cover the spectrum's bins (0 to 2047) only. Above them nothing can
// change: the power there is never written and stays 0.0, every display value is a power, a
// statistic of powers or a decayed value, never negative, so 0.0 power never raises anything,
// the statistics of zero rows are 0.0, and 0.0 decays to 0.0. Those places stay 0.0 as created.
// The decay and the peak reset, which run apart from the tick, cover all 4096.
#include <algorithm>

#include "analysis/AnalyzerSide.h"
#include "analysis/SpectrumMath.h"

namespace {

constexpr float kStatisticLow = -3.4e38f;  // deliberately not the largest float
constexpr float kStatisticHigh = 3.4e38f;

constexpr uint32_t kHoldView = 0x1;
constexpr uint32_t kHalfRangeView = 0x2;
constexpr uint32_t kMinimumView = 0x4;
constexpr uint32_t kMaximumView = 0x8;

// One element at a time, relaxed: a getter sees each element's old or new value.
void Publish(const float* values, CAudioAnalyzer::SharedArray shared, int count) {
    std::atomic<float>* out = shared.data();
#if defined(__GNUC__)
#pragma GCC unroll 8
#endif
    for (int i = 0; i < count; ++i) out[i].store(values[i], std::memory_order_relaxed);
}

}  // namespace

void CAudioAnalyzer::UpdateDisplay(const Side& side, uint32_t dwView) {
    if ((dwView & kHoldView) != 0) {
        HoldView(side);
    } else {
        StatisticView(side, dwView);
    }
}

void CAudioAnalyzer::HoldView(const Side& side) {
    const float* power = side.power.data();
    spectrum::Hold(power, side.shown.data(), side.shownPeak.data());
    Publish(side.shownPeak.data(), side.ampPeak, spectrum::kBins);
    // The output side shows the newest power; its peaks have followed the held value above.
    if (side.bOutput) std::copy(power, power + spectrum::kBins, side.shown.data());
    Publish(side.shown.data(), side.amp, spectrum::kBins);
}

void CAudioAnalyzer::StatisticView(const Side& side, uint32_t dwView) {
    if (side.statTicks < kStatisticTicks - 1) {
        ++side.statTicks;
        return;
    }
    if ((dwView & (kHalfRangeView | kMinimumView | kMaximumView)) != 0) {
        float* high = m_vecStatMax.data();
        float* low = m_vecStatMin.data();
        for (int i = 0; i < spectrum::kBins; ++i) {
            high[i] = kStatisticLow;
            low[i] = kStatisticHigh;
        }
        for (int r = 0; r < kStatisticRows; ++r) {
            const float* row = HistoryRow(side.history, side.historyNewest, r).data();
            for (int i = 0; i < spectrum::kBins; ++i) {
                const float h = row[i];
                high[i] = h >= high[i] ? h : high[i];
                low[i] = low[i] >= h ? h : low[i];
            }
        }
        float* shown = side.shown.data();
        for (int i = 0; i < spectrum::kBins; ++i) {
            if ((dwView & kHalfRangeView) != 0) {
                shown[i] = (high[i] - low[i]) * 0.5f;
            } else if ((dwView & kMinimumView) != 0) {
                shown[i] = low[i];
            } else {
                shown[i] = high[i];
            }
        }
        Publish(shown, side.amp, spectrum::kBins);
    }
    side.statTicks = 0;
}

void CAudioAnalyzer::DecaySpectrum() {
    // The input side first, then the output side (each bin on its own: the order is not seen).
    static_assert(kSpectrumLength == spectrum::kLength, "the decay covers every bin");
    spectrum::Decay(m_vecShownIn.data());
    spectrum::Decay(m_vecShownOut.data());
    Publish(m_vecShownIn.data(), m_vecSpectrumAmpIn, kSpectrumLength);
    Publish(m_vecShownOut.data(), m_vecSpectrumAmpOut, kSpectrumLength);
}

void CAudioAnalyzer::ResetSpectrumPeaks() {
    std::fill(m_vecShownPeakIn.begin(), m_vecShownPeakIn.end(), 0.0f);
    std::fill(m_vecShownPeakOut.begin(), m_vecShownPeakOut.end(), 0.0f);
    Publish(m_vecShownPeakIn.data(), m_vecSpectrumAmpPeakIn, kSpectrumLength);
    Publish(m_vecShownPeakOut.data(), m_vecSpectrumAmpPeakOut, kSpectrumLength);
}
