// Writing a tone to a WAV file and measuring the tone in one.
#pragma once

#include <string>
#include <vector>

#include "wav_file.h"

namespace zqhosttest {

using zqtest::ReadWav;
using zqtest::WavContent;
bool WriteToneWav(const std::string& path, int rate, double hz, double amplitude, double seconds);

// The frequency of a steady tone in samples [begin, end) (zqtest::TonePitchHz); 0 when fewer
// than two upward crossings.
double ToneHz(const std::vector<float>& samples, int rate, size_t begin, size_t end);
float PeakOf(const std::vector<float>& samples, size_t begin, size_t end);

}  // namespace zqhosttest
