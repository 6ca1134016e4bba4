#include "wav_analysis.h"

#include <algorithm>
#include <cmath>

#include "tone_pitch.h"

namespace zqhosttest {

bool WriteToneWav(const std::string& path, int rate, double hz, double amplitude, double seconds) {
    std::vector<float> samples(static_cast<size_t>(seconds * rate));
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<float>(amplitude * std::sin(2.0 * M_PI * hz * static_cast<double>(i) / rate));
    }
    return zqtest::WriteWavFloat(path, rate, samples);
}

double ToneHz(const std::vector<float>& samples, int rate, size_t begin, size_t end) {
    return zqtest::TonePitchHz(samples.data(), 1, begin, std::min(end, samples.size()), rate);
}

float PeakOf(const std::vector<float>& samples, size_t begin, size_t end) {
    float peak = 0.0f;
    for (size_t i = begin; i < std::min(end, samples.size()); ++i) peak = std::max(peak, std::fabs(samples[i]));
    return peak;
}

}  // namespace zqhosttest
