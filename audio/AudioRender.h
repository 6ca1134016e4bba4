// The render engine: one render endpoint in shared, event-driven mode and its render thread,
// which moves the frames the capture thread queued into the device. The engine owns the
// resampler from the engine format to the device's format; the capture thread drives it once
// this engine has installed it into the capture engine (InstallRenderConversion), and this
// engine withdraws it there before it frees it.
//
// Threads: the host's thread calls every operation through the core object; the render thread
// runs WASAPIRenderThread and refills the device from the capture engine's queue under that
// engine's packet lock. Locks: m_csDevices guards m_Devices and the opening and closing of the
// stream; m_csControls is held only to copy or replace the meter and session-volume pointers.
// Lock order: m_csDevices, then the capture engine's m_csPacket or m_csControls.
#pragma once

#include <atomic>
#include <optional>
#include <vector>

#include "audio/AudioSessionVolume.h"
#include "audio/EngineDeviceList.h"
#include "audio/ResamplerSetup.h"
#include "core/OwnedCriticalSection.h"
#include "zqPlatform.h"

class CWMAudioDevice;
class CAudioCapture;

class CAudioRender : public CEngineDevices {
public:
    CAudioRender();
    ~CAudioRender();
    CAudioRender(const CAudioRender&) = delete;
    CAudioRender& operator=(const CAudioRender&) = delete;

    // Lists "Default" (the system's default multimedia endpoint) and every active endpoint.
    void EnumerateAudioDevices();
    // Deletes the records of m_Devices; does not stop the stream.
    void ReleaseAudioDevices();
    HRESULT SetAudioDevice(IMMDevice* pDevice);
    void ReleaseResoursesAudio();
    bool StartRender();
    void StopRender();
    bool IsStarted() const { return m_RenderThread != nullptr; }

    static DWORD WINAPI WASAPIRenderThread(LPVOID pContext);

    // Meter and session-volume getters, from any thread: the current interfaces, with a
    // reference of the caller's (empty while no device is open).
    CComPtr<IAudioMeterInformation> MeterInfo();
    CComPtr<ISimpleAudioVolume> SessionVolume();

    CComPtr<IMMDevice> m_spRenderDevice;
    CComPtr<IAudioClient> m_spRenderAudioClient;
    CComPtr<IAudioRenderClient> m_spRenderClient;
    CComPtr<IAudioMeterInformation> m_spMeterInfo;  // written under m_csControls too
    CComPtr<ISimpleAudioVolume> m_spVolume;
    std::atomic<HANDLE> m_RenderThread;  // read by the meters from other threads
    UniqueHandle m_RenderShutdownEvent;
    UniqueHandle m_RenderAudioSamplesReadyEvent;
    CoTaskMemPtr<WAVEFORMATEX> m_pRenderMixFormat;
    UINT32 m_nBufferFrames;
    SwrContextPtr m_pResamplerContext;
    CComPtr<CAudioSessionVolume> m_pASV;  // written under m_csControls too
    // Written by the host's thread, read by the render thread at every buffer: one whole byte.
    std::atomic<bool> m_bMute;
private:

    void RenderLoop(CAudioCapture* capture);
    // Installs this engine's mix format and resampler into the capture engine, or withdraws
    // them (install false); nothing without a capture engine.
    void ShareConversion(bool install);

    Concurrency::critical_section m_csControls;
    // Every step of the last open succeeded: only then is there a stream to start.
    bool m_bStreamOpen = false;
    // A buffer whose hand-over failed is still held by the device: the render thread (this one
    // or the next, after a restart) hands it over again at its next wake-up, before anything
    // else. Only the render thread touches it; the stream's release clears it.
    struct Unreleased {
        UINT32 frames;
        DWORD flags;
    };
    std::optional<Unreleased> m_unreleased;
};
