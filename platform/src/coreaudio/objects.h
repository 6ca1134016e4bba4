// The Core Audio front end's COM objects, each made in its own file over the backend contract
// (backend.h). Every function hands a new object out with one reference. Internal to the
// platform library.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "../faults/method_faults.h"
#include "backend.h"
#include "call_trace.h"

namespace zqplatform::coreaudio {

// IMMDeviceEnumerator over a backend (enumerator.cpp).
HRESULT CreateDeviceEnumerator(std::shared_ptr<Backend> backend, REFIID riid, void** ppv);
// IMMDeviceCollection over the devices as they were listed (collection.cpp).
HRESULT CreateDeviceCollection(std::vector<std::shared_ptr<Device>> devices, IMMDeviceCollection** out);
// IMMDevice and IMMEndpoint (device.cpp); IPropertyStore, read-only (property_store.cpp).
HRESULT CreateDevice(std::shared_ptr<Device> device, IMMDevice** out);
HRESULT CreatePropertyStore(std::shared_ptr<Device> device, IPropertyStore** out);
// The audio objects of an active endpoint: IAudioClient (audio_client.cpp), IAudioCaptureClient
// and IAudioRenderClient on its stream (stream_clients.cpp), IAudioMeterInformation (meter.cpp),
// ISimpleAudioVolume and IAudioSessionManager (session_objects.cpp), IAudioSessionControl
// (session_control.cpp), IAudioEndpointVolume, the device's own volume (endpoint_volume.cpp).
HRESULT CreateAudioClient(std::shared_ptr<Endpoint> endpoint, REFIID riid, void** ppv);
HRESULT CreateCaptureClient(std::shared_ptr<Endpoint> endpoint, std::shared_ptr<Stream> stream, void** ppv);
HRESULT CreateRenderClient(std::shared_ptr<Endpoint> endpoint, std::shared_ptr<Stream> stream, void** ppv);
HRESULT CreateMeter(std::shared_ptr<Endpoint> endpoint, REFIID riid, void** ppv);
HRESULT CreateSimpleVolume(std::shared_ptr<Endpoint> endpoint, void** ppv);
HRESULT CreateSessionManager(std::shared_ptr<Endpoint> endpoint, REFIID riid, void** ppv);
HRESULT CreateSessionControl(std::shared_ptr<Endpoint> endpoint, void** ppv);
HRESULT CreateEndpointVolume(std::shared_ptr<Endpoint> endpoint, REFIID riid, void** ppv);

// A failure injected for method on an object of endpointId (empty: the enumerator's and the
// collections' own); true and its code in hr when the call is to fail.
// Every method's entry: the call traced, then asked about.
inline bool Injected(std::wstring_view endpointId, const char* method, HRESULT& hr) {
    TraceCall(endpointId, method);
    return faults::MethodFails(endpointId, method, hr);
}

// The same for a method that hands out the interface requested (faults::RequestFails).
inline bool InjectedRequest(std::wstring_view endpointId, const char* method, REFIID requested, HRESULT& hr) {
    TraceCall(endpointId, method);
    return faults::RequestFails(endpointId, method, requested, hr);
}

// What every audio object checks first: an injected failure, then (unless checkValid is false)
// the endpoint having gone since the object was made.
inline bool Intercepted(const Endpoint& endpoint, const char* method, HRESULT& hr, bool checkValid = true) {
    if (Injected(endpoint.Id(), method, hr)) return true;
    if (checkValid && !endpoint.Valid()) {
        hr = AUDCLNT_E_DEVICE_INVALIDATED;
        return true;
    }
    return false;
}

// The shape of most audio-object methods: the pointer checked, then the interception, then the
// backend's answer stored in *out (Read), or the caller's value handed on by change (Apply).
template <typename Out, typename Value>
HRESULT Read(const Endpoint& endpoint, const char* method, Out* out, Value value) {
    if (out == nullptr) return E_POINTER;
    HRESULT hr;
    if (Intercepted(endpoint, method, hr)) return hr;
    *out = value();
    return S_OK;
}

template <typename In, typename Change>
HRESULT Apply(const Endpoint& endpoint, const char* method, const In* in, Change change) {
    if (in == nullptr) return E_POINTER;
    HRESULT hr;
    if (Intercepted(endpoint, method, hr)) return hr;
    change();
    return S_OK;
}

}  // namespace zqplatform::coreaudio
