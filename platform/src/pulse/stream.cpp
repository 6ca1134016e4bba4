// A stream on the sound server with its ring between libpulse's thread and the client's.
#include "stream.h"

#include <pulse/rtclock.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>

#include "../audio/text.h"
#include "zqplatform/win/debugapi.h"
#include "zqplatform/win/kernel.h"
#include "zqplatform/win/systime.h"

namespace zqplatform::pulse {
namespace {

int64_t SteadyNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

uint32_t FramesIn(REFERENCE_TIME duration, uint32_t rate) {
    return static_cast<uint32_t>((static_cast<uint64_t>(duration) * rate + 9999999) / 10000000);
}

// The one format shared mode takes: the device's mix format, 32-bit float.
bool IsMixFormat(const WAVEFORMATEX* format, const pa_sample_spec& sampleSpec) {
    if (format->nChannels != sampleSpec.channels || format->nSamplesPerSec != sampleSpec.rate || format->wBitsPerSample != 32)
        return false;
    if (format->wFormatTag == WAVE_FORMAT_IEEE_FLOAT) return true;
    if (format->wFormatTag != WAVE_FORMAT_EXTENSIBLE || format->cbSize < 22) return false;
    const auto* extensible = reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(format);
    return extensible->SubFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
}

void Report(const Endpoint& endpoint, const char* what, const char* why) {
    const std::wstring text = L"zqplatform: pulse: " + audio::WideFromUtf8(what) + L" on " + endpoint.id + L" (" +
                              std::to_wstring(endpoint.sampleSpec.rate) + L" Hz, " +
                              std::to_wstring(endpoint.sampleSpec.channels) + L" channels): " + audio::WideFromUtf8(why) +
                              L"\n";
    OutputDebugStringW(text.c_str());
}

}  // namespace

Stream::Stream(std::shared_ptr<Connection> connection, Endpoint endpoint, std::shared_ptr<Session> session)
    : m_connection(std::move(connection)),
      m_endpoint(std::move(endpoint)),
      m_session(std::move(session)),
      m_capture(m_endpoint.flow == eCapture),
      m_blockAlign(static_cast<uint32_t>(m_endpoint.sampleSpec.channels) * sizeof(float)) {}

Stream::~Stream() {
    if (m_link) {
        {
            Connection::Locked lock(*m_link);
            CloseLocked();
        }
        m_connection->ReturnLink(std::move(m_link));
    }
    Detach();
    if (m_event != nullptr) CloseHandle(m_event);
}

void Stream::CloseLocked() {
    m_kick.Close();
    if (m_timer != nullptr) {
        m_link->Api()->time_free(m_timer);
        m_timer = nullptr;
    }
    if (m_stream != nullptr) {
        m_closing = true;
        pa_stream_set_state_callback(m_stream, nullptr, nullptr);
        pa_stream_set_read_callback(m_stream, nullptr, nullptr);
        pa_stream_set_write_callback(m_stream, nullptr, nullptr);
        pa_stream_set_latency_update_callback(m_stream, nullptr, nullptr);
        pa_stream_disconnect(m_stream);
        pa_stream_unref(m_stream);
        m_stream = nullptr;
    }
}

void Stream::Detach() {
    if (m_serverIndex == PA_INVALID_INDEX) return;
    Connection::Locked lock(*m_connection);
    m_connection->DetachStream(m_endpoint.flow, m_serverIndex);
    m_session->RemoveStream(m_serverIndex);
    m_serverIndex = PA_INVALID_INDEX;
}

HRESULT Stream::Check() const {
    if (!m_initialized.load(std::memory_order_acquire)) return AUDCLNT_E_NOT_INITIALIZED;
    if (!Valid()) return AUDCLNT_E_DEVICE_INVALIDATED;
    return S_OK;
}

HRESULT Stream::Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags, REFERENCE_TIME bufferDuration,
                           REFERENCE_TIME /*periodicity: the server's*/, const WAVEFORMATEX* format) {
    if (Initialized()) return AUDCLNT_E_ALREADY_INITIALIZED;
    if (!Valid()) return AUDCLNT_E_DEVICE_INVALIDATED;
    // A desktop server mixes every stream: there is no exclusive mode to give.
    if (shareMode != AUDCLNT_SHAREMODE_SHARED) return AUDCLNT_E_UNSUPPORTED_FORMAT;
    if (!IsMixFormat(format, m_endpoint.sampleSpec)) return AUDCLNT_E_UNSUPPORTED_FORMAT;
    if (bufferDuration < 0) return E_INVALIDARG;

    const uint32_t rate = m_endpoint.sampleSpec.rate;
    m_eventDriven = (streamFlags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK) != 0;
    m_packetFrames = std::max<uint32_t>(1, FramesIn(kDevicePeriod, rate));
    m_bufferFrames = std::max(FramesIn(bufferDuration, rate), 2 * m_packetFrames);
    if (m_capture) m_bufferFrames = std::max(m_bufferFrames, FramesIn(kMinimumCaptureRing, rate));
    try {
        m_ring.Allocate(size_t{m_bufferFrames} * m_blockAlign);
        (m_capture ? m_packet : m_writeArea).assign(size_t{m_bufferFrames} * m_blockAlign, 0);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }

    pa_sample_spec sampleSpec = m_endpoint.sampleSpec;
    sampleSpec.format = PA_SAMPLE_FLOAT32LE;
    if (const HRESULT hr = OpenOnLink(sampleSpec); FAILED(hr)) {
        if (m_link) m_connection->ReturnLink(std::move(m_link));
        return hr;
    }
    Attach(sampleSpec.channels);
    m_initialized.store(true, std::memory_order_release);
    return S_OK;
}

