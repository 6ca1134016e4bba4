// The core's meters, volumes and render mute. Nothing is cached: each call asks the engine's
// current interfaces. An engine releases and replaces those interfaces under its device lock
// when it changes device, so a call takes that lock only to take its own reference, and makes
// the platform call without it.
#include <cmath>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio/AudioSessionVolume.h"
#include "zqCoreAudio.h"

namespace {

constexpr float kSilencePeak = 1.0e-5f;  // -100 dB: for a missing or exactly zero reading
constexpr float kDecibelsPerDecade = 20.0f;

template <typename Engine, typename Interface>
CComPtr<Interface> TakeReference(Engine* engine, CComPtr<Interface> Engine::*member) {
    Concurrency::critical_section::scoped_lock lock(engine->m_csDevices);
    return engine->*member;
}

// The render session's volume interface, with a reference of the caller's.
CComPtr<ISimpleAudioVolume> RenderSessionVolume(CAudioRender* render) {
    Concurrency::critical_section::scoped_lock lock(render->m_csDevices);
    if (render->m_pASV == nullptr) return {};
    return CComPtr<ISimpleAudioVolume>(render->m_pASV->m_pSimpleVolume);
}

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

}  // namespace

float CZQCoreAudio::GetPeakCapture() {
    if (m_pCapture == nullptr) return 0.0f;
    return PercentMeter(TakeReference(m_pCapture, &CAudioCapture::m_spMeterInfo));
}

float CZQCoreAudio::GetPeakRender() {
    if (m_pRender == nullptr) return 0.0f;
    return PercentMeter(TakeReference(m_pRender, &CAudioRender::m_spMeterInfo));
}

// The linear meters read only while both streams run.
float CZQCoreAudio::GetPeakCaptureDBFS() {
    if (m_pCapture == nullptr || m_pRender == nullptr) return 0.0f;
    if (!m_pCapture->IsStarted() || !m_pRender->IsStarted()) return 0.0f;
    return LinearMeter(TakeReference(m_pCapture, &CAudioCapture::m_spMeterInfo));
}

float CZQCoreAudio::GetPeakRenderDBFS() {
    if (m_pCapture == nullptr || m_pRender == nullptr) return 0.0f;
    if (!m_pCapture->IsStarted() || !m_pRender->IsStarted()) return 0.0f;
    return LinearMeter(TakeReference(m_pRender, &CAudioRender::m_spMeterInfo));
}

void CZQCoreAudio::SetCaptureVol(float fLevel) {
    if (m_pCapture == nullptr) return;
    CComPtr<ISimpleAudioVolume> volume = TakeReference(m_pCapture, &CAudioCapture::m_spVolume);
    if (volume) volume->SetMasterVolume(fLevel, nullptr);  // out of range: the platform refuses it
}

float CZQCoreAudio::GetCaptureVol() {
    if (m_pCapture == nullptr) return 0.0f;
    CComPtr<ISimpleAudioVolume> volume = TakeReference(m_pCapture, &CAudioCapture::m_spVolume);
    if (!volume) return 0.0f;
    float level = 0.0f;
    if (FAILED(volume->GetMasterVolume(&level))) return 0.0f;
    return level;
}

// The render volume goes through the session-volume object, with the library's event context:
// that object recognises the change as ours and does not tell the host about it.
void CZQCoreAudio::SetRenderVol(float fLevel) {
    if (m_pRender == nullptr) return;
    CComPtr<ISimpleAudioVolume> volume = RenderSessionVolume(m_pRender);
    if (volume) volume->SetMasterVolume(fLevel, &g_guidVolumeEventContext);
}

float CZQCoreAudio::GetRenderVol() {
    if (m_pCapture == nullptr || m_pRender == nullptr) return 0.0f;
    CComPtr<ISimpleAudioVolume> volume = RenderSessionVolume(m_pRender);
    if (!volume) return 0.0f;
    float level = 0.0f;
    volume->GetMasterVolume(&level);  // a failure leaves what the call left, 0.0 if nothing
    return level;
}

void CZQCoreAudio::MuteRender(bool bMute) {
    if (m_pCapture == nullptr || m_pRender == nullptr) return;
    m_pRender->m_bMute.store(bMute);
}

bool CZQCoreAudio::IsRenderMute() {
    if (m_pCapture == nullptr || m_pRender == nullptr) return false;
    return m_pRender->m_bMute.load();
}
