// WAV files read and written with libsndfile, as a user of the virtual speaker's or the host's
// WAV files would read them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zqtest {

struct WavContent {
    bool ok = false;
    int rate = 0;
    int channels = 0;
    std::vector<float> first;  // the first channel
};
WavContent ReadWav(const std::string& path);

// Mono files of 16-bit PCM and of float samples.
bool WriteWav16(const std::string& path, int rate, const std::vector<int16_t>& samples);
bool WriteWavFloat(const std::string& path, int rate, const std::vector<float>& samples);

}  // namespace zqtest
