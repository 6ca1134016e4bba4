// What a listener hears wrong in a recorded steady tone, measured as the monitoring path is
// judged: dropouts (runs of silence inside the tone), pitch (the tone's frequency over 100 ms
// windows, from the slope of its phase) and clicks (the worst 10 ms window's SNR against a
// sine fitted to that window alone, at that window's own frequency, so that a slow change of
// pitch costs nothing and a step, a gap or a splice costs a lot).
#pragma once

#include <cstddef>
#include <vector>

namespace zqtest {

struct ToneQuality {
    size_t dropouts = 0;              // silent runs of at least 0.5 ms
    size_t longestSilentFrames = 0;   // the longest of them
    double worstPitchPpm = 0.0;       // largest deviation from the nominal frequency, either sign
    double worstSnrDb = 0.0;          // lowest 10 ms window SNR
    std::vector<double> pitchPpm;     // per 100 ms window, in order; NaN where a dropout ends
};

// One channel of a recording at rate frames per second, expected to hold a tone of nominal
// frequencyHz from its first non-silent frame to its end; frames before that are left out.
ToneQuality MeasureToneQuality(const std::vector<float>& samples, double rate, double frequencyHz);

// Ppm as cents: 1200 log2(1 + ppm / 1e6).
double PpmToCents(double ppm);

}  // namespace zqtest
