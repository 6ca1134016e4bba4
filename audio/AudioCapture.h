// The capture engine: one capture endpoint in shared, event-driven mode and its capture thread.
//
// Threads: the host's thread calls the device and stream operations through the core object;
// the capture thread runs WASAPICaptureThread. Captured audio leaves the thread through three
// buffers that this engine alone holds: the two analyzer feeds and the render queue. Other
// threads reach them only through the operations below, each of which takes m_csPacket for
// its own length: the analyzer thread reads a feed (ReadFeed), the render thread refills its
// device from the queue (WithQueue), and the render engine installs the conversion into its
// device's format (InstallRenderConversion).
//
// Locks: m_csDevices guards m_Devices and the opening and closing of the stream (never held
// while joining the thread); m_csPacket guards the three buffers and the render conversion and
// is held by the capture thread per packet; m_csControls is held only to copy or replace the
// meter and volume pointers, so the meter getters never wait for a device open. Lock order:
// m_csDevices, then m_csControls or m_csPacket; nothing is taken while m_csPacket is held.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "audio/AudioSharedMem.h"
#include "audio/CircularBuffer.h"
#include "audio/EngineDeviceList.h"
#include "audio/MonitorRateControl.h"
#include "audio/ResamplerSetup.h"
#include "core/OwnedCriticalSection.h"
#include "zqPlatform.h"

class CWMAudioDevice;

class CAudioCapture : public CEngineDevices {
public:
    // The two analyzer feeds: what the microphone hears, and what is passed on to the render
    // device. Both carry the same packets; the analyzer drains each for one side.
    enum class Feed { Input, Output };

    CAudioCapture();
    ~CAudioCapture();
    CAudioCapture(const CAudioCapture&) = delete;
    CAudioCapture& operator=(const CAudioCapture&) = delete;

    // Rebuilds m_Devices from copies of the core's microphone list.
    void EnumerateAudioDevices();
    // Stores the core object's bypass flag while holding m_csBypass.
    void StoreBypass(std::atomic<bool>& flag, bool bypass);
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

    // ---- for the other threads ----
    // Analyzer thread: removes up to bytes bytes of the feed's mono samples into dst; returns
    // how many it removed.
    size_t ReadFeed(Feed feed, void* dst, size_t bytes);
    // Render thread (and tests): fill(queue) runs with the packet lock held, for one refill.
    template <typename Fill>
    decltype(auto) WithQueue(Fill&& fill) {
        COwnedCriticalSection::scoped_lock lock(m_csPacket);
        return fill(*m_pSyncHost);
    }
    // Render thread, inside WithQueue at each refill: the frames its device still holds and
    // those queued, for the monitoring path's rate control, which may drop the oldest of the
    // queued ones or ask for silence ahead of them (at start-up, and after the device ran dry),
    // or say that nothing is to be moved this time. Without it: move what is queued.
    CMonitorDepthControl::Refill NoteRefill(CCircularBuffer& queue, size_t devicePadding, size_t blockAlign) {
        ZQ_ASSERT_HELD(m_csPacket);
        if (!m_pRateControl) return {};
        const CMonitorDepthControl::Refill refill =
            m_pRateControl->ObserveRefill(devicePadding, queue.GetCount() / blockAlign);
        queue.Skip(refill.dropFrames * blockAlign);
        return refill;
    }
    // Tests and benchmarks: the rate control of the path to the render device, or null.
    const CMonitorRateControl* RateControl() const { return m_pRateControl.get(); }
    // Tests and benchmarks: visit(input feed, output feed) with the packet lock held.
    template <typename Visit>
    decltype(auto) WithFeeds(Visit&& visit) {
        COwnedCriticalSection::scoped_lock lock(m_csPacket);
        return visit(m_AudioSharedCapture, m_AudioSharedRender);
    }
    // Render engine: the render device's mix format and the resampler into it that the capture
    // thread converts with; both stay the render engine's. Nulls withdraw them, and what is
    // queued for the device that goes is dropped with them: played on another device (of
    // another frame size or sample format) it would be noise.
    void InstallRenderConversion(const WAVEFORMATEX* pMixFormat, SwrContext* pResampler);
    // Meter and session-volume getters, from any thread: the current interfaces, with a
    // reference of the caller's (empty while no device is open).
    CComPtr<IAudioMeterInformation> MeterInfo();
    CComPtr<ISimpleAudioVolume> Volume();

    // Frames the capture thread could not queue for the render device because the queue was
    // full (the newest audio is dropped), since the engine was made. Any thread.
    uint64_t QueueDroppedFrames() const { return m_nQueueDroppedFrames.load(std::memory_order_relaxed); }

    // The capture thread's work for one packet of the open device, under m_csPacket; public so
    // that benchmarks can time it alone. recordedAt: the packet's time stamp from GetBuffer
    // (0: none).
    void ProcessPacket(const BYTE* data, UINT32 frames, UINT64 recordedAt = 0);

    CComPtr<IMMDevice> m_spCaptureDevice;
    CComPtr<IAudioClient> m_spCaptureAudioClient;
    CComPtr<IAudioCaptureClient> m_spCaptureClient;
    CComPtr<ISimpleAudioVolume> m_spVolume;          // written under m_csControls too
    CComPtr<IAudioMeterInformation> m_spMeterInfo;   // written under m_csControls too
    std::atomic<HANDLE> m_CaptureThread;  // read by the meters from other threads
    UniqueHandle m_CaptureShutdownEvent;
    UniqueHandle m_CaptureAudioSamplesReadyEvent;
    CoTaskMemPtr<WAVEFORMATEX> m_pCaptureMixFormat;
    size_t m_nFrameSize;
    UINT32 m_nBufferFrames;
    SwrContextPtr m_pResamplerContext;
private:
    Concurrency::critical_section m_csBypass;

    void CaptureLoop();
    void ForwardToRender(const float* engineFrames, int count, UINT64 recordedAt);
    void SizePacketBuffers(UINT32 frames);

    CAudioSharedMem m_AudioSharedCapture;
    CAudioSharedMem m_AudioSharedRender;
    std::unique_ptr<CCircularBuffer> m_pSyncHost;
    // The render device's format and resampler, installed by the render engine, and the rate
    // control of the path to it (null when turned off), made at the same time.
    const WAVEFORMATEX* m_pRenderFormat;
    SwrContext* m_pRenderResampler;
    std::unique_ptr<CMonitorRateControl> m_pRateControl;
    COwnedCriticalSection m_csPacket;
    Concurrency::critical_section m_csControls;
    // Every step of the last open succeeded: only then is there a stream to start.
    bool m_bStreamOpen = false;
    // A packet whose release failed is still held by the device, which hands out no other until
    // it goes: the capture thread (this one or the next, after a restart) releases it again at
    // its next wake-up. Only the capture thread touches it; the stream's release clears it.
    std::optional<UINT32> m_nUnreleasedFrames;
    std::atomic<uint64_t> m_nQueueDroppedFrames{0};

    // Scratch of the capture thread, sized when a device opens and reused for every packet, so
    // that streaming allocates nothing; a packet larger than any before grows them once.
    std::vector<BYTE> m_vecPacketCopy;     // the packet with its first channel duplicated
    std::vector<float> m_vecEngineFrames;  // the packet in the engine format
    std::vector<BYTE> m_vecRenderFrames;   // the packet in the render device's format
};
