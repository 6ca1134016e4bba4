// Control of the virtual audio engine: the machine's audio endpoints as the Core Audio
// interfaces (CoCreateInstance(CLSID_MMDeviceEnumerator, ...)) present them.
//
// Who calls what, from which thread:
// - Tests and the host call everything here from their own threads. The calls are thread-safe
//   and never call back into the caller: notification clients and session event sinks are
//   called later, on the engine's notification thread and session event thread, never on the
//   thread that made the change and never while an engine lock is held.
// - The device clocks run on the platform clock (zqplatform/vm/clock.h). In stepped mode the
//   thread that calls zqvm::AdvanceClock runs every period that falls due: the capture packet
//   is appended (or the render period consumed) and the stream's event is set before
//   AdvanceClock returns. The stream threads then react on their own; the Wait* functions
//   below let a test wait (in real time, bounded) until they have.
// - The machine (endpoints and the bridges of zqplatform/vm/bridges.h) is loaded the first time
//   anything in the audio engine is used: from the machine
//   description file named by the environment variable ZQ_VIRTUAL_MACHINE, or else the
//   built-in default machine (DefaultMachineDescription()). Reset() empties it.
//
// How the Core Audio objects of the engine behave where Windows leaves room:
// - RegisterEndpointNotificationCallback and RegisterAudioSessionNotification take no
//   reference on the client: its owner keeps it alive until unregistration has returned.
//   Unregister...Notification does not return while the engine is calling that client on its
//   notification or session event thread, unless it is called from that very thread (from
//   inside a callback); so a client must not unregister while holding a lock its callbacks
//   wait for. Registrations also end when the enumerator or session control they were made
//   through is released.
// - Each endpoint has one session, the process's default; every session GUID names it. The
//   session volume scales every stream of the endpoint (capture streams after the meter).
// - The device period is 10 ms; a shared-mode buffer holds at least two periods. A capture
//   packet is one period; when the buffer is full the oldest packet is dropped (or, while the
//   client holds it, the new one) and the next packet carries DATA_DISCONTINUITY.
// - Audio objects of an endpoint that leaves the active state (or the machine) answer
//   AUDCLNT_E_DEVICE_INVALIDATED from then on, and their device clocks stop signalling;
//   Stop still stops, and UnregisterAudioSessionNotification still unregisters.
//
// Endpoint identifiers are the texts IMMDevice::GetId returns. Functions that take an unknown
// identifier do nothing and return false, 0 or an empty result.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "zqplatform/export.h"
#include "zqplatform/win/coreaudio.h"

namespace zqvm {

enum class SampleFormat { Float32, Int16, Int24, Int32 };

// What a capture endpoint hears. Amplitudes are linear, full scale 1.0.
struct CaptureSource {
    enum class Kind { Silence, Tone, Impulse, WavFile, Fed };

    Kind kind = Kind::Silence;
    double frequency = 1000.0;    // Tone: Hz
    double amplitude = 0.5;       // Tone, Impulse: peak value
    uint32_t intervalFrames = 0;  // Impulse: frames between impulses; 0: one impulse at the start
    std::string path;             // WavFile: any file libsndfile reads
    bool loop = true;             // WavFile: start over at the end, else silence after it

