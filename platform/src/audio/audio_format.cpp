// Mix formats and sample conversion.
#include "audio_format.h"

#include <bit>
#include <cmath>
#include <cstring>

#include "zqplatform/win/com.h"

namespace zqplatform::audio {
namespace {

uint16_t BitsOf(zqvm::SampleFormat format) {
    switch (format) {
        case zqvm::SampleFormat::Int16:
            return 16;
        case zqvm::SampleFormat::Int24:
            return 24;
        case zqvm::SampleFormat::Int32:
        case zqvm::SampleFormat::Float32:
            return 32;
    }
    return 32;
}

// Integer full scale is 2^(bits-1); +1.0 saturates to the largest code.
template <typename T>
T Quantize(float value, double scale, double low, double high) {
    double scaled = std::nearbyint(static_cast<double>(value) * scale);
    if (!(scaled >= low)) scaled = low;  // also catches NaN
    if (scaled > high) scaled = high;
    return static_cast<T>(scaled);
}

}  // namespace

uint32_t DefaultChannelMask(uint16_t channels) {
    switch (channels) {
        case 1:
            return SPEAKER_FRONT_CENTER;
        case 2:
            return SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT;
        case 3:
            return SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT | SPEAKER_FRONT_CENTER;
        case 4:
            return SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT | SPEAKER_BACK_LEFT | SPEAKER_BACK_RIGHT;
        case 5:
            return SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT | SPEAKER_FRONT_CENTER | SPEAKER_BACK_LEFT |
                   SPEAKER_BACK_RIGHT;
        case 6:
            return SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT | SPEAKER_FRONT_CENTER | SPEAKER_LOW_FREQUENCY |
                   SPEAKER_BACK_LEFT | SPEAKER_BACK_RIGHT;
        case 7:
            return SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT | SPEAKER_FRONT_CENTER | SPEAKER_LOW_FREQUENCY |
                   SPEAKER_BACK_LEFT | SPEAKER_BACK_RIGHT | SPEAKER_BACK_CENTER;
        case 8:
            return SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT | SPEAKER_FRONT_CENTER | SPEAKER_LOW_FREQUENCY |
                   SPEAKER_BACK_LEFT | SPEAKER_BACK_RIGHT | SPEAKER_SIDE_LEFT | SPEAKER_SIDE_RIGHT;
        default:
            return 0;
    }
}

std::optional<MixFormat> MixFormat::Make(uint32_t rate, uint16_t channels, zqvm::SampleFormat format,
                                         bool extensible, uint32_t channelMask, std::string* error) {
    const auto fail = [error](const char* why) -> std::optional<MixFormat> {
        if (error) *error = why;
        return std::nullopt;
    };
    // Below 100 Hz a 10 ms period would hold no frame at all.
    if (rate < 100 || rate > 1000000) return fail("sample rate must be 100 to 1000000 Hz");
    if (channels < 1 || channels > 8) return fail("channel count must be 1 to 8");
    if (extensible && channelMask != 0 && std::popcount(channelMask) != channels)
        return fail("channel mask must name as many speakers as there are channels");

    MixFormat mix;
    mix.m_sample = format;
    WAVEFORMATEX& wave = mix.m_wave.Format;
    const uint16_t bits = BitsOf(format);
    const bool isFloat = format == zqvm::SampleFormat::Float32;
    wave.nChannels = channels;
    wave.nSamplesPerSec = rate;
    wave.wBitsPerSample = bits;
    wave.nBlockAlign = static_cast<WORD>(channels * bits / 8);
    wave.nAvgBytesPerSec = rate * wave.nBlockAlign;
    if (extensible) {
        wave.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
        wave.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
        mix.m_wave.Samples.wValidBitsPerSample = bits;
        mix.m_wave.dwChannelMask = channelMask != 0 ? channelMask : DefaultChannelMask(channels);
        mix.m_wave.SubFormat = isFloat ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM;
    } else {
        wave.wFormatTag = isFloat ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM;
        wave.cbSize = 0;
    }
    return mix;
}

std::optional<MixFormat> MixFormat::FromWaveFormat(const WAVEFORMATEX* format) {
    if (format == nullptr) return std::nullopt;
    bool isFloat;
    bool extensible = false;
    uint32_t mask = 0;
    uint16_t validBits = format->wBitsPerSample;
    if (format->wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        if (format->cbSize < sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX)) return std::nullopt;
        WAVEFORMATEXTENSIBLE ext;
        std::memcpy(&ext, format, sizeof ext);  // the caller's struct may be packed
        if (ext.SubFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT)
            isFloat = true;
        else if (ext.SubFormat == KSDATAFORMAT_SUBTYPE_PCM)
            isFloat = false;
        else
            return std::nullopt;
        extensible = true;
        mask = ext.dwChannelMask;
        validBits = ext.Samples.wValidBitsPerSample;
    } else if (format->wFormatTag == WAVE_FORMAT_IEEE_FLOAT) {
        isFloat = true;
    } else if (format->wFormatTag == WAVE_FORMAT_PCM) {
        isFloat = false;
    } else {
        return std::nullopt;
    }
    if (validBits != format->wBitsPerSample) return std::nullopt;  // no padded containers here
    zqvm::SampleFormat sample;
    if (isFloat && format->wBitsPerSample == 32)
        sample = zqvm::SampleFormat::Float32;
    else if (!isFloat && format->wBitsPerSample == 16)
        sample = zqvm::SampleFormat::Int16;
    else if (!isFloat && format->wBitsPerSample == 24)
        sample = zqvm::SampleFormat::Int24;
    else if (!isFloat && format->wBitsPerSample == 32)
        sample = zqvm::SampleFormat::Int32;
    else
        return std::nullopt;
    std::optional<MixFormat> mix = Make(format->nSamplesPerSec, format->nChannels, sample, extensible,
                                        mask == 0 ? DefaultChannelMask(format->nChannels) : mask, nullptr);
    if (mix && format->nBlockAlign != mix->BlockAlign()) return std::nullopt;
    return mix;
}

