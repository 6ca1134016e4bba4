// Shared-mode streams: buffer bookkeeping and the device clock.
#include "stream.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "../kernel/clock_service.h"
#include "zqplatform/vm/clock.h"
#include "zqplatform/win/kernel.h"

namespace zqplatform::audio {
namespace {

constexpr HRESULT kExclusiveModeNotAllowed = AUDCLNT_ERR(0x00Eu);  // AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED
constexpr DWORD kKnownStreamFlags = AUDCLNT_STREAMFLAGS_CROSSPROCESS | AUDCLNT_STREAMFLAGS_LOOPBACK |
                                    AUDCLNT_STREAMFLAGS_EVENTCALLBACK | AUDCLNT_STREAMFLAGS_NOPERSIST;

}  // namespace

Stream::Stream(const EndpointBinding& binding)
    : m_binding(binding),
      m_endpoint(*binding),
      m_capture(binding->flow == eCapture),
      m_blockAlign(binding->format.BlockAlign()),
      m_channels(binding->format.Channels()) {}

Stream::~Stream() {
    // Nobody else holds the stream now, but the clock may be running a tick: cancel waits for it.
    bool started;
    uint64_t clockId;
    uint64_t wakeId;
    {
        std::lock_guard lock(m_lock);
        started = std::exchange(m_started, false);
        clockId = std::exchange(m_clockId, 0);
        wakeId = std::exchange(m_wakeId, 0);
    }
    StopClock(wakeId);
    if (started) {
        StopClock(clockId);
        if (m_endpoint.runningStreams.fetch_sub(1, std::memory_order_relaxed) == 1) m_endpoint.ClearPeaks();
        m_endpoint.session->StreamStopped();
    }
    if (m_event != nullptr) CloseHandle(m_event);
}

void Stream::StopClock(uint64_t clockId) {
    if (clockId != 0) CancelOnClock(clockId);
}

HRESULT Stream::Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags, REFERENCE_TIME bufferDuration,
                           REFERENCE_TIME periodicity, const WAVEFORMATEX* format) {
    std::lock_guard lock(m_lock);
    if (m_initialized) return AUDCLNT_E_ALREADY_INITIALIZED;
    if (shareMode == AUDCLNT_SHAREMODE_EXCLUSIVE) return kExclusiveModeNotAllowed;
    if (shareMode != AUDCLNT_SHAREMODE_SHARED) return E_INVALIDARG;
    if ((streamFlags & ~kKnownStreamFlags) != 0 || bufferDuration < 0 || periodicity < 0) return E_INVALIDARG;
    if ((streamFlags & AUDCLNT_STREAMFLAGS_LOOPBACK) != 0)
        return m_capture ? AUDCLNT_E_WRONG_ENDPOINT_TYPE : E_NOTIMPL;  // no loopback capture here
    if (bufferDuration > kMaximumBuffer) return AUDCLNT_E_BUFFER_SIZE_ERROR;
    const std::optional<MixFormat> requested = MixFormat::FromWaveFormat(format);
    if (!requested || !requested->SameStream(m_endpoint.format)) return AUDCLNT_E_UNSUPPORTED_FORMAT;

    const uint32_t rate = m_endpoint.format.Rate();
    const uint32_t nominalPeriodFrames = (rate + 99) / 100;
    // A device clock may run up to 1000 ppm fast or slow: a period then holds a few frames more
    // or fewer than the nominal rate gives.
    const uint32_t clockSlack = rate / 100 / 1000 + 1;
    m_maxPacketFrames = nominalPeriodFrames + clockSlack;
    const uint32_t minPacketFrames = std::max<uint32_t>(rate / 100 - clockSlack, 1);
    // At least two periods, as the engine needs one being played and one being written.
    const auto asked = static_cast<uint64_t>(std::llround(static_cast<double>(rate) * bufferDuration / 1e7));
    m_bufferFrames = static_cast<uint32_t>(std::max<uint64_t>(asked, 2ull * nominalPeriodFrames));

    m_scratch.assign(size_t{m_maxPacketFrames} * m_channels, 0.0f);
    if (m_capture) {
        const size_t slots = m_bufferFrames / minPacketFrames + 1;  // every packet that can fit, and one
        m_packets.assign(slots, Packet{});
        m_packetData.assign(slots * m_maxPacketFrames * m_blockAlign, 0);
    } else {
        m_ring.assign(size_t{m_bufferFrames} * m_blockAlign, 0);
        m_ringSilent.assign(m_bufferFrames, 0);
        m_writeArea.assign(size_t{m_bufferFrames} * m_blockAlign, 0);
        m_endpoint.sink.Prepare();
    }
    m_eventDriven = (streamFlags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK) != 0;
    m_initialized = true;
    return S_OK;
}