    ZQPLATFORM_API static CaptureSource Silence();
    ZQPLATFORM_API static CaptureSource Tone(double frequencyHz, double linearAmplitude);
    ZQPLATFORM_API static CaptureSource ToneDbfs(double frequencyHz, double levelDbfs);
    ZQPLATFORM_API static CaptureSource Impulse(double linearAmplitude, uint32_t intervalFrames = 0);
    ZQPLATFORM_API static CaptureSource WavFile(std::string path, bool loop = true);
    // Frames pushed with FeedFrames; a period with nothing queued is a silent packet.
    ZQPLATFORM_API static CaptureSource Fed();
};

struct EndpointSpec {
    std::wstring id;  // empty: the engine makes one up
    EDataFlow flow = eCapture;
    std::wstring name;
    GUID container = GUID_NULL;
    uint32_t rate = 48000;  // 100 Hz to 1 MHz
    uint16_t channels = 2;  // 1 to 8
    SampleFormat format = SampleFormat::Float32;
    bool extensible = false;    // WAVEFORMATEXTENSIBLE instead of WAVEFORMATEX
    uint32_t channelMask = 0;   // extensible only; 0: the usual layout for the channel count
    DWORD state = DEVICE_STATE_ACTIVE;
    std::vector<ERole> defaultFor;  // roles this endpoint is made the default for
    CaptureSource source;           // capture endpoints
    std::string renderWavPath;      // render endpoints: also write what is played to this file
    uint32_t keepSeconds = 10;      // render endpoints: how much played audio RenderedFrames keeps
    // The device clock, as real devices differ: its rate error against the platform clock
    // (positive: the device takes or delivers more frames per second than its nominal rate)
    // and its period phase: a stream's first period ends one period plus phaseMs after its
    // Start, so two streams started together meet their periods phaseMs apart.
    double ppm = 0.0;      // -1000 to +1000
    double phaseMs = 0.0;  // 0 to just under one period (10 ms)
};

// ---- machine -------------------------------------------------------------------------------
// Adds an endpoint and reports it (OnDeviceAdded, then OnDefaultDeviceChanged per role that
// changed). Returns its identifier, or an empty text (with the reason in *error) for an
// invalid description, a duplicate identifier or a WAV source that cannot be read.
//
// Defaults follow what Windows does: an endpoint becomes the default of every role of its flow
// that has none when it is added active or becomes active; when a default endpoint leaves the
// active state or the machine, the first active endpoint of its flow (in the order added)
// takes over, or the role is left without a default.
ZQPLATFORM_API std::wstring AddEndpoint(const EndpointSpec& endpointSpec, std::string* error = nullptr);
// OnDeviceRemoved; every object of the endpoint then returns AUDCLNT_E_DEVICE_INVALIDATED.
ZQPLATFORM_API bool RemoveEndpoint(const std::wstring& id);
// OnDeviceStateChanged. Leaving DEVICE_STATE_ACTIVE invalidates the endpoint's audio objects
// (streams, volumes, meters, sessions) as when a device goes away; objects made after it is
// active again work.
ZQPLATFORM_API bool SetEndpointState(const std::wstring& id, DWORD state);
// The device was pulled: state DEVICE_STATE_NOTPRESENT, with the effects above.
ZQPLATFORM_API bool InvalidateEndpoint(const std::wstring& id);
// The endpoint must be active and of that flow; an empty id leaves the role without a default
// (until an endpoint of the flow is next added or activated). Reports the change if any.
ZQPLATFORM_API bool SetDefaultEndpoint(EDataFlow flow, ERole role, const std::wstring& id);
ZQPLATFORM_API std::wstring DefaultEndpoint(EDataFlow flow, ERole role);
ZQPLATFORM_API std::vector<std::wstring> EndpointIds();
// Back to a machine without endpoints, bridges (zqplatform/vm/bridges.h), defaults or injected
// failures, without notifications.
// Objects handed out before return AUDCLNT_E_DEVICE_INVALIDATED. Registered notification
// clients stay registered.
ZQPLATFORM_API void Reset();

// The endpoint's clock error and period phase (see EndpointSpec). The rate error takes effect
// from the next device period of running streams, the phase from the next Start of a stream.
// Out of range: false, nothing changes.
ZQPLATFORM_API bool SetEndpointClock(const std::wstring& id, double ppm, double phaseMs);

// Holds up the threads of the endpoint's stream: its event is not set for the next `periods`
// device periods, as when the thread waiting for it is not scheduled. The device runs on (a
// render device plays what it holds, then silence; a capture device fills its buffer) and the
// event is set again from the period after those.
ZQPLATFORM_API bool HoldStreamEvents(const std::wstring& id, uint32_t periods);

// Late wake-ups of the threads of the endpoint's streams, as a loaded machine schedules them:
// each device period's event is set that much after the period ends, while the device keeps
// its own time. Every period is late by delayMs; besides, with the given probability per
// period, by a further amount drawn uniformly from (0, randomMaxMs] by a generator seeded with
// seed, so a run is repeated exactly. The sum stays under one device period (longer stalls:
// HoldStreamEvents). Takes effect from the next period; all zero: on time again. Out of range
// (negative, a sum of 10 ms or more, a probability outside 0..1): false, nothing changes.
struct WakeJitter {
    double delayMs = 0.0;
    double randomMaxMs = 0.0;
    double probability = 0.0;
    uint32_t seed = 1;
};
ZQPLATFORM_API bool SetWakeJitter(const std::wstring& id, const WakeJitter& jitter);

// ---- capture -------------------------------------------------------------------------------
// Takes effect from the next device period of running streams.
ZQPLATFORM_API bool SetCaptureSource(const std::wstring& id, const CaptureSource& source,
                                     std::string* error = nullptr);
// Queues interleaved float frames (the endpoint's channel count) for a Fed source.
ZQPLATFORM_API bool FeedFrames(const std::wstring& id, std::span<const float> interleaved);
ZQPLATFORM_API uint64_t FedFramesPending(const std::wstring& id);

// ---- render --------------------------------------------------------------------------------
// The most recent frames played (up to keepSeconds), oldest first, interleaved float in the
// endpoint's channel count, after the session volume: what a listener hears, also in the WAV
// file. Buffers released silent are zeros. A running stream plays every device period in
// full: what the application did not supply in time is played as silence (an underrun).
ZQPLATFORM_API std::vector<float> RenderedFrames(const std::wstring& id);
ZQPLATFORM_API uint64_t RenderedFrameCount(const std::wstring& id);    // all frames ever played
ZQPLATFORM_API uint64_t RenderedSilentFrames(const std::wstring& id);  // of those, released silent
ZQPLATFORM_API uint64_t UnderrunFrames(const std::wstring& id);        // of those, silence not supplied
ZQPLATFORM_API uint64_t Underruns(const std::wstring& id);             // periods that found too few frames
// The longest stretch, in frames, that the device had to play without data after audio first
// flowed (since the endpoint was added or ClearRendered); a stretch still open counts too.
ZQPLATFORM_API uint64_t LongestGapFrames(const std::wstring& id);
ZQPLATFORM_API void ClearRendered(const std::wstring& id);             // forgets frames and counts
// Writes what is played to a WAV file (32-bit float); an empty path closes the file.
ZQPLATFORM_API bool SetRenderWavFile(const std::wstring& id, const std::string& path,
                                     std::string* error = nullptr);

// ---- sessions and meters -------------------------------------------------------------------
// The endpoint's session (the process's default session): the volume every stream of the
// endpoint is scaled by.
ZQPLATFORM_API float SessionVolume(const std::wstring& id);
ZQPLATFORM_API bool SessionMute(const std::wstring& id);
// Changes the session volume as another program (the system mixer) would: every registered
// IAudioSessionEvents gets OnSimpleVolumeChanged(level, mute, context) on the session event
// thread. Level outside 0..1: false, nothing changes.
ZQPLATFORM_API bool SetSessionVolumeAsOtherProgram(const std::wstring& id, float level, bool mute,
                                                   std::optional<GUID> context = std::nullopt);
ZQPLATFORM_API size_t SessionEventSinkCount(const std::wstring& id);
// The peak IAudioMeterInformation::GetPeakValue reports: the last period of a running stream.
ZQPLATFORM_API float MeterPeak(const std::wstring& id);

// ---- failures and object accounting --------------------------------------------------------
// Makes "Interface::Method" (e.g. "IAudioClient::Initialize") of the endpoint's objects return
// hr without doing anything else; once: only the next call. An empty id matches the objects of
// every endpoint and the enumerator's and collections' own methods. Returns false for a method
// name the engine does not have. Rules are looked at in the order injected.
ZQPLATFORM_API bool InjectFailure(const std::wstring& id, const std::string& method, HRESULT hr, bool once = false);
// A once-rule that lets `skip` matching calls pass first, so that each call of a path can be
// failed in turn.
ZQPLATFORM_API bool InjectFailureAfter(const std::wstring& id, const std::string& method, HRESULT hr, uint32_t skip);
// Rules not used up yet (a once-rule goes when it fails its call).
ZQPLATFORM_API size_t PendingFailures();
// Every method name InjectFailure takes, with the "/Requested" forms of the methods that hand
// out interfaces.
ZQPLATFORM_API std::vector<std::string> InjectableMethods();
ZQPLATFORM_API void ClearFailures();
// The Core Audio call trace, whatever the backend: while on, every method call of an enumerator,
// collection, device or audio object, in order, as "Interface::Method" with " on <endpoint id>"
// for the objects of an endpoint (e.g. "IAudioClient::Start on mic"). Off by default.
ZQPLATFORM_API void TraceCoreAudioCalls(bool on);
ZQPLATFORM_API std::vector<std::string> CoreAudioCalls();
ZQPLATFORM_API void ClearCoreAudioCalls();
// References held on the endpoint's IMMDevice objects (every object GetDevice, Item or
// GetDefaultAudioEndpoint handed out); 0 when nobody holds one.
ZQPLATFORM_API long EndpointRefCount(const std::wstring& id);
// Engine COM objects alive (enumerators, collections, devices, clients, volumes, meters,
// session objects): back at its old value when nothing leaked.
ZQPLATFORM_API long LiveObjectCount();
ZQPLATFORM_API size_t NotificationClientCount();
// Streams of the endpoint between Start and Stop.
ZQPLATFORM_API int RunningStreams(const std::wstring& id);

// ---- waiting for the engine's threads and the stream threads (real time, bounded) ----------
// Until every notification and session event queued so far has been delivered. False on time-out,
// or when called from a notification callback.
ZQPLATFORM_API bool WaitForNotificationsDelivered(uint32_t timeoutMs);
// Counts since the endpoint was added (or ClearRendered for the render counts).
ZQPLATFORM_API uint64_t CapturePacketsReleased(const std::wstring& id);  // ReleaseBuffer of a whole packet
ZQPLATFORM_API uint64_t RenderBuffersReleased(const std::wstring& id);   // successful render ReleaseBuffer
ZQPLATFORM_API uint64_t RenderPeriodsConsumed(const std::wstring& id);   // device periods of render streams
ZQPLATFORM_API bool WaitForCapturePacketsReleased(const std::wstring& id, uint64_t count, uint32_t timeoutMs);
ZQPLATFORM_API bool WaitForRenderBuffersReleased(const std::wstring& id, uint64_t count, uint32_t timeoutMs);

// ---- machine description -------------------------------------------------------------------
// Replaces the machine (as Reset, then adds, without notifications) with the one a file or a
// text describes. On any error: the reason on standard error and in *error, an empty machine,
// false. The format is documented with DefaultMachineDescription (audio/machine_description.cpp).
ZQPLATFORM_API bool LoadMachineDescription(const std::string& path, std::string* error = nullptr);
ZQPLATFORM_API bool LoadMachineDescriptionText(const std::string& xml, std::string* error = nullptr);
// The built-in machine: one KV-1 USB microphone and one speaker.
ZQPLATFORM_API const char* DefaultMachineDescription();

}  // namespace zqvm
