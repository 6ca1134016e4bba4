// What the host reads from the analyzer and the meters, and how it scales it for display:
// spectrum bins to frequencies and decibels, meter peaks to dBFS.
#pragma once

#include <functional>

#include "zqCoreAudio.h"

namespace zqhost {

// The analyzer's transform: 4096 points of the 48 kHz engine stream; bins 0 to 2047 carry the
// spectrum, bin k standing for k * 48000 / 4096 Hz.
constexpr int kSpectrumBins = 4096;
constexpr int kSpectrumUsefulBins = 2048;
constexpr double kEngineRate = 48000.0;
double BinHz(int bin);

// A bin's power (samples squared, unscaled) in dB relative to a full-scale sine seen without a
// window: (4096 / 2)^2 is 0 dB.
double PowerDb(float power);
// A linear meter peak (0..1) in dBFS, -100 for silence.
double PeakDbfs(float linear);

struct StrongestBin {
    int bin = -1;  // -1: every bin at the getters' floor, no signal
    double hz = 0.0;
    double db = -200.0;
};
// The strongest of bins 1 to 2047 (the DC bin is left out): getter is one of the core's
// spectrum getters, which return 1e-12 for a bin of exactly 0.
StrongestBin FindStrongest(const std::function<float(int)>& getter);

// Bars on a log-frequency axis from 20 Hz to 20 kHz: the power of bar i of n is the largest
// of the bins it covers (the nearest bin when it covers none).
void LogBands(const std::function<float(int)>& getter, int n, std::function<void(int, float)> bar);

// The meters at one moment, and the largest seen.
struct Levels {
    float capturePercent = 0.0f;
    float renderPercent = 0.0f;
    float captureLinear = 0.0f;  // GetPeakCaptureDBFS: the linear peak, 0 while stopped
    float renderLinear = 0.0f;
};
Levels ReadLevels(CZQCoreAudio& core);
void KeepLargest(Levels& largest, const Levels& now);

}  // namespace zqhost