bool Stream::Initialized() {
    std::lock_guard lock(m_lock);
    return m_initialized;
}

HRESULT Stream::BufferSize(UINT32* frames) {
    std::lock_guard lock(m_lock);
    if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    *frames = m_bufferFrames;
    return S_OK;
}

HRESULT Stream::Padding(UINT32* frames) {
    std::lock_guard lock(m_lock);
    if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    *frames = m_queuedFrames;
    return S_OK;
}

HRESULT Stream::SetEventHandle(HANDLE event) {
    std::lock_guard lock(m_lock);
    if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    if (!m_eventDriven) return AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED;
    // The clock copies the handle and sets it after unlocking: it must not change under it.
    if (m_started) return AUDCLNT_E_NOT_STOPPED;
    // Our own handle keeps the event alive even if the client closes its handle first.
    HANDLE duplicate = nullptr;
    if (!DuplicateHandle(GetCurrentProcess(), event, GetCurrentProcess(), &duplicate, 0, FALSE,
                         DUPLICATE_SAME_ACCESS))
        return HRESULT_FROM_WIN32(GetLastError());
    if (m_event != nullptr) CloseHandle(m_event);
    m_event = duplicate;
    return S_OK;
}

HRESULT Stream::Start() {
    {
        std::lock_guard lock(m_lock);
        if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
        if (m_started) return AUDCLNT_E_NOT_STOPPED;
        if (m_eventDriven && m_event == nullptr) return AUDCLNT_E_EVENTHANDLE_NOT_SET;
        m_started = true;
        // Scheduling under m_lock is safe: the clock takes its own lock, never ours, to schedule.
        const int64_t phase = m_endpoint.clockPhase.load(std::memory_order_relaxed);
        m_firstPeriodEnd = zqvm::ClockNow() + kDevicePeriod + phase;
        m_clockId = ScheduleOnClock(m_firstPeriodEnd, kDevicePeriod, [this] { Tick(); });
    }
    m_endpoint.runningStreams.fetch_add(1, std::memory_order_relaxed);
    m_endpoint.session->StreamStarted();
    return S_OK;
}

HRESULT Stream::Latency(REFERENCE_TIME* latency) {
    if (!Initialized()) return AUDCLNT_E_NOT_INITIALIZED;
    *latency = kDevicePeriod;
    return S_OK;
}

HRESULT Stream::Stop() {
    const HRESULT stopped = StopClocks();
    return m_binding.Valid() ? stopped : AUDCLNT_E_DEVICE_INVALIDATED;
}

HRESULT Stream::StopClocks() {
    uint64_t clockId;
    uint64_t wakeId;
    {
        std::lock_guard lock(m_lock);
        if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
        if (!m_started) return S_FALSE;
        m_started = false;
        clockId = std::exchange(m_clockId, 0);
        wakeId = std::exchange(m_wakeId, 0);
    }
    // Outside m_lock: cancelling waits for a tick under way, and a tick takes m_lock.
    StopClock(clockId);
    StopClock(wakeId);
    if (m_endpoint.runningStreams.fetch_sub(1, std::memory_order_relaxed) == 1) m_endpoint.ClearPeaks();
    m_endpoint.session->StreamStopped();
    return S_OK;
}

