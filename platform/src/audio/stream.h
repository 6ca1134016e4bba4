// One shared-mode stream of an endpoint: its buffer, its device clock and the packet
// bookkeeping behind IAudioClient, IAudioCaptureClient and IAudioRenderClient. Internal to the
// platform library.
//
// Threads: the client's threads call the public methods; the device clock (the platform
// clock's thread, or in stepped mode the thread advancing the clock) runs Tick once per
// device period while started. m_lock guards the buffer bookkeeping; it is held only for
// copies and counts, never while calling out, so the clock never waits on a stream thread
// for longer than one copy. Everything is allocated in Initialize: neither the clock nor
// GetBuffer/ReleaseBuffer allocate.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <vector>

#include "../coreaudio/backend.h"
#include "endpoint_state.h"

namespace zqplatform::audio {

class Stream final : public coreaudio::Stream {
public:
    static constexpr REFERENCE_TIME kDevicePeriod = 100000;  // 10 ms
    static constexpr REFERENCE_TIME kMinimumPeriod = 30000;  // 3 ms, as Windows reports
    static constexpr REFERENCE_TIME kMaximumBuffer = 20000000;  // 2 s

    explicit Stream(const EndpointBinding& binding);
    ~Stream() override;

    HRESULT Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags, REFERENCE_TIME bufferDuration,
                       REFERENCE_TIME periodicity, const WAVEFORMATEX* format) override;
    bool Initialized() override;
    HRESULT BufferSize(UINT32* frames) override;
    HRESULT Padding(UINT32* frames) override;
    // One device period, what the engine holds.
    HRESULT Latency(REFERENCE_TIME* latency) override;
    HRESULT SetEventHandle(HANDLE event) override;
    HRESULT Start() override;
    // A stream of a device that went away still stops (its clock is let go), but says so.
    HRESULT Stop() override;
    HRESULT Reset() override;

    // Render thread: frames written into the write area after those queued, copied into the
    // ring at release (m_lock held for the copy only).
    HRESULT RenderGetBuffer(UINT32 frames, BYTE** data) override;
    HRESULT RenderReleaseBuffer(UINT32 frames, DWORD flags) override;

    // Capture thread: whole packets of the ring the clock fills, oldest first.
    HRESULT NextPacketSize(UINT32* frames) override;
    HRESULT CaptureGetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* devicePosition,
                             UINT64* qpcPosition) override;
    HRESULT CaptureReleaseBuffer(UINT32 frames) override;

private:
    struct Packet {
        uint32_t frames;
        DWORD flags;
        uint64_t position;  // device position of its first frame
        uint64_t qpc;       // platform clock when its first frame was recorded
    };

    void Tick();
    // Sets the period's event: at once, late (zqvm::SetWakeJitter) or, while held, not at all.
    void Signal(HANDLE event);
    void DelayedWake();
    void CaptureTick(uint32_t frames);
    void RenderTick(uint32_t frames);
    // Frames in the next device period (m_lock held): the rate / 100, corrected by the
    // endpoint's clock error, with the remainder carried, so that 100 periods hold exactly one
    // second of the device's frames.
    uint32_t NextPeriodFrames();
    // Peaks per channel of samples (frames × channels) into the endpoint's meter.
    void Meter(const float* samples, uint32_t frames);
    void ApplySessionVolume(float* samples, uint32_t frames) const;
    BYTE* PacketData(size_t slot) { return &m_packetData[slot * m_maxPacketFrames * m_blockAlign]; }
    void StopClock(uint64_t clockId);
    HRESULT StopClocks();

    const EndpointBinding m_binding;
    EndpointState& m_endpoint;
    const bool m_capture;
    const uint32_t m_blockAlign;
    const uint16_t m_channels;

    std::mutex m_lock;
    bool m_initialized = false;
    bool m_eventDriven = false;
    bool m_started = false;
    bool m_held = false;  // between GetBuffer and ReleaseBuffer
    bool m_emptyGet = false;  // capture: the last GetBuffer found nothing; ReleaseBuffer(0) may follow
    HANDLE m_event = nullptr;  // our own duplicate of the client's event
    uint64_t m_clockId = 0;
    uint64_t m_wakeId = 0;  // a late wake-up scheduled on the clock, not yet run
    uint32_t m_bufferFrames = 0;
    uint32_t m_maxPacketFrames = 0;
    uint32_t m_queuedFrames = 0;  // padding
    uint64_t m_periodIndex = 0;
    int64_t m_firstPeriodEnd = 0;  // platform clock: where the device's periods are scheduled
    // The clock error the periods since m_errorSincePeriod were counted with, and the frames
    // counted before that period.
    int64_t m_errorPpb = 0;
    uint64_t m_errorSincePeriod = 0;
    uint64_t m_framesBeforeError = 0;
    uint64_t m_periodFramesTotal = 0;
    uint64_t m_devicePosition = 0;

    // Capture: a ring of packets, packet i of the ring stored in slot i of m_packetData.
    std::vector<Packet> m_packets;
    std::vector<BYTE> m_packetData;
    size_t m_head = 0;
    size_t m_count = 0;
    bool m_discontinuity = false;  // data was lost before the next packet

    // Render: a ring of frames with a silent mark per frame; clients write into m_writeArea,
    // copied into the ring at ReleaseBuffer, so the clock never reads what a client writes.
    std::vector<BYTE> m_ring;
    std::vector<uint8_t> m_ringSilent;
    size_t m_readFrame = 0;
    std::vector<BYTE> m_writeArea;
    uint32_t m_requested = 0;

    // Used by the clock only (one tick at a time).
    std::vector<float> m_scratch;
    SourceGenerator m_generator;
    uint64_t m_sourceSeen = 0;
};

}  // namespace zqplatform::audio