HRESULT Stream::OpenOnLink(const pa_sample_spec& sampleSpec) {
    std::string why;
    m_link = m_connection->TakeLink(&why);
    if (!m_link) {
        Report(m_endpoint, "cannot connect a stream", why.c_str());
        return AUDCLNT_E_DEVICE_INVALIDATED;
    }
    Connection::Locked lock(*m_link);
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_MEDIA_ROLE, m_capture ? "production" : "music");
    m_stream = pa_stream_new_with_proplist(m_link->Context(), m_capture ? "zqCoreAudio capture" : "zqCoreAudio render",
                                           &sampleSpec, &m_endpoint.channelMap, properties);
    pa_proplist_free(properties);
    if (m_stream == nullptr) {
        Report(m_endpoint, "cannot make a stream", pa_strerror(pa_context_errno(m_link->Context())));
        return AUDCLNT_E_UNSUPPORTED_FORMAT;
    }
    pa_stream_set_state_callback(m_stream, &Stream::OnState, this);
    if (m_capture)
        pa_stream_set_read_callback(m_stream, &Stream::OnRead, this);
    else
        pa_stream_set_write_callback(m_stream, &Stream::OnWrite, this);

    // What each side needs for 10 ms periods and no more (see stream.h): the server's latency
    // is part of the depth the client keeps, so every millisecond asked for here is heard.
    const uint32_t periodBytes = m_packetFrames * m_blockAlign;
    const uint32_t halfPeriodBytes = std::max<uint32_t>(1, m_packetFrames / 2) * m_blockAlign;
    const uint32_t any = static_cast<uint32_t>(-1);
    pa_buffer_attr attributes;
    attributes.maxlength = any;
    attributes.tlength = m_capture ? any : 2 * periodBytes;
    attributes.prebuf = m_capture ? any : m_blockAlign;
    attributes.minreq = m_capture ? any : halfPeriodBytes;
    attributes.fragsize = m_capture ? halfPeriodBytes : any;
    // Started by Start; never moved to another device; latency as asked, not the server's default.
    const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_DONT_MOVE |
                                                      PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE);
    int connected;
    if (m_capture) {
        connected = pa_stream_connect_record(m_stream, m_endpoint.name.c_str(), &attributes, flags);
    } else {
        pa_cvolume volume;
        pa_cvolume_set(&volume, sampleSpec.channels, m_session->ServerLevel());
        connected = pa_stream_connect_playback(m_stream, m_endpoint.name.c_str(), &attributes, flags, &volume, nullptr);
    }
    const bool ready = connected == 0 && m_link->WaitLocked([this] {
        const pa_stream_state_t state = pa_stream_get_state(m_stream);
        return state == PA_STREAM_READY || state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED;
    }) && pa_stream_get_state(m_stream) == PA_STREAM_READY;
    if (!ready) {
        const bool deviceGone = !m_connection->Alive() || !m_link->Alive() || !m_connection->Find(m_endpoint.id) ||
                                m_connection->Find(m_endpoint.id)->state != DEVICE_STATE_ACTIVE;
        Report(m_endpoint, "cannot open a stream", pa_strerror(pa_context_errno(m_link->Context())));
        CloseLocked();
        m_closing = false;
        return deviceGone ? AUDCLNT_E_DEVICE_INVALIDATED : AUDCLNT_E_UNSUPPORTED_FORMAT;
    }
    m_serverIndex = pa_stream_get_index(m_stream);
    if (m_capture && (m_session->ServerLevel() != PA_VOLUME_NORM || m_session->ServerMute())) {
        pa_cvolume volume;
        pa_cvolume_set(&volume, sampleSpec.channels, m_session->ServerLevel());
        Connection::Forget(pa_context_set_source_output_volume(m_link->Context(), m_serverIndex, &volume, nullptr, nullptr));
        Connection::Forget(
            pa_context_set_source_output_mute(m_link->Context(), m_serverIndex, m_session->ServerMute(), nullptr, nullptr));
    }
    if (!m_capture) {
        pa_stream_set_latency_update_callback(m_stream, &Stream::OnTiming, this);
        // Without the eventfd, what the render thread queues waits for the server's next
        // request or the timer: later, not lost.
        if (!m_kick.Open(m_link->Api(), [this] { Push(false); }))
            Report(m_endpoint, "cannot make the render stream's wake-up", std::strerror(errno));
        // The server asks for data only as its buffer drains; the timer also hands over what the
        // render thread queued meanwhile, one device period at a time.
        m_timer = pa_context_rttime_new(m_link->Context(), pa_rtclock_now() + kDevicePeriod / 10, &Stream::OnTimer, this);
    }
    return S_OK;
}

