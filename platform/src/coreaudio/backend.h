// The contract between the Core Audio front end (the COM objects in this folder) and an audio
// backend (the virtual engine in ../audio, the pulse backend in ../pulse). Internal to the
// platform library.
//
// The front end owns everything COM: interface queries, reference counts, the live-object count
// of the control API, argument checks, injected failures (faults/method_faults.h, checked before
// anything else in every method) and the invalidation check. A backend answers in plain C++ and
// is never handed an argument the front end has already refused. No backend makes a COM object
// of its own.
//
// What the front end has checked before it calls a backend:
// - every pointer the COM method requires is non-null (the stream's format and event too; the
//   capture positions are optional) and, where COM says so, cleared;
// - enumeration: the flow is eRender, eCapture or eAll and the state mask is a non-empty subset
//   of DEVICE_STATEMASK_ALL; a default is asked for eRender or eCapture and a known role;
// - audio objects (client, meter, volumes, sessions): the failure rules for the method and the
//   endpoint, then Endpoint::Valid() (except for IAudioClient::Stop and session
//   unregistration, which work on a device that has gone); levels are within 0..1 (NaN refused);
//   a meter is asked for exactly Endpoint::Channels() values; session stream flags hold nothing
//   but AUDCLNT_STREAMFLAGS_CROSSPROCESS;
// - the device's own volume (IAudioEndpointVolume): levels are within 0..1 or -100..0 dB (NaN
//   refused), a channel is below Endpoint::Channels(), levels are written for every channel at
//   once (one channel's change is read, changed and written whole); the steps (101, of 1/100
//   each), the range in dB and the hardware support (none) are the front end's.
//
// What a backend must still do:
// - keep its own state consistent under its own locks (lists, defaults, streams);
// - Stream: everything that depends on the stream's state (not initialised, already started,
//   buffer sizes, packet bookkeeping) and the checks that need it (formats, flags, durations);
//   Stop stops a stream of a device that has gone and then answers AUDCLNT_E_DEVICE_INVALIDATED;
// - the device's volume: keep it per endpoint, and answer false when the device has gone since
//   (or the server would not take the change);
// - tell the registered notification clients (Backend::Clients()) on a thread of its own, never
//   with one of its locks held, and keep the order of the changes.
//
// Threads: the client's threads (any number) call everything but the packet calls; the capture
// and render threads call the Stream's packet calls (CaptureGetBuffer, CaptureReleaseBuffer,
// NextPacketSize, RenderGetBuffer, RenderReleaseBuffer) and Padding, BufferSize, which must not
// allocate nor wait on anything but a short packet lock. The front end adds nothing on those
// paths but the fault check (one atomic load while nothing is armed) and Endpoint::Valid(),
// which must be as cheap.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "../audio/session.h"
#include "../audio/sink_registry.h"
#include "zqplatform/win/coreaudio.h"

namespace zqplatform::coreaudio {

// One shared-mode stream, behind IAudioClient, IAudioCaptureClient and IAudioRenderClient.
// Calls with the same meaning as the COM methods of those names.
class Stream {
public:
    Stream() = default;
    virtual ~Stream() = default;
    // A stream is one of a kind: its buffers and its place on the device's schedule.
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    virtual HRESULT Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags, REFERENCE_TIME bufferDuration,
                               REFERENCE_TIME periodicity, const WAVEFORMATEX* format) = 0;
    virtual bool Initialized() = 0;
    virtual HRESULT BufferSize(UINT32* frames) = 0;
    virtual HRESULT Padding(UINT32* frames) = 0;
    // The stream's latency; AUDCLNT_E_NOT_INITIALIZED before Initialize.
    virtual HRESULT Latency(REFERENCE_TIME* latency) = 0;
    virtual HRESULT SetEventHandle(HANDLE event) = 0;
    virtual HRESULT Start() = 0;
    virtual HRESULT Stop() = 0;
    virtual HRESULT Reset() = 0;

    // Capture thread: whole packets, oldest first.
    virtual HRESULT CaptureGetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* devicePosition,
                                     UINT64* qpcPosition) = 0;
    virtual HRESULT CaptureReleaseBuffer(UINT32 frames) = 0;
    virtual HRESULT NextPacketSize(UINT32* frames) = 0;
    // Render thread: frames written after those queued.
    virtual HRESULT RenderGetBuffer(UINT32 frames, BYTE** data) = 0;
    virtual HRESULT RenderReleaseBuffer(UINT32 frames, DWORD flags) = 0;
};

