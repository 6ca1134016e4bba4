#include "wav_file.h"

#include <sndfile.h>

namespace zqtest {

WavContent ReadWav(const std::string& path) {
    WavContent wav;
    SF_INFO info = {};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) return wav;
    std::vector<float> interleaved(static_cast<size_t>(info.frames) * static_cast<size_t>(info.channels));
    const sf_count_t read = sf_readf_float(file, interleaved.data(), info.frames);
    sf_close(file);
    wav.ok = read == info.frames;
    wav.rate = info.samplerate;
    wav.channels = info.channels;
    for (sf_count_t i = 0; i < read; ++i) wav.first.push_back(interleaved[static_cast<size_t>(i * info.channels)]);
    return wav;
}

bool WriteWav16(const std::string& path, int rate, const std::vector<int16_t>& samples) {
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) return false;
    const auto count = static_cast<sf_count_t>(samples.size());
    const bool ok = sf_writef_short(file, samples.data(), count) == count;
    sf_close(file);
    return ok;
}

}  // namespace zqtest