void Stream::Attach(uint8_t channels) {
    Connection::Locked lock(*m_connection);
    m_connection->AttachStream(m_endpoint.flow, m_serverIndex, m_session);
    m_session->AddStream(m_serverIndex, channels);
}

HRESULT Stream::BufferSize(UINT32* frames) {
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    *frames = m_bufferFrames;
    return S_OK;
}

HRESULT Stream::Padding(UINT32* frames) {
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    const auto queued = static_cast<uint32_t>(m_ring.Filled() / m_blockAlign);
    // Render: what the server holds too, as a desktop engine counts what it holds for the
    // device; never more than the buffer, so free space is never negative.
    *frames = m_capture ? queued : std::min(m_bufferFrames, queued + ServerHeldFrames());
    return S_OK;
}

uint32_t Stream::ServerHeldFrames() const {
    const int64_t drainsAt = m_serverDrainsAt.load(std::memory_order_acquire);
    if (drainsAt == 0) return 0;
    const int64_t left = drainsAt - SteadyNanoseconds();
    if (left <= 0) return 0;
    return static_cast<uint32_t>(static_cast<uint64_t>(left) * m_endpoint.sampleSpec.rate / 1000000000u);
}

HRESULT Stream::Latency(REFERENCE_TIME* latency) {
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    Connection::Locked lock(*m_link);
    pa_usec_t usec = 0;
    int negative = 0;
    if (pa_stream_get_latency(m_stream, &usec, &negative) < 0) {
        // No timing information yet: ask for it once and wait for the answer.
        m_link->Complete(pa_stream_update_timing_info(m_stream, nullptr, nullptr));
        if (pa_stream_get_latency(m_stream, &usec, &negative) < 0) return AUDCLNT_E_BUFFER_OPERATION_PENDING;
    }
    *latency = negative != 0 ? 0 : static_cast<REFERENCE_TIME>(usec * 10);
    return S_OK;
}

