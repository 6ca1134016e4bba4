// What a listener hears wrong in a recorded steady tone: see tone_quality.h.
#include "tone_quality.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace zqtest {
namespace {

constexpr double kSilence = 1e-4;
constexpr double kDropoutSeconds = 0.0005;
constexpr double kPitchWindowSeconds = 0.1;
constexpr double kClickWindowSeconds = 0.01;
constexpr double kPhaseBlockSeconds = 0.001;

// Phase of the tone per 1 ms block, against the nominal frequency, unwrapped: its slope is the
// deviation from the nominal frequency in radians per block.
std::vector<double> BlockPhases(const float* x, size_t n, double rate, double hz) {
    const size_t block = std::max<size_t>(1, static_cast<size_t>(rate * kPhaseBlockSeconds));
    std::vector<double> phases;
    double previous = 0.0;
    for (size_t start = 0; start + block <= n; start += block) {
        double re = 0.0, im = 0.0;
        for (size_t i = start; i < start + block; ++i) {
            const double w = 2.0 * std::numbers::pi * hz * static_cast<double>(i) / rate;
            re += x[i] * std::cos(w);
            im -= x[i] * std::sin(w);
        }
        double phase = std::atan2(im, re);
        if (!phases.empty()) {
            while (phase - previous > std::numbers::pi) phase -= 2.0 * std::numbers::pi;
            while (phase - previous < -std::numbers::pi) phase += 2.0 * std::numbers::pi;
        }
        phases.push_back(phase);
        previous = phase;
    }
    return phases;
}

// Least-squares slope of values against their index.
double Slope(const double* v, size_t n) {
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (size_t i = 0; i < n; ++i) {
        sx += static_cast<double>(i);
        sy += v[i];
        sxx += static_cast<double>(i) * static_cast<double>(i);
        sxy += static_cast<double>(i) * v[i];
    }
    const double d = static_cast<double>(n) * sxx - sx * sx;
    return d == 0.0 ? 0.0 : (static_cast<double>(n) * sxy - sx * sy) / d;
}

// SNR of x[0, n) against the best fit a cos + b sin + c at angular frequency w per sample.
double FittedSnrDb(const float* x, size_t n, double w) {
    // Normal equations of the three-parameter fit.
    double m[3][4] = {};
    for (size_t i = 0; i < n; ++i) {
        const double basis[3] = {std::cos(w * static_cast<double>(i)), std::sin(w * static_cast<double>(i)), 1.0};
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < 3; ++c) m[r][c] += basis[r] * basis[c];
            m[r][3] += basis[r] * x[i];
        }
    }
    for (int p = 0; p < 3; ++p) {  // Gauss-Jordan; the basis is well conditioned over a window
        if (std::fabs(m[p][p]) < 1e-12) return 0.0;
        for (int r = 0; r < 3; ++r) {
            if (r == p) continue;
            const double f = m[r][p] / m[p][p];
            for (int c = p; c < 4; ++c) m[r][c] -= f * m[p][c];
        }
    }
    const double a = m[0][3] / m[0][0], b = m[1][3] / m[1][1], c = m[2][3] / m[2][2];
    double signal = 0.0, noise = 0.0;
    for (size_t i = 0; i < n; ++i) {
        const double fit = a * std::cos(w * static_cast<double>(i)) + b * std::sin(w * static_cast<double>(i)) + c;
        signal += fit * fit;
        noise += (x[i] - fit) * (x[i] - fit);
    }
    if (noise <= 0.0) return 200.0;
    return 10.0 * std::log10(signal / noise);
}

}  // namespace

double PpmToCents(double ppm) { return 1200.0 * std::log2(1.0 + ppm * 1e-6); }

ToneQuality MeasureToneQuality(const std::vector<float>& samples, double rate, double frequencyHz) {
    ToneQuality quality;
    size_t first = 0;
    while (first < samples.size() && std::fabs(samples[first]) < kSilence) ++first;
    if (first == samples.size()) return quality;
    const float* x = samples.data() + first;
    const size_t n = samples.size() - first;

    // Dropouts: a tone crosses zero, but never stays near it for half a millisecond.
    const auto dropoutFrames = static_cast<size_t>(rate * kDropoutSeconds);
    std::vector<size_t> dropoutEnds;
    size_t run = 0;
    for (size_t i = 0; i <= n; ++i) {
        if (i < n && std::fabs(x[i]) < kSilence) {
            ++run;
            continue;
        }
        if (run >= dropoutFrames) {
            ++quality.dropouts;
            quality.longestSilentFrames = std::max(quality.longestSilentFrames, run);
            dropoutEnds.push_back(i);
        }
        run = 0;
    }

    // Pitch per 100 ms window, from the phase slope of its 1 ms blocks.
    const std::vector<double> phases = BlockPhases(x, n, rate, frequencyHz);
    const double blockSeconds = std::max<size_t>(1, static_cast<size_t>(rate * kPhaseBlockSeconds)) / rate;
    const auto perWindow = static_cast<size_t>(std::lround(kPitchWindowSeconds / blockSeconds));
    const double windowFrames = static_cast<double>(perWindow) * blockSeconds * rate;
    for (size_t w = 0; w + perWindow <= phases.size(); w += perWindow) {
        const double offsetHz = Slope(&phases[w], perWindow) / (2.0 * std::numbers::pi * blockSeconds);
        double ppm = offsetHz / frequencyHz * 1e6;
        // A window with a dropout in it has no pitch to speak of: the dropout is counted already.
        const double begin = static_cast<double>(quality.pitchPpm.size()) * windowFrames;
        for (size_t end : dropoutEnds)
            if (static_cast<double>(end) >= begin && static_cast<double>(end) < begin + windowFrames + rate * 0.01) ppm = NAN;
        quality.pitchPpm.push_back(ppm);
        if (std::fabs(ppm) > std::fabs(quality.worstPitchPpm)) quality.worstPitchPpm = ppm;
    }

    // Clicks: each 10 ms window against a sine at its 100 ms window's frequency.
    const auto clickFrames = static_cast<size_t>(rate * kClickWindowSeconds);
    quality.worstSnrDb = 200.0;
    for (size_t start = 0; start + clickFrames <= n; start += clickFrames) {
        const size_t window = std::min(quality.pitchPpm.size() - 1,
                                       static_cast<size_t>(static_cast<double>(start) / rate / kPitchWindowSeconds));
        const double ppm = quality.pitchPpm.empty() || std::isnan(quality.pitchPpm[window]) ? 0.0 : quality.pitchPpm[window];
        const double hz = frequencyHz * (1.0 + ppm * 1e-6);
        quality.worstSnrDb = std::min(quality.worstSnrDb, FittedSnrDb(x + start, clickFrames, 2.0 * std::numbers::pi * hz / rate));
    }
    return quality;
}

}  // namespace zqtest
