// The control API of the virtual audio engine (zqplatform/vm/audio_machine.h).
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/bridges.h"

#include <cmath>
#include <cstdio>

#include "../coreaudio/com_object.h"
#include "../faults/fault_rules.h"
#include "../faults/method_faults.h"
#include "engine.h"

namespace zqvm {
namespace {

using zqplatform::audio::Engine;
using zqplatform::audio::EndpointState;

std::shared_ptr<EndpointState> Find(const std::wstring& id) { return Engine::Instance().Find(id); }

void Report(const std::string& what, const std::string& why, std::string* error) {
    if (error) *error = why;
    std::fprintf(stderr, "zqplatform: %s: %s\n", what.c_str(), why.c_str());
}

}  // namespace

CaptureSource CaptureSource::Silence() { return CaptureSource{}; }

CaptureSource CaptureSource::Tone(double frequencyHz, double linearAmplitude) {
    CaptureSource source;
    source.kind = Kind::Tone;
    source.frequency = frequencyHz;
    source.amplitude = linearAmplitude;
    return source;
}

CaptureSource CaptureSource::ToneDbfs(double frequencyHz, double levelDbfs) {
    return Tone(frequencyHz, std::pow(10.0, levelDbfs / 20.0));
}

CaptureSource CaptureSource::Impulse(double linearAmplitude, uint32_t intervalFrames) {
    CaptureSource source;
    source.kind = Kind::Impulse;
    source.amplitude = linearAmplitude;
    source.intervalFrames = intervalFrames;
    return source;
}

CaptureSource CaptureSource::WavFile(std::string path, bool loop) {
    CaptureSource source;
    source.kind = Kind::WavFile;
    source.path = std::move(path);
    source.loop = loop;
    return source;
}

CaptureSource CaptureSource::Fed() {
    CaptureSource source;
    source.kind = Kind::Fed;
    return source;
}

std::wstring AddEndpoint(const EndpointSpec& endpointSpec, std::string* error) {
    std::string why;
    std::wstring id = Engine::Instance().Add(endpointSpec, &why);
    if (id.empty()) Report("AddEndpoint", why, error);
    return id;
}

bool RemoveEndpoint(const std::wstring& id) { return Engine::Instance().Remove(id); }
bool SetEndpointState(const std::wstring& id, DWORD state) { return Engine::Instance().SetState(id, state); }
bool InvalidateEndpoint(const std::wstring& id) { return Engine::Instance().SetState(id, DEVICE_STATE_NOTPRESENT); }

bool SetDefaultEndpoint(EDataFlow flow, ERole role, const std::wstring& id) {
    return Engine::Instance().SetDefault(flow, role, id);
}

std::wstring DefaultEndpoint(EDataFlow flow, ERole role) { return Engine::Instance().DefaultId(flow, role); }
std::vector<std::wstring> EndpointIds() { return Engine::Instance().Ids(); }
void Reset() {
    Engine::Instance().Reset();
    RemoveAllBridges();
}

bool SetEndpointClock(const std::wstring& id, double ppm, double phaseMs) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint && endpoint->SetClock(ppm, phaseMs);
}

bool HoldStreamEvents(const std::wstring& id, uint32_t periods) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    if (!endpoint) return false;
    endpoint->heldEvents.store(periods, std::memory_order_relaxed);
    return true;
}

bool SetWakeJitter(const std::wstring& id, const WakeJitter& jitter) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint && endpoint->SetWakeJitter(jitter);
}

bool SetCaptureSource(const std::wstring& id, const CaptureSource& source, std::string* error) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    if (!endpoint || endpoint->flow != eCapture) return false;
    std::string why;
    const auto resolved =
        zqplatform::audio::ResolveSource(source, endpoint->format.Rate(), endpoint->format.Channels(), &why);
    if (!resolved) {
        Report("SetCaptureSource", why, error);
        return false;
    }
    endpoint->SetSource(*resolved);
    return true;
}

bool FeedFrames(const std::wstring& id, std::span<const float> interleaved) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    if (!endpoint || endpoint->flow != eCapture) return false;
    if (interleaved.size() % endpoint->format.Channels() != 0) return false;  // whole frames only
    endpoint->fed.Push(interleaved);
    return true;
}

uint64_t FedFramesPending(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->fed.Pending() / endpoint->format.Channels() : 0;
}

std::vector<float> RenderedFrames(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->sink.Collected() : std::vector<float>();
}

uint64_t RenderedFrameCount(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->sink.Frames() : 0;
}

uint64_t RenderedSilentFrames(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->sink.SilentFrames() : 0;
}

uint64_t UnderrunFrames(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->sink.UnderrunFrames() : 0;
}

