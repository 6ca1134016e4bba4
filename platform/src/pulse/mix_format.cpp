// A device's mix format as a desktop engine's shared mode reports it: the device's own rate and
// channel count, 32-bit float.
#include "objects.h"

namespace zqplatform::pulse {
namespace {

DWORD SpeakerOf(pa_channel_position_t position) {
    switch (position) {
        case PA_CHANNEL_POSITION_FRONT_LEFT:
            return SPEAKER_FRONT_LEFT;
        case PA_CHANNEL_POSITION_FRONT_RIGHT:
            return SPEAKER_FRONT_RIGHT;
        case PA_CHANNEL_POSITION_MONO:
        case PA_CHANNEL_POSITION_FRONT_CENTER:
            return SPEAKER_FRONT_CENTER;
        case PA_CHANNEL_POSITION_LFE:
            return SPEAKER_LOW_FREQUENCY;
        case PA_CHANNEL_POSITION_REAR_LEFT:
            return SPEAKER_BACK_LEFT;
        case PA_CHANNEL_POSITION_REAR_RIGHT:
            return SPEAKER_BACK_RIGHT;
        case PA_CHANNEL_POSITION_FRONT_LEFT_OF_CENTER:
            return SPEAKER_FRONT_LEFT_OF_CENTER;
        case PA_CHANNEL_POSITION_FRONT_RIGHT_OF_CENTER:
            return SPEAKER_FRONT_RIGHT_OF_CENTER;
        case PA_CHANNEL_POSITION_REAR_CENTER:
            return SPEAKER_BACK_CENTER;
        case PA_CHANNEL_POSITION_SIDE_LEFT:
            return SPEAKER_SIDE_LEFT;
        case PA_CHANNEL_POSITION_SIDE_RIGHT:
            return SPEAKER_SIDE_RIGHT;
        default:
            return 0;
    }
}

// The speakers of the channel map, when each has a Windows speaker and they come in Windows'
// order; 0 (no positions) otherwise, e.g. for the server's auxiliary channels.
DWORD ChannelMask(const pa_channel_map& map) {
    DWORD mask = 0;
    for (unsigned i = 0; i < map.channels; ++i) {
        const DWORD speaker = SpeakerOf(map.map[i]);
        if (speaker == 0 || speaker <= mask) return 0;
        mask |= speaker;
    }
    return mask;
}

}  // namespace

WAVEFORMATEX* TaskMemMixFormat(const pa_sample_spec& sampleSpec, const pa_channel_map& channelMap) {
    auto* format = static_cast<WAVEFORMATEXTENSIBLE*>(CoTaskMemAlloc(sizeof(WAVEFORMATEXTENSIBLE)));
    if (format == nullptr) return nullptr;
    *format = WAVEFORMATEXTENSIBLE{};
    WAVEFORMATEX& wave = format->Format;
    wave.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    wave.nChannels = sampleSpec.channels;
    wave.nSamplesPerSec = sampleSpec.rate;
    wave.wBitsPerSample = 32;
    wave.nBlockAlign = static_cast<WORD>(sampleSpec.channels * sizeof(float));
    wave.nAvgBytesPerSec = sampleSpec.rate * wave.nBlockAlign;
    wave.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
    format->Samples.wValidBitsPerSample = 32;
    format->dwChannelMask = channelMap.channels == sampleSpec.channels ? ChannelMask(channelMap) : 0;
    format->SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    return &format->Format;
}

}  // namespace zqplatform::pulse