HRESULT Stream::Reset() {
    std::lock_guard lock(m_lock);
    if (!m_initialized) return AUDCLNT_E_NOT_INITIALIZED;
    if (m_started) return AUDCLNT_E_NOT_STOPPED;
    if (m_held) return AUDCLNT_E_BUFFER_OPERATION_PENDING;
    m_queuedFrames = 0;
    m_devicePosition = 0;
    m_head = m_count = 0;
    m_emptyGet = false;
    m_discontinuity = false;
    m_readFrame = 0;
    return S_OK;
}

HRESULT Stream::CaptureGetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* devicePosition,
                                 UINT64* qpcPosition) {
    std::lock_guard lock(m_lock);
    if (m_held) return AUDCLNT_E_OUT_OF_ORDER;
    if (m_count == 0) {
        m_emptyGet = true;
        *data = nullptr;
        *frames = 0;
        *flags = 0;
        if (devicePosition) *devicePosition = 0;
        if (qpcPosition) *qpcPosition = 0;
        return AUDCLNT_S_BUFFER_EMPTY;
    }
    m_emptyGet = false;
    const Packet& packet = m_packets[m_head];
    *data = PacketData(m_head);
    *frames = packet.frames;
    *flags = packet.flags;
    if (devicePosition) *devicePosition = packet.position;
    if (qpcPosition) *qpcPosition = packet.qpc;
    m_held = true;
    return S_OK;
}

HRESULT Stream::CaptureReleaseBuffer(UINT32 frames) {
    {
        std::lock_guard lock(m_lock);
        // Releasing nothing after an empty GetBuffer closes that call, as clients that always
        // release what GetBuffer gave them expect.
        if (!m_held && std::exchange(m_emptyGet, false)) return frames == 0 ? S_OK : AUDCLNT_E_INVALID_SIZE;
        if (!m_held) return AUDCLNT_E_OUT_OF_ORDER;
        const Packet& packet = m_packets[m_head];
        if (frames != 0 && frames != packet.frames) return AUDCLNT_E_INVALID_SIZE;
        m_held = false;
        if (frames == 0) return S_OK;  // the packet stays for the next GetBuffer
        m_queuedFrames -= packet.frames;
        m_head = (m_head + 1) % m_packets.size();
        --m_count;
    }
    m_endpoint.capturePacketsReleased.fetch_add(1, std::memory_order_release);
    NotifyProgress();
    return S_OK;
}

HRESULT Stream::NextPacketSize(UINT32* frames) {
    std::lock_guard lock(m_lock);
    *frames = m_count > 0 ? m_packets[m_head].frames : 0;
    return S_OK;
}

HRESULT Stream::RenderGetBuffer(UINT32 frames, BYTE** data) {
    *data = nullptr;
    std::lock_guard lock(m_lock);
    if (m_held) return AUDCLNT_E_OUT_OF_ORDER;
    if (frames > m_bufferFrames - m_queuedFrames) return AUDCLNT_E_BUFFER_TOO_LARGE;
    m_held = true;
    m_requested = frames;
    *data = m_writeArea.data();
    return S_OK;
}

