// A virtual endpoint's own volume (IAudioEndpointVolume, through the Core Audio front end): one
// scalar per channel and a mute, full and not muted until a host sets them. The engine keeps
// them for the host to read back and leaves the sound as it is: the streams' samples never
// depend on them, so no test of the system's sound does. Internal to the platform library.
#pragma once

#include <mutex>
#include <vector>

namespace zqplatform::audio {

class DeviceVolumeState {
public:
    explicit DeviceVolumeState(size_t channels) : m_levels(channels, 1.0f) {}

    // Client threads; a copy as it is now.
    std::vector<float> Levels() const;
    bool Muted() const;
    // levels: one per channel (the front end checked the count and the range).
    void SetLevels(const std::vector<float>& levels);
    void SetMuted(bool muted);

    // The engine's scale in dB: 20·log10 of the scalar, the floor (-100 dB, a scalar of 1e-5)
    // standing for everything quieter down to 0; and back, 10^(dB/20), for -100..0 dB.
    static float DbOfScalar(float scalar);
    static float ScalarOfDb(float db);

private:
    mutable std::mutex m_lock;  // leaf
    std::vector<float> m_levels;
    bool m_muted = false;
};

}  // namespace zqplatform::audio
