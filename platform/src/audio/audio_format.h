// An endpoint's mix format and the conversion of its samples to and from float. Internal to
// the platform library.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/win/coreaudio.h"

namespace zqplatform::audio {

class MixFormat {
public:
    // nullopt (and the reason in *error) for a rate, channel count or mask out of range.
    static std::optional<MixFormat> Make(uint32_t rate, uint16_t channels, zqvm::SampleFormat format,
                                         bool extensible, uint32_t channelMask, std::string* error);
    // What a WAVEFORMATEX (or EXTENSIBLE) given by a client describes; nullopt for anything
    // the engine does not handle.
    static std::optional<MixFormat> FromWaveFormat(const WAVEFORMATEX* format);

    const WAVEFORMATEX* Wave() const { return &m_wave.Format; }
    size_t WaveSize() const { return sizeof(WAVEFORMATEX) + m_wave.Format.cbSize; }
    // A copy in task memory, for GetMixFormat and IsFormatSupported; null when out of memory.
    WAVEFORMATEX* TaskMemCopy() const;

    uint32_t Rate() const { return m_wave.Format.nSamplesPerSec; }
    uint16_t Channels() const { return m_wave.Format.nChannels; }
    uint32_t BlockAlign() const { return m_wave.Format.nBlockAlign; }
    zqvm::SampleFormat Sample() const { return m_sample; }
    // Same samples, rate and layout: what shared mode accepts as the mix format.
    bool SameStream(const MixFormat& other) const;

    // samples = frames × channels. Float to integer rounds to nearest and saturates.
    void ToDevice(const float* in, BYTE* out, size_t samples) const;
    void FromDevice(const BYTE* in, float* out, size_t samples) const;

private:
    MixFormat() = default;

    WAVEFORMATEXTENSIBLE m_wave{};
    zqvm::SampleFormat m_sample = zqvm::SampleFormat::Float32;
};

// The usual speaker layout for a channel count (1 to 8), as Windows assigns it.
uint32_t DefaultChannelMask(uint16_t channels);

}  // namespace zqplatform::audio
