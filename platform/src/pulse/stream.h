// One shared-mode stream on a sink (render) or source (capture) of the sound server, behind
// IAudioClient, IAudioCaptureClient and IAudioRenderClient. Internal to the platform library.
//
// Each stream owns a ring of the device's frames (32-bit float, the device's rate and channels),
// sized at Initialize. libpulse's callbacks run on the main loop's thread: a capture stream's
// read callback copies what the server recorded into the ring, a render stream's write callback
// (and a timer of one device period, for when the server asks for nothing) moves what the ring
// holds to the server; both then set the client's event. GetBuffer, ReleaseBuffer,
// GetCurrentPadding and GetNextPacketSize touch only the ring and atomics: the capture and
// render threads never take the main loop's lock, wait for the server or allocate. A render
// ReleaseBuffer also kicks the loop (LoopKick, one eventfd write), so what was queued goes to
// the server at once rather than at its next request.
//
// A render stream's padding is what a desktop engine's is: every frame not yet played, the
// ring's and the server's. The server's part comes from its timing (the write index against
// the sink's read index, plus the sink's configured latency), asked for every 100 ms by the
// timer; the loop's thread turns each answer, and each write between answers, into one atomic,
// the moment the server would run dry (m_serverDrainsAt), and the render thread counts down
// from it with the clock alone. So the depth a client acts on is the latency the listener
// hears, and it falls smoothly between the server's blocks instead of in steps. (libpulse's
// interpolated latency is not used: after a stall its clock runs ahead of the writes and stays
// there, reading 0.)
//
// What the server is asked to buffer (render): tlength of two device periods and minreq of half
// of one, with PA_STREAM_ADJUST_LATENCY, so the server splits the two periods into a sink
// latency of about half a period and its own queue; a client that queues more keeps the rest in
// the ring (counted all the same). prebuf is one frame: like a desktop engine, the stream plays
// what it is given as soon as it has any, also after an underrun, instead of waiting for a full
// buffer (which would add its length to the latency for good). Capture: fragments of half a
// period. A server that runs its graph in cycles hands a fragment over at the first cycle's end
// that completes it: PipeWire, cycling every 5.3 ms under our render stream, held a whole
// period's fragment for two cycles (10.7 ms), and a packet's last frame waited that long; half
// a period goes at every cycle. (The ring still hands the capture thread whole packets.)
//
// Each stream talks to the server over a link of its own (Connection::TakeLink at Initialize:
// a new one, or the one a closed stream handed back): its pa_stream, callbacks, timer and loop
// thread are the link's, and the loop lock a stream's calls take is the link's. The backend's
// connection keeps what is shared: the endpoints, the sessions, and which of our streams a
// volume change of the server's belongs to. The two locks are never held together.
//
// The stream opens on its own device and does not follow the server's moves (a stream whose
// device goes is killed, not moved); from then on, or once the server has gone, every call
// answers AUDCLNT_E_DEVICE_INVALIDATED (Stop still stops).
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "../coreaudio/backend.h"
#include "byte_ring.h"
#include "connection.h"
#include "loop_kick.h"
#include "session.h"

namespace zqplatform::pulse {

class Stream final : public coreaudio::Stream {
public:
    static constexpr REFERENCE_TIME kDevicePeriod = 100000;  // 10 ms
    static constexpr REFERENCE_TIME kMinimumPeriod = 30000;
    // A capture ring holds at least this much, so a late capture thread loses nothing.
    static constexpr REFERENCE_TIME kMinimumCaptureRing = 2000000;  // 200 ms

    Stream(std::shared_ptr<Connection> connection, Endpoint endpoint, std::shared_ptr<Session> session);
    ~Stream() override;

    // Client threads; each takes the loop lock for what it asks of the server.
    HRESULT Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags, REFERENCE_TIME bufferDuration,
                       REFERENCE_TIME periodicity, const WAVEFORMATEX* format) override;
    // Start uncorks the server's stream and Stop corks it; Reset empties the ring.
    HRESULT Start() override;
    HRESULT Stop() override;
    HRESULT Reset() override;
    HRESULT SetEventHandle(HANDLE event) override;
    // What the server reports: the time a sample takes from the client to the speaker (render)
    // or from the microphone to the client (capture).
    HRESULT Latency(REFERENCE_TIME* latency) override;

