// A virtual endpoint's own volume (device_volume.h).
#include "device_volume.h"

#include <algorithm>
#include <cmath>

namespace zqplatform::audio {

coreaudio::DeviceVolume DeviceVolumeState::Now() const {
    std::lock_guard lock(m_lock);
    return m_volume;
}

void DeviceVolumeState::SetLevels(const std::vector<float>& levels) {
    std::lock_guard lock(m_lock);
    m_volume.levels = levels;
}

void DeviceVolumeState::SetMuted(bool muted) {
    std::lock_guard lock(m_lock);
    m_volume.mute = muted;
}

float DeviceVolumeState::DbOfScalar(float scalar) {
    // log10(0) is -inf, which the floor takes as well.
    return std::max(coreaudio::kDeviceFloorDb, 20.0f * std::log10(scalar));
}

float DeviceVolumeState::ScalarOfDb(float db) { return std::pow(10.0f, db / 20.0f); }

}  // namespace zqplatform::audio