uint64_t Underruns(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->sink.Underruns() : 0;
}

uint64_t LongestGapFrames(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->sink.LongestGapFrames() : 0;
}

void ClearRendered(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    if (!endpoint) return;
    endpoint->sink.Clear();
    endpoint->renderBuffersReleased.store(0);
    endpoint->renderPeriods.store(0);
}

bool SetRenderWavFile(const std::wstring& id, const std::string& path, std::string* error) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    if (!endpoint || endpoint->flow != eRender) return false;
    std::string why;
    if (!endpoint->sink.OpenWav(path, &why)) {
        Report("SetRenderWavFile", why, error);
        return false;
    }
    return true;
}

float SessionVolume(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->session->Volume() : 0.0f;
}

bool SessionMute(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint && endpoint->session->Mute();
}

bool SetSessionVolumeAsOtherProgram(const std::wstring& id, float level, bool mute, std::optional<GUID> context) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    if (!endpoint || !(level >= 0.0f && level <= 1.0f)) return false;
    endpoint->session->SetVolumeAndMute(level, mute, context ? &*context : nullptr);
    return true;
}

size_t SessionEventSinkCount(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->session->Sinks().Count() : 0;
}

float MeterPeak(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->Peak() : 0.0f;
}

bool InjectFailure(const std::wstring& id, const std::string& method, HRESULT hr, bool once) {
    Engine::Instance();  // a machine loaded later would clear the rule
    if (!zqplatform::faults::IsInjectableMethod(method)) {
        std::fprintf(stderr, "zqplatform: InjectFailure: no method '%s' in the audio engine\n", method.c_str());
        return false;
    }
    zqplatform::faults::Arm({zqplatform::faults::Armer::Methods, method, id, hr, 0, once ? 1u : 0u});
    return true;
}

bool InjectFailureAfter(const std::wstring& id, const std::string& method, HRESULT hr, uint32_t skip) {
    Engine::Instance();
    if (!zqplatform::faults::IsInjectableMethod(method)) return false;
    zqplatform::faults::Arm({zqplatform::faults::Armer::Methods, method, id, hr, skip, 1});
    return true;
}

size_t PendingFailures() { return zqplatform::faults::ArmedCount(zqplatform::faults::Armer::Methods); }

std::vector<std::string> InjectableMethods() { return zqplatform::faults::InjectableMethodNames(); }

void ClearFailures() { zqplatform::faults::Disarm(zqplatform::faults::Armer::Methods); }

long EndpointRefCount(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->deviceRefs.load() : 0;
}

long LiveObjectCount() { return zqplatform::coreaudio::LiveObjects().load(std::memory_order_acquire); }

size_t NotificationClientCount() { return Engine::Instance().Clients().Count(); }

int RunningStreams(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->runningStreams.load() : 0;
}

bool WaitForNotificationsDelivered(uint32_t timeoutMs) {
    Engine& engine = Engine::Instance();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    const auto left = [deadline] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    };
    // A notification callback may change a session volume and the other way round: wait
    // until both threads are idle together.
    for (;;) {
        if (!engine.Notifications().WaitIdle(std::max(left(), std::chrono::milliseconds(0)))) return false;
        if (!engine.SessionEvents().WaitIdle(std::max(left(), std::chrono::milliseconds(0)))) return false;
        if (engine.Notifications().WaitIdle(std::chrono::milliseconds(0))) return true;
    }
}

uint64_t CapturePacketsReleased(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->capturePacketsReleased.load(std::memory_order_acquire) : 0;
}

uint64_t RenderBuffersReleased(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->renderBuffersReleased.load(std::memory_order_acquire) : 0;
}

uint64_t RenderPeriodsConsumed(const std::wstring& id) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    return endpoint ? endpoint->renderPeriods.load(std::memory_order_acquire) : 0;
}

bool WaitForCapturePacketsReleased(const std::wstring& id, uint64_t count, uint32_t timeoutMs) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    if (!endpoint) return false;
    return zqplatform::audio::WaitForProgress(
        [&] { return endpoint->capturePacketsReleased.load(std::memory_order_acquire) >= count; },
        std::chrono::milliseconds(timeoutMs));
}

bool WaitForRenderBuffersReleased(const std::wstring& id, uint64_t count, uint32_t timeoutMs) {
    const std::shared_ptr<EndpointState> endpoint = Find(id);
    if (!endpoint) return false;
    return zqplatform::audio::WaitForProgress(
        [&] { return endpoint->renderBuffersReleased.load(std::memory_order_acquire) >= count; },
        std::chrono::milliseconds(timeoutMs));
}

}  // namespace zqvm
