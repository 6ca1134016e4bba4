// The pulse backend behind the Core Audio front end (coreaudio/backend.h), and the one COM
// object of its own: the device's endpoint volume, which the virtual engine has no counterpart
// of. Internal to the platform library.
#pragma once

#include <memory>

#include "../coreaudio/backend.h"
#include "connection.h"

namespace zqplatform::pulse {

// The live connection behind the backend contract (server_backend.cpp);
// AUDCLNT_E_SERVICE_NOT_RUNNING when no server answers.
HRESULT OpenServerBackend(std::shared_ptr<coreaudio::Backend>* out);
// IAudioEndpointVolume of an endpoint: the sink's or source's own volume (endpoint_volume.cpp).
HRESULT CreateEndpointVolume(std::shared_ptr<Connection> connection, const Endpoint& endpoint, REFIID riid, void** ppv);

// The mix format of a device: its rate and channels as 32-bit float WAVEFORMATEXTENSIBLE, in
// task memory; null when out of memory (mix_format.cpp).
WAVEFORMATEX* TaskMemMixFormat(const pa_sample_spec& sampleSpec, const pa_channel_map& channelMap);

}  // namespace zqplatform::pulse