    // Any thread, the capture and render threads included: atomics and the ring only.
    bool Initialized() override { return m_initialized.load(std::memory_order_acquire); }
    HRESULT BufferSize(UINT32* frames) override;
    HRESULT Padding(UINT32* frames) override;
    HRESULT CaptureGetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* devicePosition,
                             UINT64* qpcPosition) override;
    HRESULT CaptureReleaseBuffer(UINT32 frames) override;
    HRESULT NextPacketSize(UINT32* frames) override;
    // A release also kicks the loop (one eventfd write), so the frames go out at once.
    HRESULT RenderGetBuffer(UINT32 frames, BYTE** data) override;
    HRESULT RenderReleaseBuffer(UINT32 frames, DWORD flags) override;

private:
    // Loop thread.
    static void OnState(pa_stream* stream, void* self);
    static void OnRead(pa_stream* stream, size_t bytes, void* self);
    static void OnWrite(pa_stream* stream, size_t bytes, void* self);
    static void OnTimer(pa_mainloop_api* api, pa_time_event* event, const struct timeval* when, void* self);
    static void OnTiming(pa_stream* stream, void* self);
    static void OnUnderflow(pa_stream* stream, void* self);
    void Pull();  // capture: server to ring
    // Render: ring to server; signal tells the client there is room (not after a kick, which
    // the client's own release caused).
    void Push(bool signal = true);
    // Render: m_serverDrainsAt from the server's latest timing, and moved on by each write.
    void NoteServerTiming();
    void NoteServerWrite(size_t bytes);
    int64_t FramesToNanoseconds(uint64_t frames) const;
    // Render thread (any): the frames the server still holds, counted down from m_serverDrainsAt.
    uint32_t ServerHeldFrames() const;
    void Signal() const;
    void NotePeak(const uint8_t* data, size_t bytes);
    // Initialize's two halves: the stream made on a new link and connected (taking the link's
    // lock), then made known to the backend's connection and the session (taking its lock).
    HRESULT OpenOnLink(const pa_sample_spec& sampleSpec);
    void Attach(uint8_t channels);
    // The link's loop lock: undoes what Initialize built on the link.
    void CloseLocked();
    // The backend's connection and the session no longer route volumes to the stream.
    void Detach();
    HRESULT Check() const;
    bool Valid() const {
        return !m_invalid.load(std::memory_order_acquire) && m_connection->Alive() && (!m_link || m_link->Alive());
    }

    const std::shared_ptr<Connection> m_connection;  // the backend's
    std::shared_ptr<Connection> m_link;  // the stream's own, from Initialize on (fixed once initialized)
    const Endpoint m_endpoint;
    const std::shared_ptr<Session> m_session;
    const bool m_capture;
    const uint32_t m_blockAlign;

    std::atomic<bool> m_initialized{false};
    std::atomic<bool> m_started{false};
    std::atomic<bool> m_invalid{false};
    bool m_eventDriven = false;
    bool m_closing = false;  // link's loop lock: our own disconnect, not a failure
    HANDLE m_event = nullptr;  // our duplicate of the client's event; fixed while started
    pa_stream* m_stream = nullptr;  // link's loop lock
    pa_time_event* m_timer = nullptr;  // link's loop lock
    uint32_t m_serverIndex = PA_INVALID_INDEX;

    uint32_t m_bufferFrames = 0;
    uint32_t m_packetFrames = 0;  // one device period
    ByteRing m_ring;
    LoopKick m_kick;  // render
    // Render: steady-clock nanoseconds at which the server will have played everything it
    // holds, as of its latest timing (0: holds nothing). Written by the loop's thread only.
    std::atomic<int64_t> m_serverDrainsAt{0};
    int64_t m_sinkPart = 0;  // loop thread: the sink's latency at the latest timing, in ns
    static constexpr unsigned kTimingTicks = 10;  // timer ticks between timing requests
    unsigned m_ticks = 0;                         // loop thread

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
