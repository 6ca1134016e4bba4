#include "wav_analysis.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>

#include "tone_pitch.h"

namespace zqhosttest {

bool WriteToneWav(const std::string& path, int rate, double hz, double amplitude, double seconds) {
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) return false;
    std::vector<float> samples(static_cast<size_t>(seconds * rate));
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<float>(amplitude * std::sin(2.0 * M_PI * hz * static_cast<double>(i) / rate));
    }
    const bool ok = sf_writef_float(file, samples.data(), static_cast<sf_count_t>(samples.size())) ==
                    static_cast<sf_count_t>(samples.size());
    sf_close(file);
    return ok;
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
