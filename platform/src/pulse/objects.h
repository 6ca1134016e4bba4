// Creation of the pulse backend's COM objects, each implemented in its own file. Every function
// hands a new object out through its last parameter with one reference. Internal to the
// platform library.
#pragma once

#include <memory>
#include <vector>

#include "connection.h"
#include "stream.h"

namespace zqplatform::pulse {

// IMMDeviceEnumerator (enumerator.cpp); AUDCLNT_E_SERVICE_NOT_RUNNING when no server answers.
HRESULT CreateDeviceEnumerator(REFIID riid, void** ppv);
// IMMDeviceCollection over the endpoints as they were listed (enumerator.cpp).
HRESULT CreateDeviceCollection(std::shared_ptr<Connection> connection, std::vector<Endpoint> endpoints,
                               IMMDeviceCollection** out);
// IMMDevice and IMMEndpoint (device.cpp), with the virtual engine's IPropertyStore.
HRESULT CreateDevice(std::shared_ptr<Connection> connection, Endpoint endpoint, IMMDevice** out);
// IAudioClient (audio_client.cpp); IAudioCaptureClient and IAudioRenderClient on its stream
// (stream_clients.cpp).
HRESULT CreateAudioClient(std::shared_ptr<Connection> connection, const Endpoint& endpoint, REFIID riid, void** ppv);
HRESULT CreateCaptureClient(std::shared_ptr<Stream> stream, void** ppv);
HRESULT CreateRenderClient(std::shared_ptr<Stream> stream, void** ppv);
// ISimpleAudioVolume, IAudioSessionManager, IAudioSessionControl of the process's session on
// an endpoint (session_objects.cpp).
HRESULT CreateSimpleVolume(std::shared_ptr<Connection> connection, std::shared_ptr<Session> session, void** ppv);
HRESULT CreateSessionManager(std::shared_ptr<Connection> connection, const Endpoint& endpoint, REFIID riid, void** ppv);
HRESULT CreateSessionControl(std::shared_ptr<Connection> connection, std::shared_ptr<Session> session, void** ppv);
// IAudioEndpointVolume of an endpoint: the sink's or source's own volume (endpoint_volume.cpp).
HRESULT CreateEndpointVolume(std::shared_ptr<Connection> connection, const Endpoint& endpoint, REFIID riid, void** ppv);
// IAudioMeterInformation of an endpoint (meter.cpp).
HRESULT CreateMeter(std::shared_ptr<Connection> connection, const Endpoint& endpoint, REFIID riid, void** ppv);

// The mix format of a device: its rate and channels as 32-bit float WAVEFORMATEXTENSIBLE, in
// task memory; null when out of memory (mix_format.cpp).
WAVEFORMATEX* TaskMemMixFormat(const pa_sample_spec& sampleSpec, const pa_channel_map& channelMap);

}  // namespace zqplatform::pulse