HRESULT Stream::SetEventHandle(HANDLE event) {
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    if (!m_eventDriven) return AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED;
    if (m_started.load(std::memory_order_acquire)) return AUDCLNT_E_NOT_STOPPED;
    // Our own handle keeps the event alive even if the client closes its handle first.
    HANDLE duplicate = nullptr;
    if (!DuplicateHandle(GetCurrentProcess(), event, GetCurrentProcess(), &duplicate, 0, FALSE, DUPLICATE_SAME_ACCESS))
        return HRESULT_FROM_WIN32(GetLastError());  // what went wrong, for the caller's report
    Connection::Locked lock(*m_link);  // the loop's thread reads it
    if (m_event != nullptr) CloseHandle(m_event);
    m_event = duplicate;
    return S_OK;
}

HRESULT Stream::Start() {
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    if (m_started.load(std::memory_order_acquire)) return AUDCLNT_E_NOT_STOPPED;
    if (m_eventDriven && m_event == nullptr) return AUDCLNT_E_EVENTHANDLE_NOT_SET;
    Connection::Locked lock(*m_link);
    m_started.store(true, std::memory_order_release);
    m_session->state->StreamStarted();
    m_serverDrainsAt.store(0, std::memory_order_release);
    if (!m_capture) Push();  // what the client queued before starting goes first
    return m_link->Complete(pa_stream_cork(m_stream, 0, nullptr, nullptr)) ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
}

HRESULT Stream::Stop() {
    if (!Initialized()) return AUDCLNT_E_NOT_INITIALIZED;
    if (!m_started.load(std::memory_order_acquire)) return S_FALSE;
    Connection::Locked lock(*m_link);
    m_started.store(false, std::memory_order_release);
    m_session->state->StreamStopped();
    m_serverDrainsAt.store(0, std::memory_order_release);  // a corked stream's queue is not played
    // A stream whose device went away still stops, but says so.
    if (!Valid()) return AUDCLNT_E_DEVICE_INVALIDATED;
    return m_link->Complete(pa_stream_cork(m_stream, 1, nullptr, nullptr)) ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
}

HRESULT Stream::Reset() {
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    if (m_started.load(std::memory_order_acquire)) return AUDCLNT_E_NOT_STOPPED;
    if (m_held || m_requestHeld) return AUDCLNT_E_BUFFER_OPERATION_PENDING;
    Connection::Locked lock(*m_link);  // the loop's thread is the ring's other side
    m_ring.Drain();
    m_serverDrainsAt.store(0, std::memory_order_release);
    if (m_capture) m_position = 0;
    return m_link->Complete(pa_stream_flush(m_stream, nullptr, nullptr)) ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
}

// ---- capture thread ------------------------------------------------------------------------

HRESULT Stream::CaptureGetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* devicePosition,
                                 UINT64* qpcPosition) {
    *data = nullptr;
    *frames = 0;
    *flags = 0;
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    if (m_held) return AUDCLNT_E_OUT_OF_ORDER;
    const uint32_t available = static_cast<uint32_t>(m_ring.Filled() / m_blockAlign);
    if (available == 0) {
        m_held = true;  // ReleaseBuffer(0) may follow
        m_heldFrames = 0;
        return AUDCLNT_S_BUFFER_EMPTY;
    }
    // One device period per packet, as a desktop engine hands them out.
    const uint32_t count = std::min(available, m_packetFrames);
    const size_t bytes = size_t{count} * m_blockAlign;
    size_t contiguous = 0;
    const uint8_t* at = m_ring.ReadArea(&contiguous);
    if (contiguous >= bytes) {
        *data = const_cast<BYTE*>(at);
    } else {
        m_ring.Read(m_packet.data(), bytes);
        *data = m_packet.data();
    }
    *frames = count;
    if (m_discontinuity.exchange(false, std::memory_order_acq_rel)) *flags |= AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY;
    if (devicePosition != nullptr) *devicePosition = m_position;
    if (qpcPosition != nullptr) {
        // The performance counter when the packet's first frame was recorded, as Windows stamps
        // it: the source delivers at its rate, so the oldest of the frames waiting here came in
        // as long ago as they take to play. A capture thread woken late finds more waiting and
        // the same stamp.
        LARGE_INTEGER now{};
        QueryPerformanceCounter(&now);
        const int64_t waiting = static_cast<int64_t>(available) * 10000000 / m_endpoint.sampleSpec.rate;
        *qpcPosition = static_cast<UINT64>(std::max<int64_t>(now.QuadPart - waiting, 0));
    }
    m_held = true;
    m_heldFrames = count;
    return S_OK;
}