// The device's own volume as a backend reads it (Endpoint::ReadDeviceVolume).
struct DeviceVolume {
    std::vector<float> levels;  // one scalar 0..1 per channel
    bool mute = false;
};
// The quietest level in dB of the device's volume, a scalar of 0 on every backend's scale.
constexpr float kDeviceFloorDb = -100.0f;

// An active endpoint as its audio objects see it, from IMMDevice::Activate on. The audio
// objects keep it; once the device leaves the active state or the machine (or the server goes),
// Valid() answers false for good and the front end answers AUDCLNT_E_DEVICE_INVALIDATED.
class Endpoint {
public:
    virtual ~Endpoint() = default;

    // Fixed for the endpoint's life.
    virtual const std::wstring& Id() const = 0;
    virtual EDataFlow Flow() const = 0;
    virtual UINT Channels() const = 0;
    // Any thread, the stream threads included: no lock, no allocation.
    virtual bool Valid() const = 0;

    // Formats. The mix format in task memory (the caller frees it), null when out of memory.
    virtual WAVEFORMATEX* TaskMemMixFormat() const = 0;
    // Whether format describes the same stream as the mix format (shared mode takes nothing else).
    virtual bool IsMixFormat(const WAVEFORMATEX& format) const = 0;
    // Whether the mix format may also be had in exclusive mode.
    virtual bool OffersExclusiveMode() const = 0;

    // A new stream, not initialised; null when out of memory.
    virtual std::shared_ptr<Stream> NewStream() = 0;

    // The meter: the overall peak and one per channel (channels == Channels()), 0 to 1.
    virtual float Peak() = 0;
    virtual void ChannelPeaks(float* peaks, UINT channels) = 0;

    // The process's session on the endpoint: its state and event sinks are the front end's to
    // read and register; volume and mute changes go through the backend, which may have a
    // server to tell (false: the change was not taken, the device has gone).
    virtual const std::shared_ptr<audio::Session>& Session() const = 0;
    virtual bool SetSessionVolume(float level, const GUID* context) = 0;
    virtual bool SetSessionMute(bool mute, const GUID* context) = 0;

    // The device's own volume (IAudioEndpointVolume), client threads: what every process
    // hears, as the backend keeps it; false when the device has gone (or the change was not
    // taken). Levels are scalars 0..1 on the backend's own scale, one per channel
    // (levels.size() == Channels()); 1 is the device's full volume.
    virtual bool ReadDeviceVolume(DeviceVolume& now) = 0;
    virtual bool WriteDeviceLevels(const std::vector<float>& levels) = 0;
    virtual bool WriteDeviceMute(bool mute) = 0;
    // The backend's scale in dB of those scalars, any thread, no lock: 1 is 0 dB, 0 is
    // kDeviceFloorDb, rising in between; and back, for dB within kDeviceFloorDb..0.
    virtual float DbOfScalar(float scalar) const = 0;
    virtual float ScalarOfDb(float db) const = 0;
};

// One endpoint of the machine as IMMDevice presents it: its identity and properties, read at
// any time (also after it has gone, as Windows keeps a removed endpoint readable).
class Device {
public:
    virtual ~Device() = default;

    virtual const std::wstring& Id() const = 0;
    virtual EDataFlow Flow() const = 0;
    virtual const std::wstring& FriendlyName() const = 0;
    virtual GUID Container() const = 0;
    // The state now (DEVICE_STATE_*).
    virtual DWORD State() const = 0;
    // The endpoint for new audio objects, as it is now; null when it is not active.
    virtual std::shared_ptr<Endpoint> Activate() = 0;
    // The IMMDevice objects' references changed by delta (for a backend that counts them).
    virtual void CountReferences(long delta) { (void)delta; }
};

// A backend as the enumerator sees it; one instance lives as long as the enumerators made on it.
class Backend {
public:
    virtual ~Backend() = default;

    // Endpoints of a flow (eAll: both) whose state is in stateMask, in the backend's order.
    virtual std::vector<std::shared_ptr<Device>> Devices(EDataFlow flow, DWORD stateMask) = 0;
    // The default of a flow and role; null when there is none or it is not active.
    virtual std::shared_ptr<Device> Default(EDataFlow flow, ERole role) = 0;
    // Any endpoint the backend knows, removed ones included; null when none has the id.
    virtual std::shared_ptr<Device> Find(std::wstring_view id) = 0;
    // The registered IMMNotificationClient; the backend calls them on its notification thread.
    virtual audio::SinkRegistry<IMMNotificationClient>& Clients() = 0;
};

}  // namespace zqplatform::coreaudio
