// A virtual endpoint's own volume (IAudioEndpointVolume, through the Core Audio front end): one
// scalar per channel and a mute, full and not muted until a host sets them. The engine keeps
// them for the host to read back and leaves the sound as it is: the streams' samples never
// depend on them, so no test of the system's sound does. Internal to the platform library.
#pragma once

#include <mutex>
#include <vector>

#include "../coreaudio/backend.h"

namespace zqplatform::audio {

class DeviceVolumeState {
public:
    explicit DeviceVolumeState(size_t channels) : m_volume{std::vector<float>(channels, 1.0f), false} {}

    // Client threads; levels and mute as they are now, read together.
    coreaudio::DeviceVolume Now() const;
    // levels: one per channel (the front end checked the count and the range).
    void SetLevels(const std::vector<float>& levels);
    void SetMuted(bool muted);

    // The engine's scale in dB: 20·log10 of the scalar, the floor (-100 dB, a scalar of 1e-5)
    // standing for everything quieter down to 0; and back, 10^(dB/20), for -100..0 dB.
    static float DbOfScalar(float scalar);
    static float ScalarOfDb(float db);

private:
    mutable std::mutex m_lock;  // leaf
    coreaudio::DeviceVolume m_volume;
};

}  // namespace zqplatform::audio