HRESULT Stream::CaptureReleaseBuffer(UINT32 frames) {
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    if (!m_held) return AUDCLNT_E_OUT_OF_ORDER;
    if (frames != 0 && frames != m_heldFrames) return AUDCLNT_E_INVALID_SIZE;
    m_held = false;
    m_ring.CommitRead(size_t{frames} * m_blockAlign);
    m_position += frames;
    // A whole packet still waiting is not left until the server's next delivery.
    if (frames != 0 && m_ring.Filled() >= size_t{m_packetFrames} * m_blockAlign) Signal();
    return S_OK;
}

HRESULT Stream::NextPacketSize(UINT32* frames) {
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    *frames = std::min(static_cast<uint32_t>(m_ring.Filled() / m_blockAlign), m_packetFrames);
    return S_OK;
}

// ---- render thread -------------------------------------------------------------------------

HRESULT Stream::RenderGetBuffer(UINT32 frames, BYTE** data) {
    *data = nullptr;
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    if (m_requestHeld) return AUDCLNT_E_OUT_OF_ORDER;
    if (frames > m_ring.Free() / m_blockAlign) return AUDCLNT_E_BUFFER_TOO_LARGE;
    if (frames == 0) return S_OK;
    const size_t bytes = size_t{frames} * m_blockAlign;
    uint8_t* area = m_ring.ContiguousWriteArea(bytes);
    m_inWriteArea = area == nullptr;
    *data = m_inWriteArea ? m_writeArea.data() : area;
    m_requested = frames;
    m_requestHeld = true;
    return S_OK;
}

HRESULT Stream::RenderReleaseBuffer(UINT32 frames, DWORD flags) {
    if (const HRESULT hr = Check(); FAILED(hr)) return hr;
    if (frames == 0 && !m_requestHeld) return S_OK;
    if (!m_requestHeld) return AUDCLNT_E_OUT_OF_ORDER;
    if (frames > m_requested) return AUDCLNT_E_INVALID_SIZE;
    m_requestHeld = false;
    const size_t bytes = size_t{frames} * m_blockAlign;
    if (m_inWriteArea) {
        if ((flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0) std::memset(m_writeArea.data(), 0, bytes);
        m_ring.Write(m_writeArea.data(), bytes);
    } else {
        if ((flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0) std::memset(m_ring.ContiguousWriteArea(bytes), 0, bytes);
        m_ring.CommitWrite(bytes);
    }
    if (frames != 0 && m_started.load(std::memory_order_acquire)) m_kick.Kick();
    return S_OK;
}

// ---- loop thread ---------------------------------------------------------------------------

void Stream::Signal() const {
    if (m_event != nullptr) SetEvent(m_event);
}

void Stream::NotePeak(const uint8_t* data, size_t bytes) {
    float peak = 0.0f;
    const size_t samples = bytes / sizeof(float);
    for (size_t i = 0; i < samples; ++i) {
        float sample;
        std::memcpy(&sample, data + i * sizeof(float), sizeof(float));
        peak = std::max(peak, std::fabs(sample));
    }
    m_session->NotePeak(peak);
}

void Stream::OnState(pa_stream* stream, void* self) {
    auto* owner = static_cast<Stream*>(self);
    const pa_stream_state_t state = pa_stream_get_state(stream);
    if ((state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) && !owner->m_closing) {
        // Its device went, the stream was killed, or the server went away.
        owner->m_invalid.store(true, std::memory_order_release);
        owner->Signal();  // the stream's thread learns it at its next call
    }
    owner->m_link->Wake();
}

void Stream::OnRead(pa_stream*, size_t, void* self) { static_cast<Stream*>(self)->Pull(); }

void Stream::OnWrite(pa_stream*, size_t, void* self) { static_cast<Stream*>(self)->Push(); }

void Stream::OnTiming(pa_stream*, void* self) { static_cast<Stream*>(self)->NoteServerTiming(); }

void Stream::OnTimer(pa_mainloop_api*, pa_time_event* event, const struct timeval*, void* self) {
    auto* owner = static_cast<Stream*>(self);
    owner->Push();
    // libpulse's own updates thin out to one every 1.5 s; the depth's clock is corrected more often.
    if (++owner->m_ticks % kTimingTicks == 0 && owner->m_started.load(std::memory_order_acquire))
        Connection::Forget(pa_stream_update_timing_info(owner->m_stream, nullptr, nullptr));
    pa_context_rttime_restart(owner->m_link->Context(), event, pa_rtclock_now() + kDevicePeriod / 10);
}

void Stream::Pull() {
    bool delivered = false;
    while (pa_stream_readable_size(m_stream) > 0) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(m_stream, &data, &bytes) < 0 || bytes == 0) break;
        if (data == nullptr) {
            m_discontinuity.store(true, std::memory_order_release);  // the server lost audio here
        } else if (m_started.load(std::memory_order_acquire)) {
            const size_t whole = bytes - bytes % m_blockAlign;
            NotePeak(static_cast<const uint8_t*>(data), whole);
            if (m_ring.Write(data, whole) < whole) m_discontinuity.store(true, std::memory_order_release);
            delivered = true;
        }
        pa_stream_drop(m_stream);
    }
    if (delivered) Signal();
}

