// The render engine: one render endpoint in shared, event-driven mode and its render thread,
// which moves the frames the capture thread queued into the device. The engine owns the
// resampler from the engine format to the device's format; the capture thread drives it.
//
// Threads: the host's thread calls every operation through the core object; the render thread
// runs WASAPIRenderThread; the capture thread reads m_pResamplerContext and m_pRenderMixFormat
// under the capture engine's m_csPacket, so this engine replaces them only under that lock too.
// Lock order: m_csDevices, then the capture engine's m_csPacket.
#pragma once

#include <atomic>
#include <vector>

#include "zqPlatform.h"

struct SwrContext;
class CWMAudioDevice;
class CAudioCapture;
class CAudioSessionVolume;

class CAudioRender {
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

    CComPtr<IMMDevice> m_spRenderDevice;
    CComPtr<IAudioClient> m_spRenderAudioClient;
    CComPtr<IAudioRenderClient> m_spRenderClient;
    CComPtr<IAudioMeterInformation> m_spMeterInfo;
    CComPtr<ISimpleAudioVolume> m_spVolume;
    std::atomic<HANDLE> m_RenderThread;  // read by the meters from other threads
    HANDLE m_RenderShutdownEvent;
    HANDLE m_RenderAudioSamplesReadyEvent;
    WAVEFORMATEX* m_pRenderMixFormat;
    UINT32 m_nBufferFrames;
    SwrContext* m_pResamplerContext;
    CAudioSessionVolume* m_pASV;
    // Written by the host's thread, read by the render thread at every buffer: one whole byte.
    std::atomic<bool> m_bMute;
    std::vector<CWMAudioDevice*> m_Devices;
    Concurrency::critical_section m_csDevices;

private:
    void RenderLoop(CAudioCapture* capture);
    // Installs (or removes, with nulls) the mix format and resampler the capture thread uses.
    void SwapConversion(WAVEFORMATEX*& mixFormat, SwrContext*& resampler);
};
