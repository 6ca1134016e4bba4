// Creation of the engine's COM objects, each implemented in its own file. Every function
// creates a new object and hands it out through ppv with one reference. Internal to the
// platform library.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "endpoint_state.h"
#include "stream.h"

namespace zqplatform::audio {

// IMMDeviceEnumerator (device_enumerator.cpp).
HRESULT CreateDeviceEnumerator(REFIID riid, void** ppv);
// IMMDeviceCollection over a snapshot of endpoints (device_collection.cpp).
HRESULT CreateDeviceCollection(std::vector<std::shared_ptr<EndpointState>> endpoints, IMMDeviceCollection** out);
// IMMDevice and IMMEndpoint (device_object.cpp).
HRESULT CreateDevice(std::shared_ptr<EndpointState> endpoint, IMMDevice** out);
// IPropertyStore, read-only (property_store.cpp).
HRESULT CreatePropertyStore(std::shared_ptr<EndpointState> endpoint, IPropertyStore** out);
// The same for any endpoint: its identifier (for injected failures), name and container.
HRESULT CreatePropertyStore(std::wstring id, std::wstring name, const GUID& container, IPropertyStore** out);
// IAudioClient (audio_client.cpp).
HRESULT CreateAudioClient(const EndpointBinding& binding, REFIID riid, void** ppv);
// IAudioCaptureClient and IAudioRenderClient on an initialised stream (capture_client.cpp,
// render_client.cpp).
HRESULT CreateCaptureClient(const EndpointBinding& binding, std::shared_ptr<Stream> stream, void** ppv);
HRESULT CreateRenderClient(const EndpointBinding& binding, std::shared_ptr<Stream> stream, void** ppv);
// ISimpleAudioVolume of the endpoint's session (simple_volume.cpp).
HRESULT CreateSimpleVolume(const EndpointBinding& binding, void** ppv);
// IAudioMeterInformation (meter.cpp).
HRESULT CreateMeter(const EndpointBinding& binding, REFIID riid, void** ppv);
// IAudioSessionManager and IAudioSessionControl (session_manager.cpp, session_control.cpp).
HRESULT CreateSessionManager(const EndpointBinding& binding, REFIID riid, void** ppv);
HRESULT CreateSessionControl(const EndpointBinding& binding, void** ppv);
// The same over any session: check(method, hr, checkValid) runs before each method and, when it
// answers true, the method returns hr (an injected failure, a device gone).
using SessionCheck = std::function<bool(const char* method, HRESULT& hr, bool checkValid)>;
HRESULT CreateSessionControl(std::shared_ptr<Session> session, SessionCheck check, void** ppv);

}  // namespace zqplatform::audio