void Stream::Push(bool signal) {
    if (m_stream == nullptr || !m_started.load(std::memory_order_acquire) || m_invalid.load(std::memory_order_acquire))
        return;
    const size_t writable = pa_stream_writable_size(m_stream);
    if (writable == static_cast<size_t>(-1)) return;
    size_t left = std::min(writable, m_ring.Filled());
    left -= left % m_blockAlign;
    size_t written = 0;
    while (left > 0) {
        size_t contiguous = 0;
        const uint8_t* data = m_ring.ReadArea(&contiguous);
        const size_t bytes = std::min(left, contiguous);
        NotePeak(data, bytes);
        if (pa_stream_write(m_stream, data, bytes, nullptr, 0, PA_SEEK_RELATIVE) < 0) break;
        m_ring.CommitRead(bytes);
        left -= bytes;
        written += bytes;
    }
    if (written > 0) NoteServerWrite(written);
    // Room again, or the period passed: the render thread refills.
    if (signal) Signal();
}

void Stream::NoteServerTiming() {
    if (m_stream == nullptr || !m_started.load(std::memory_order_acquire)) return;
    const pa_timing_info* timing = pa_stream_get_timing_info(m_stream);
    if (timing == nullptr || timing->write_index_corrupt != 0 || timing->read_index_corrupt != 0) return;
    // The sink's part counts as much as the sink is configured to hold for its streams. A sink
    // that was idle may still report what it rendered ahead before the stream came (half a
    // second, on a null sink): that is the sink's past, not audio of ours waiting.
    pa_usec_t sink = timing->sink_usec;
    if (timing->configured_sink_usec != 0) sink = std::min(sink, timing->configured_sink_usec);
    m_sinkPart = static_cast<int64_t>(sink) * 1000;
    // write_index counts every write made so far (libpulse corrects it for writes that crossed
    // the request); read_index is what the sink took. Behind it after an underrun: nothing held.
    const int64_t queued = std::max<int64_t>(0, timing->write_index - timing->read_index) / m_blockAlign;
    m_serverDrainsAt.store(SteadyNanoseconds() + FramesToNanoseconds(static_cast<uint64_t>(queued)) + m_sinkPart,
                           std::memory_order_release);
}

void Stream::NoteServerWrite(size_t bytes) {
    // Between timing updates: the server plays on by the clock; what it was given plays after
    // what it holds, or after the sink's latency when it held nothing.
    const int64_t now = SteadyNanoseconds();
    const int64_t drainsAt = m_serverDrainsAt.load(std::memory_order_relaxed);
    const int64_t from = drainsAt > now ? drainsAt : now + m_sinkPart;
    m_serverDrainsAt.store(from + FramesToNanoseconds(bytes / m_blockAlign), std::memory_order_release);
}

int64_t Stream::FramesToNanoseconds(uint64_t frames) const {
    return static_cast<int64_t>(frames * 1000000000u / m_endpoint.sampleSpec.rate);
}

}  // namespace zqplatform::pulse