HRESULT Stream::RenderReleaseBuffer(UINT32 frames, DWORD flags) {
    if ((flags & ~static_cast<DWORD>(AUDCLNT_BUFFERFLAGS_SILENT)) != 0) return E_INVALIDARG;
    const bool silent = (flags & AUDCLNT_BUFFERFLAGS_SILENT) != 0;
    {
        std::lock_guard lock(m_lock);
        if (!m_held) return AUDCLNT_E_OUT_OF_ORDER;
        if (frames > m_requested) return AUDCLNT_E_INVALID_SIZE;
        size_t at = (m_readFrame + m_queuedFrames) % m_bufferFrames;
        size_t done = 0;
        while (done < frames) {
            const size_t n = std::min<size_t>(frames - done, m_bufferFrames - at);
            BYTE* to = &m_ring[at * m_blockAlign];
            if (silent)
                std::memset(to, 0, n * m_blockAlign);  // zero is silence in every sample format
            else
                std::memcpy(to, &m_writeArea[done * m_blockAlign], n * m_blockAlign);
            std::fill_n(&m_ringSilent[at], n, silent ? 1 : 0);
            done += n;
            at = (at + n) % m_bufferFrames;
        }
        m_queuedFrames += frames;
        m_held = false;
    }
    m_endpoint.renderBuffersReleased.fetch_add(1, std::memory_order_release);
    NotifyProgress();
    return S_OK;
}

uint32_t Stream::NextPeriodFrames() {
    constexpr int64_t kBillion = 1000000000;
    const int64_t errorPpb = m_endpoint.clockErrorPpb.load(std::memory_order_relaxed);
    if (errorPpb != m_errorPpb) {  // count on from here with the new error
        m_errorPpb = errorPpb;
        m_errorSincePeriod = m_periodIndex;
        m_framesBeforeError = m_periodFramesTotal;
    }
    __extension__ typedef unsigned __int128 Wide;  // periods x rate x 1e9 exceeds 64 bits within hours
    const auto periods = static_cast<Wide>(m_periodIndex + 1 - m_errorSincePeriod);
    const auto framesPerSecond = static_cast<Wide>(m_endpoint.format.Rate()) * static_cast<Wide>(kBillion + m_errorPpb);
    const auto total = m_framesBeforeError + static_cast<uint64_t>(periods * framesPerSecond / (100 * kBillion));
    const auto frames = static_cast<uint32_t>(total - m_periodFramesTotal);
    m_periodFramesTotal = total;
    ++m_periodIndex;
    return frames;
}

void Stream::Signal(HANDLE event) {
    if (event == nullptr || m_endpoint.TakeHeldEvent()) return;
    const int64_t delay = m_endpoint.TakeWakeDelay();
    if (delay == 0) {
        SetEvent(event);
        return;
    }
    // A late wake-up is an expiry of its own on the platform clock, so a stepped test meets it
    // between the periods, as a loaded machine would. The delays stay under a period: the wake
    // of one period has come before the next period's is scheduled.
    std::lock_guard lock(m_lock);
    if (m_started && m_wakeId == 0) m_wakeId = ScheduleOnClock(zqvm::ClockNow() + delay, 0, [this] { DelayedWake(); });
}

void Stream::DelayedWake() {
    HANDLE event;
    {
        std::lock_guard lock(m_lock);
        m_wakeId = 0;
        event = m_started ? m_event : nullptr;
    }
    if (event != nullptr) SetEvent(event);
}

void Stream::Tick() {
    if (!m_binding.Valid()) return;  // the device went away: its clock signals nothing more
    uint32_t frames;
    {
        std::lock_guard lock(m_lock);
        if (!m_started) return;
        frames = NextPeriodFrames();
    }
    if (m_capture)
        CaptureTick(frames);
    else
        RenderTick(frames);
}

void Stream::Meter(const float* samples, uint32_t frames) {
    std::array<float, 8> peaks{};
    for (uint32_t f = 0; f < frames; ++f)
        for (size_t c = 0; c < m_channels; ++c)
            peaks[c] = std::max(peaks[c], std::fabs(samples[size_t{f} * m_channels + c]));
    for (float& p : peaks) p = std::min(p, 1.0f);
    m_endpoint.SetPeaks(peaks.data());
}

void Stream::ApplySessionVolume(float* samples, uint32_t frames) const {
    const Session& session = *m_endpoint.session;
    const float gain = session.Mute() ? 0.0f : session.Volume();
    if (gain == 1.0f) return;
    for (size_t i = 0; i < size_t{frames} * m_channels; ++i) samples[i] *= gain;
}

