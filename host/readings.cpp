#include "readings.h"

#include <algorithm>
#include <cmath>

namespace zqhost {
namespace {
constexpr double kFullScalePower = (kSpectrumBins / 2.0) * (kSpectrumBins / 2.0);
constexpr double kLowHz = 20.0;
constexpr double kHighHz = 20000.0;
constexpr float kGetterFloor = 1.0e-12f;
}  // namespace

double BinHz(int bin) { return bin * kEngineRate / kSpectrumBins; }

double PowerDb(float power) { return 10.0 * std::log10(std::max<double>(power, 1e-30) / kFullScalePower); }

double PeakDbfs(float linear) { return linear > 1e-5f ? 20.0 * std::log10(static_cast<double>(linear)) : -100.0; }

StrongestBin FindStrongest(const std::function<float(int)>& getter) {
    StrongestBin best;
    float bestPower = kGetterFloor;
    for (int k = 1; k < kSpectrumUsefulBins; ++k) {
        const float p = getter(k);
        if (p > bestPower) {
            bestPower = p;
            best.bin = k;
        }
    }
    if (best.bin < 0) return best;
    best.hz = BinHz(best.bin);
    best.db = PowerDb(bestPower);
    return best;
}

void LogBands(const std::function<float(int)>& getter, int n, std::function<void(int, float)> bar) {
    const double binHz = kEngineRate / kSpectrumBins;
    for (int i = 0; i < n; ++i) {
        const double lo = kLowHz * std::pow(kHighHz / kLowHz, static_cast<double>(i) / n);
        const double hi = kLowHz * std::pow(kHighHz / kLowHz, static_cast<double>(i + 1) / n);
        int first = static_cast<int>(std::ceil(lo / binHz));
        int last = static_cast<int>(std::ceil(hi / binHz)) - 1;
        if (last < first) first = last = static_cast<int>(std::lround((lo + hi) / 2.0 / binHz));
        first = std::clamp(first, 1, kSpectrumUsefulBins - 1);
        last = std::clamp(last, first, kSpectrumUsefulBins - 1);
        float power = 0.0f;
        for (int k = first; k <= last; ++k) power = std::max(power, getter(k));
        bar(i, power);
    }
}

Levels ReadLevels(CZQCoreAudio& core) {
    Levels now;
    now.capturePercent = core.GetPeakCapture();
    now.renderPercent = core.GetPeakRender();
    now.captureLinear = core.GetPeakCaptureDBFS();
    now.renderLinear = core.GetPeakRenderDBFS();
    return now;
}

void KeepLargest(Levels& largest, const Levels& now) {
    largest.capturePercent = std::max(largest.capturePercent, now.capturePercent);
    largest.renderPercent = std::max(largest.renderPercent, now.renderPercent);
    largest.captureLinear = std::max(largest.captureLinear, now.captureLinear);
    largest.renderLinear = std::max(largest.renderLinear, now.renderLinear);
}

}  // namespace zqhost
