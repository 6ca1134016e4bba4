// The pulse backend behind the Core Audio front end (coreaudio/backend.h). Internal to the
// platform library.
#pragma once

#include <memory>
#include <vector>

#include "../coreaudio/backend.h"
#include "connection.h"

namespace zqplatform::pulse {

// The live connection behind the backend contract (server_backend.cpp);
// AUDCLNT_E_SERVICE_NOT_RUNNING when no server answers.
HRESULT OpenServerBackend(std::shared_ptr<coreaudio::Backend>* out);
// The sink's or source's own volume on the server, as the backend contract has it
// (device_volume.cpp): read now, written by the device's name; false when the server did not
// answer or the device has gone. The scalars' scale in dB, the server's.
bool ReadDeviceVolume(Connection& connection, const Endpoint& endpoint, coreaudio::DeviceVolume& now);
bool WriteDeviceLevels(Connection& connection, const Endpoint& endpoint, const std::vector<float>& levels);
bool WriteDeviceMute(Connection& connection, const Endpoint& endpoint, bool mute);
float DbOfScalar(float scalar);
float ScalarOfDb(float db);

// The mix format of a device: its rate and channels as 32-bit float WAVEFORMATEXTENSIBLE, in
// task memory; null when out of memory (mix_format.cpp).
WAVEFORMATEX* TaskMemMixFormat(const pa_sample_spec& sampleSpec, const pa_channel_map& channelMap);

}  // namespace zqplatform::pulse
