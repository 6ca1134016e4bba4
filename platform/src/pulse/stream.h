// One shared-mode stream on a sink (render) or source (capture) of the sound server, behind
// IAudioClient, IAudioCaptureClient and IAudioRenderClient. Internal to the platform library.
//
// Each stream owns a ring of the device's frames (32-bit float, the device's rate and channels),
// sized at Initialize. libpulse's callbacks run on the main loop's thread: a capture stream's
// read callback copies what the server recorded into the ring, a render stream's write callback
// (and a timer of one device period, for when the server asks for nothing) moves what the ring
// holds to the server; both then set the client's event. GetBuffer, ReleaseBuffer,
// GetCurrentPadding and GetNextPacketSize touch only the ring and atomics: the capture and
// render threads never take the main loop's lock, wait for the server or allocate.
//
// The stream opens on its own device and does not follow the server's moves (a stream whose
// device goes is killed, not moved); from then on, or once the server has gone, every call
// answers AUDCLNT_E_DEVICE_INVALIDATED (Stop still stops).
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "byte_ring.h"
#include "connection.h"
#include "session.h"

namespace zqplatform::pulse {

class Stream {
public:
    static constexpr REFERENCE_TIME kDevicePeriod = 100000;  // 10 ms
    static constexpr REFERENCE_TIME kMinimumPeriod = 30000;
    // A capture ring holds at least this much, so a late capture thread loses nothing.
    static constexpr REFERENCE_TIME kMinimumCaptureRing = 2000000;  // 200 ms

    Stream(std::shared_ptr<Connection> connection, Endpoint endpoint, std::shared_ptr<Session> session);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    const Endpoint& Device() const { return m_endpoint; }
    const std::shared_ptr<Session>& SessionOfStream() const { return m_session; }
    const std::shared_ptr<Connection>& ConnectionOfStream() const { return m_connection; }
    bool Valid() const { return !m_invalid.load(std::memory_order_acquire) && m_connection->Alive(); }

    HRESULT Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags, REFERENCE_TIME bufferDuration,
                       const WAVEFORMATEX* format);
    bool Initialized() const { return m_initialized.load(std::memory_order_acquire); }
    HRESULT BufferSize(UINT32* frames) const;
    HRESULT Padding(UINT32* frames) const;
    // What the server reports: the time a sample takes from the client to the speaker (render)
    // or from the microphone to the client (capture).
    HRESULT Latency(REFERENCE_TIME* latency);
    HRESULT SetEventHandle(HANDLE event);
    HRESULT Start();
    HRESULT Stop();
    HRESULT Reset();

    HRESULT CaptureGetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* devicePosition, UINT64* qpcPosition);
    HRESULT CaptureReleaseBuffer(UINT32 frames);
    HRESULT NextPacketSize(UINT32* frames) const;

    HRESULT RenderGetBuffer(UINT32 frames, BYTE** data);
    HRESULT RenderReleaseBuffer(UINT32 frames, DWORD flags);

private:
    // Loop thread.
    static void OnState(pa_stream* stream, void* self);
    static void OnRead(pa_stream* stream, size_t bytes, void* self);
    static void OnWrite(pa_stream* stream, size_t bytes, void* self);
    static void OnTimer(pa_mainloop_api* api, pa_time_event* event, const struct timeval* when, void* self);
    void Pull();  // capture: server to ring
    void Push();  // render: ring to server
    void Signal() const;
    void NotePeak(const uint8_t* data, size_t bytes);
    // Loop lock: undoes what Initialize built.
    void CloseLocked();
    HRESULT Check() const;

    const std::shared_ptr<Connection> m_connection;
    const Endpoint m_endpoint;
    const std::shared_ptr<Session> m_session;
    const bool m_capture;
    const uint32_t m_blockAlign;

    std::atomic<bool> m_initialized{false};
    std::atomic<bool> m_started{false};
    std::atomic<bool> m_invalid{false};
    bool m_eventDriven = false;
    bool m_closing = false;  // loop lock: our own disconnect, not a failure
    HANDLE m_event = nullptr;  // our duplicate of the client's event; fixed while started
    pa_stream* m_stream = nullptr;  // loop lock
    pa_time_event* m_timer = nullptr;  // loop lock
    uint32_t m_serverIndex = PA_INVALID_INDEX;

    uint32_t m_bufferFrames = 0;
    uint32_t m_packetFrames = 0;  // one device period
    ByteRing m_ring;

    // Capture thread.
    std::vector<uint8_t> m_packet;  // a packet that wraps around the ring end, copied whole
    uint32_t m_heldFrames = 0;
    bool m_held = false;
    uint64_t m_position = 0;
    std::atomic<bool> m_discontinuity{false};  // set by the loop thread when the ring overflowed

    // Render thread.
    std::vector<uint8_t> m_writeArea;  // for a request that would wrap around the ring end
    uint32_t m_requested = 0;
    bool m_requestHeld = false;
    bool m_inWriteArea = false;
};

}  // namespace zqplatform::pulse
