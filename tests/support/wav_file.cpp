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

namespace {

// A mono file of the given sample format, written with libsndfile's writer for the samples' type.
template <typename Sample>
bool WriteMonoWav(const std::string& path, int rate, int format, const std::vector<Sample>& samples,
                  sf_count_t (*write)(SNDFILE*, const Sample*, sf_count_t)) {
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) return false;
    const auto count = static_cast<sf_count_t>(samples.size());
    const bool ok = write(file, samples.data(), count) == count;
    sf_close(file);
    return ok;
}

}  // namespace

bool WriteWav16(const std::string& path, int rate, const std::vector<int16_t>& samples) {
    return WriteMonoWav(path, rate, SF_FORMAT_PCM_16, samples, sf_writef_short);
}

bool WriteWavFloat(const std::string& path, int rate, const std::vector<float>& samples) {
    return WriteMonoWav(path, rate, SF_FORMAT_FLOAT, samples, sf_writef_float);
}

}  // namespace zqtest
