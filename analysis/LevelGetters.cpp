// The core's meters, volumes and render mute, callable from any thread at any time of the core
// object's life: admitted by a components reader, they return the empty value while the
// components are not there (before Init, during and after Shutdown). Nothing is cached: each
// call asks the engine's current interfaces, which the engine hands out under a lock it holds
// only for the copy, and the platform call is made without it.
#include <cmath>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio/AudioSessionVolume.h"
#include "core/ComponentsReader.h"
#include "zqCoreAudio.h"

namespace {

constexpr float kSilencePeak = 1.0e-5f;  // -100 dB: for a missing or exactly zero reading
constexpr float kDecibelsPerDecade = 20.0f;

float PercentMeter(IAudioMeterInformation* meter) {
    float peak = kSilencePeak;
    if (meter != nullptr) {
        peak = 0.0f;
        meter->GetPeakValue(&peak);  // a failure leaves 0.0: silence
        if (peak == 0.0f) peak = kSilencePeak;
    }
    return PPM2Percent(log10f(std::fabs(peak)) * kDecibelsPerDecade);
}

float LinearMeter(IAudioMeterInformation* meter) {
    if (meter == nullptr) return 0.0f;
    float peak = 0.0f;
    meter->GetPeakValue(&peak);
    return peak;
}

bool BothStarted(const CAudioCapture& capture, const CAudioRender& render) {
    return capture.IsStarted() && render.IsStarted();
}

void SetLevel(const CComPtr<ISimpleAudioVolume>& volume, float level, LPCGUID context) {
    if (volume) volume->SetMasterVolume(level, context);
}

float ReadLevel(const CComPtr<ISimpleAudioVolume>& volume) {
    float level = 0.0f;
    if (!volume || FAILED(volume->GetMasterVolume(&level))) return 0.0f;
    return level;
}

}  // namespace

// The volumes through which the levels are read and set, with a reference of the caller's.
CComPtr<ISimpleAudioVolume> CZQCoreAudio::CaptureVolume() {
    return CComponentsReader::Use(*this, CComPtr<ISimpleAudioVolume>(),
                                  [](const CComponentsReader& components) { return components.Capture().Volume(); });
}

CComPtr<ISimpleAudioVolume> CZQCoreAudio::RenderVolume() {
    return CComponentsReader::Use(*this, CComPtr<ISimpleAudioVolume>(), [](const CComponentsReader& components) {
        return components.Render().SessionVolume();
    });
}

float CZQCoreAudio::GetPeakCapture() {
    return CComponentsReader::Use(*this, 0.0f, [](const CComponentsReader& components) {
        return PercentMeter(components.Capture().MeterInfo());
    });
}

float CZQCoreAudio::GetPeakRender() {
    return CComponentsReader::Use(*this, 0.0f, [](const CComponentsReader& components) {
        return PercentMeter(components.Render().MeterInfo());
    });
}

// The linear meters read only while both streams run.
float CZQCoreAudio::GetPeakCaptureDBFS() {
    return CComponentsReader::Use(*this, 0.0f, [](const CComponentsReader& components) {
        return BothStarted(components.Capture(), components.Render()) ? LinearMeter(components.Capture().MeterInfo()) : 0.0f;
    });
}

float CZQCoreAudio::GetPeakRenderDBFS() {
    return CComponentsReader::Use(*this, 0.0f, [](const CComponentsReader& components) {
        return BothStarted(components.Capture(), components.Render()) ? LinearMeter(components.Render().MeterInfo()) : 0.0f;
    });
}

void CZQCoreAudio::SetCaptureVol(float fLevel) {
    // Out of range: the platform refuses it.
    SetLevel(CaptureVolume(), fLevel, nullptr);
}

float CZQCoreAudio::GetCaptureVol() {
    return ReadLevel(CaptureVolume());
}

// The render volume goes through the session-volume object, with the library's event context:
// that object recognises the change as ours and does not tell the host about it.
void CZQCoreAudio::SetRenderVol(float fLevel) {
    SetLevel(RenderVolume(), fLevel, &g_guidVolumeEventContext);
}

float CZQCoreAudio::GetRenderVol() {
    return ReadLevel(RenderVolume());
}

void CZQCoreAudio::MuteRender(bool bMute) {
    CComponentsReader::Use(*this, false, [bMute](const CComponentsReader& components) {
        components.Render().m_bMute.store(bMute);
        return true;
    });
}

bool CZQCoreAudio::IsRenderMute() {
    return CComponentsReader::Use(*this, false, [](const CComponentsReader& components) {
        return components.Render().m_bMute.load();
    });
}
