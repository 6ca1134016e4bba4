// The capture engine: one capture endpoint in shared, event-driven mode and its capture thread.
//
// Threads: the host's thread calls every operation through the core object; the capture
// thread runs WASAPICaptureThread; the render thread and the analyzer thread read the three
// buffers below under m_csPacket. Locks: m_csDevices guards m_Devices and the opening and
// closing of the stream (never held while joining the thread); m_csPacket guards the three
// buffers and the capture thread's use of the render engine's resampler and mix format; no lock
// is taken while m_csPacket is held.
#pragma once

#include <atomic>
#include <vector>

#include "AudioSharedMem.h"
#include "CircularBuffer.h"
#include "zqPlatform.h"

struct SwrContext;
class CWMAudioDevice;

class CAudioCapture {
public:
    CAudioCapture();
    ~CAudioCapture();
    CAudioCapture(const CAudioCapture&) = delete;
    CAudioCapture& operator=(const CAudioCapture&) = delete;

    // Rebuilds m_Devices from copies of the core's microphone list.
    void EnumerateAudioDevices();
    // Stops the stream and deletes the records of m_Devices.
    void ReleaseAudioDevices();
    // Opens the first record of m_Devices; E_FAIL when the list is empty.
    HRESULT SetFirstAudioDevice();
    // Releases the current stream and prepares pDevice (null: 1, nothing opened).
    HRESULT SetAudioDevice(IMMDevice* pDevice);
    // Stops the stream and releases everything SetAudioDevice built.
    void ReleaseResoursesAudio();
    // Starts the thread and the audio client; true when both run (also when already running).
    bool StartCapture();
    void StopCapture();
    bool IsStarted() const { return m_CaptureThread != nullptr; }

    static DWORD WINAPI WASAPICaptureThread(LPVOID pContext);

    // Read by the core and the render engine under the locks named above.
    CComPtr<IMMDevice> m_spCaptureDevice;
    CComPtr<IAudioClient> m_spCaptureAudioClient;
    CComPtr<IAudioCaptureClient> m_spCaptureClient;
    CComPtr<ISimpleAudioVolume> m_spVolume;
    CComPtr<IAudioMeterInformation> m_spMeterInfo;
    std::atomic<HANDLE> m_CaptureThread;  // read by the meters from other threads
    HANDLE m_CaptureShutdownEvent;
    HANDLE m_CaptureAudioSamplesReadyEvent;
    WAVEFORMATEX* m_pCaptureMixFormat;
    size_t m_nFrameSize;
    UINT32 m_nBufferFrames;
    CAudioSharedMem m_AudioSharedCapture;
    CAudioSharedMem m_AudioSharedRender;
    CCircularBuffer* m_pSyncHost;
    SwrContext* m_pResamplerContext;
    Concurrency::critical_section m_csPacket;
    Concurrency::critical_section m_csBypass;
    std::vector<CWMAudioDevice*> m_Devices;
    Concurrency::critical_section m_csDevices;

    // The capture thread's work for one packet of the open device, with m_csPacket held;
    // public so that benchmarks can time it alone.
    void ProcessPacket(const BYTE* data, UINT32 frames);

private:
    void CaptureLoop();
    void ForwardToRender(const float* engineFrames, int count);
    void SizePacketBuffers(UINT32 frames);

    // Scratch of the capture thread, sized when a device opens and reused for every packet, so
    // that streaming allocates nothing; a packet larger than any before grows them once.
    std::vector<BYTE> m_vecPacketCopy;     // the packet with its first channel duplicated
    std::vector<float> m_vecEngineFrames;  // the packet in the engine format
    std::vector<BYTE> m_vecRenderFrames;   // the packet in the render device's format
};