void Stream::CaptureTick(uint32_t frames) {
    float* samples = m_scratch.data();
    m_endpoint.RefreshGenerator(m_sourceSeen, m_generator);
    const bool silent = m_generator.Generate(samples, frames, m_channels, m_endpoint.format.Rate(), m_endpoint.fed);
    Meter(samples, frames);  // the endpoint's level, before this stream's session volume
    ApplySessionVolume(samples, frames);
    // As Windows stamps a packet: the performance counter (100-ns units) when its first frame
    // was recorded, one period before the period that ends now.
    // The period's end is its place on the device's schedule: on the real clock this tick may
    // run a little late, as a driver's interrupt is served late, but the device recorded on time.
    const int64_t now = zqvm::ClockNow();
    const int64_t periodEnd = now - (now - m_firstPeriodEnd) % kDevicePeriod;
    const auto firstFrameTime = static_cast<uint64_t>(
        periodEnd - static_cast<int64_t>(frames) * 10000000 / static_cast<int64_t>(m_endpoint.format.Rate()));

    HANDLE event;
    {
        std::lock_guard lock(m_lock);
        if (!m_started) return;
        // A full buffer loses its oldest packets; the one the client holds cannot go, so then
        // the new packet is lost instead. Either way the next packet says so.
        while (m_queuedFrames + frames > m_bufferFrames && m_count > 0 && !m_held) {
            m_queuedFrames -= m_packets[m_head].frames;
            m_head = (m_head + 1) % m_packets.size();
            --m_count;
            m_discontinuity = true;
        }
        if (m_queuedFrames + frames > m_bufferFrames) {
            m_discontinuity = true;
        } else {
            const size_t slot = (m_head + m_count) % m_packets.size();
            m_endpoint.format.ToDevice(samples, PacketData(slot), size_t{frames} * m_channels);
            DWORD flags = silent ? AUDCLNT_BUFFERFLAGS_SILENT : 0;
            if (std::exchange(m_discontinuity, false)) flags |= AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY;
            m_packets[slot] = Packet{frames, flags, m_devicePosition, firstFrameTime};
            ++m_count;
            m_queuedFrames += frames;
        }
        m_devicePosition += frames;
        event = m_event;
    }
    Signal(event);
}

void Stream::RenderTick(uint32_t frames) {
    float* samples = m_scratch.data();
    uint32_t played;
    uint32_t silentFrames = 0;
    HANDLE event;
    {
        std::lock_guard lock(m_lock);
        if (!m_started) return;
        played = std::min(frames, m_queuedFrames);
        size_t done = 0;
        while (done < played) {
            const size_t n = std::min<size_t>(played - done, m_bufferFrames - m_readFrame);
            m_endpoint.format.FromDevice(&m_ring[m_readFrame * m_blockAlign], samples + done * m_channels,
                                         n * m_channels);
            for (size_t i = 0; i < n; ++i) silentFrames += m_ringSilent[m_readFrame + i];
            done += n;
            m_readFrame = (m_readFrame + n) % m_bufferFrames;
        }
        m_queuedFrames -= played;
        m_devicePosition += frames;
        event = m_event;
    }
    ApplySessionVolume(samples, played);
    Meter(samples, played);  // what the device plays, after the session volume
    // What the stream did not supply in time the device plays as silence, as a listener hears it.
    std::fill(samples + size_t{played} * m_channels, samples + size_t{frames} * m_channels, 0.0f);
    m_endpoint.sink.Append(samples, frames, silentFrames, frames - played);
    m_endpoint.sink.NotePeriod(frames, played);
    m_endpoint.renderPeriods.fetch_add(1, std::memory_order_release);
    NotifyProgress();
    Signal(event);
}

}  // namespace zqplatform::audio