WAVEFORMATEX* MixFormat::TaskMemCopy() const {
    auto* copy = static_cast<WAVEFORMATEX*>(CoTaskMemAlloc(WaveSize()));
    if (copy != nullptr) std::memcpy(copy, &m_wave, WaveSize());
    return copy;
}

bool MixFormat::SameStream(const MixFormat& other) const {
    // A plain WAVEFORMATEX describing the same samples is as good as the extensible form.
    return m_sample == other.m_sample && Rate() == other.Rate() && Channels() == other.Channels();
}

void MixFormat::ToDevice(const float* in, BYTE* out, size_t samples) const {
    switch (m_sample) {
        case zqvm::SampleFormat::Float32:
            std::memcpy(out, in, samples * sizeof(float));
            return;
        case zqvm::SampleFormat::Int16:
            for (size_t i = 0; i < samples; ++i) {
                const auto v = Quantize<int16_t>(in[i], 32768.0, -32768.0, 32767.0);
                std::memcpy(out + 2 * i, &v, 2);
            }
            return;
        case zqvm::SampleFormat::Int24:
            for (size_t i = 0; i < samples; ++i) {
                const auto v = static_cast<uint32_t>(Quantize<int32_t>(in[i], 8388608.0, -8388608.0, 8388607.0));
                out[3 * i] = static_cast<BYTE>(v);
                out[3 * i + 1] = static_cast<BYTE>(v >> 8);
                out[3 * i + 2] = static_cast<BYTE>(v >> 16);
            }
            return;
        case zqvm::SampleFormat::Int32:
            for (size_t i = 0; i < samples; ++i) {
                const auto v = Quantize<int32_t>(in[i], 2147483648.0, -2147483648.0, 2147483647.0);
                std::memcpy(out + 4 * i, &v, 4);
            }
            return;
    }
}

void MixFormat::FromDevice(const BYTE* in, float* out, size_t samples) const {
    switch (m_sample) {
        case zqvm::SampleFormat::Float32:
            std::memcpy(out, in, samples * sizeof(float));
            return;
        case zqvm::SampleFormat::Int16:
            for (size_t i = 0; i < samples; ++i) {
                int16_t v;
                std::memcpy(&v, in + 2 * i, 2);
                out[i] = static_cast<float>(v / 32768.0);
            }
            return;
        case zqvm::SampleFormat::Int24:
            for (size_t i = 0; i < samples; ++i) {
                uint32_t u = uint32_t{in[3 * i]} | (uint32_t{in[3 * i + 1]} << 8) | (uint32_t{in[3 * i + 2]} << 16);
                if (u & 0x800000u) u |= 0xFF000000u;  // sign-extend the 24-bit code
                out[i] = static_cast<float>(static_cast<int32_t>(u) / 8388608.0);
            }
            return;
        case zqvm::SampleFormat::Int32:
            for (size_t i = 0; i < samples; ++i) {
                int32_t v;
                std::memcpy(&v, in + 4 * i, 4);
                out[i] = static_cast<float>(v / 2147483648.0);
            }
            return;
    }
}

}  // namespace zqplatform::audio
