#include "pulse_listening.h"

#include <gtest/gtest.h>
#include <pulse/error.h>
#include <pulse/pulseaudio.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <limits>

#include "tone_pitch.h"
#include "zqplatform/vm/message_pump.h"

namespace zqtest::pulse {

double SteadySeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

TimedRecorder::TimedRecorder(std::string source, uint32_t rate, uint16_t channels, double seconds)
    : m_source(std::move(source)) {
    m_recording.rate = rate;
    m_recording.channels = channels;
    m_thread = std::thread([this, seconds] { Run(seconds); });
}

TimedRecorder::~TimedRecorder() {
    m_stop.store(true);
    if (m_thread.joinable()) m_thread.join();
}

TimedRecording TimedRecorder::Finish() {
    if (m_thread.joinable()) m_thread.join();
    if (!m_error.empty()) ADD_FAILURE() << m_error;
    return std::move(m_recording);
}

void TimedRecorder::Run(double seconds) {
    // libpulse's own loop on this thread. The stream is made corked, with its latency, and
    // started after: a stream that resumes a suspended sink before its latency is known has the
    // sink start with its largest block (two seconds on a null sink), and nothing plays meanwhile.
    const uint32_t rate = m_recording.rate;
    const uint16_t channels = m_recording.channels;
    const pa_sample_spec sampleSpec{PA_SAMPLE_FLOAT32LE, rate, static_cast<uint8_t>(channels)};
    pa_channel_map map;
    pa_channel_map_init_extend(&map, channels, PA_CHANNEL_MAP_DEFAULT);
    const pa_buffer_attr attributes{static_cast<uint32_t>(-1), static_cast<uint32_t>(-1), static_cast<uint32_t>(-1),
                                    static_cast<uint32_t>(-1), rate / 100 * channels * 4u};
    pa_mainloop* loop = pa_mainloop_new();
    pa_context* context = pa_context_new(pa_mainloop_get_api(loop), "zqCoreAudio test");
    pa_stream* stream = nullptr;
    const auto until = [&](const std::function<bool()>& done) {
        // Bounded by the context: a server that stops answering fails it within libpulse's time-out.
        while (!done() && PA_CONTEXT_IS_GOOD(pa_context_get_state(context)) && !m_stop.load())
            if (pa_mainloop_iterate(loop, 1, nullptr) < 0) break;
        return done();
    };
    const auto ready = [&] { return stream != nullptr && pa_stream_get_state(stream) == PA_STREAM_READY; };
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0 &&
        until([&] { return pa_context_get_state(context) == PA_CONTEXT_READY; })) {
        stream = pa_stream_new(context, "listener", &sampleSpec, &map);
        const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_ADJUST_LATENCY |
                                                          PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_INTERPOLATE_TIMING);
        if (stream != nullptr && pa_stream_connect_record(stream, m_source.c_str(), &attributes, flags) >= 0 &&
            until(ready))
            pa_operation_unref(pa_stream_cork(stream, 0, nullptr, nullptr));
    }
    if (!ready()) {
        m_error = "cannot record " + m_source + ": " + pa_strerror(pa_context_errno(context));
    } else {
        const size_t total = static_cast<size_t>(seconds * rate);
        m_recording.frames.reserve(total * channels);
        std::vector<double> origins;
        double latestOrigin = std::numeric_limits<double>::infinity();
        while (!m_stop.load() && m_recording.Count() < total && until([&] { return !ready() || pa_stream_readable_size(stream) > 0; }) &&
               ready()) {
            const void* data = nullptr;
            size_t bytes = 0;
            if (pa_stream_peek(stream, &data, &bytes) < 0) break;
            const size_t frames = std::min(bytes / (sizeof(float) * channels), total - m_recording.Count());
            if (data != nullptr) {
                const auto* samples = static_cast<const float*>(data);
                m_recording.frames.insert(m_recording.frames.end(), samples, samples + frames * channels);
            } else {
                m_recording.frames.insert(m_recording.frames.end(), frames * channels, 0.0f);  // a hole: kept
            }
            pa_stream_drop(stream);
            latestOrigin = std::min(latestOrigin, SteadySeconds() - static_cast<double>(m_recording.Count()) / rate);
            pa_usec_t latency = 0;
            int negative = 0;
            if (pa_stream_get_latency(stream, &latency, &negative) == 0) {
                // The frame after the last one read reached the source `latency` ago (or comes in
                // that long, a monitor's frames being dated where the sink plays them).
                const double lag = (negative != 0 ? -1.0 : 1.0) * static_cast<double>(latency) / 1e6;
                origins.push_back(SteadySeconds() - lag - static_cast<double>(m_recording.Count()) / rate);
            }
            m_started.store(true, std::memory_order_release);
        }
        if (m_recording.Count() < total && !m_stop.load()) m_error = "recording " + m_source + " stopped early";
        if (!origins.empty()) {
            std::nth_element(origins.begin(), origins.begin() + static_cast<std::ptrdiff_t>(origins.size() / 2),
                             origins.end());
            m_recording.origin = origins[origins.size() / 2];
        }
        m_recording.arrivalOrigin = std::isfinite(latestOrigin) ? latestOrigin : m_recording.origin;
    }
    if (stream != nullptr) {
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
    }
    pa_context_disconnect(context);
    pa_context_unref(context);
    pa_mainloop_free(loop);
}

size_t SilentRuns(const TimedRecording& recording, uint16_t channel, size_t begin, size_t minFrames, float threshold) {
    size_t runs = 0;
    size_t quiet = 0;
    for (size_t i = begin; i < recording.Count(); ++i) {
        if (std::fabs(recording.frames[i * recording.channels + channel]) < threshold) {
            if (++quiet == minFrames) ++runs;
        } else {
            quiet = 0;
        }
    }
    return runs;
}

std::vector<double> WindowPitches(const TimedRecording& recording, uint16_t channel, size_t begin, size_t windowFrames) {
    std::vector<double> pitches;
    for (size_t start = begin; start + windowFrames <= recording.Count(); start += windowFrames)
        pitches.push_back(TonePitchHz(recording.frames.data() + channel, recording.channels, start, start + windowFrames,
                                      recording.rate));
    return pitches;
}

float ClickSample(uint64_t frame, uint64_t every, double rate) {
    const uint64_t at = frame % every;
    if (static_cast<double>(at) >= rate / 1000) return 0.0f;
    return 0.8f * static_cast<float>(std::sin(2.0 * M_PI * 4000.0 * static_cast<double>(at) / rate));
}

std::vector<double> ClickOnsets(const TimedRecording& recording, uint16_t channel, float threshold, size_t gapFrames) {
    std::vector<double> onsets;
    size_t quiet = 0;
    for (size_t i = 0; i < recording.Count(); ++i) {
        if (std::fabs(recording.frames[i * recording.channels + channel]) >= threshold) {
            if (quiet >= gapFrames) onsets.push_back(recording.TimeOf(i));
            quiet = 0;
        } else {
            ++quiet;
        }
    }
    return onsets;
}

bool SetDefaultSinkTimed(const std::string& sink, double* before, double* after) {
    pa_mainloop* loop = pa_mainloop_new();
    pa_context* context = pa_context_new(pa_mainloop_get_api(loop), "zqCoreAudio test");
    bool done = false;
    bool succeeded = false;
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0) {
        // Bounded: a server that does not answer fails the context within libpulse's time-out.
        pa_context_state_t state = PA_CONTEXT_UNCONNECTED;
        while ((state = pa_context_get_state(context)) != PA_CONTEXT_READY && PA_CONTEXT_IS_GOOD(state))
            pa_mainloop_iterate(loop, 1, nullptr);
        if (state == PA_CONTEXT_READY) {
            struct Outcome {
                bool* done;
                bool* succeeded;
            } outcome{&done, &succeeded};
            *before = SteadySeconds();
            pa_operation* operation = pa_context_set_default_sink(
                context, sink.c_str(),
                [](pa_context*, int success, void* data) {
                    auto* o = static_cast<Outcome*>(data);
                    *o->done = true;
                    *o->succeeded = success != 0;
                },
                &outcome);
            while (operation != nullptr && !done && PA_CONTEXT_IS_GOOD(pa_context_get_state(context)))
                pa_mainloop_iterate(loop, 1, nullptr);
            *after = SteadySeconds();
            if (operation != nullptr) pa_operation_unref(operation);
        }
        pa_context_disconnect(context);
    }
    pa_context_unref(context);
    pa_mainloop_free(loop);
    return succeeded;
}

RespondingHost::RespondingHost(CZQCoreAudio& core, zqtest::MessageWindow& window) : m_core(core), m_window(window) {
    m_window.OnMessage([this](const ReceivedMessage& message) {
        if (message.message == WM_AUDIO_RENDER_CHANGED) m_rebuildPending = true;
        if (message.message == WM_AUDIO_DEVICE_CHANGED) m_refreshPending = true;
    });
}

RespondingHost::~RespondingHost() { m_window.OnMessage(nullptr); }

bool RespondingHost::ServeUntil(const std::function<bool()>& done, DWORD timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        if (left <= 0) return done();
        // done() is asked once per look: what it reads may change when read (a peak meter).
        bool finished = false;
        zqvm::PumpUntil([&] { return (finished = done()) || m_rebuildPending || m_refreshPending; },
                        static_cast<DWORD>(left));
        if (finished) return true;
        // The messages of one change that are queued already ask for the same work: one answer.
        zqvm::PumpPending();
        if (m_rebuildPending) {
            m_rebuildPending = false;
            ++m_rebuilds;
            m_core.RebuildRender();
            m_core.Start();
        }
        if (m_refreshPending) {
            m_refreshPending = false;
            ++m_refreshes;
            m_core.Refresh();
            m_core.Start();
        }
    }
}

}  // namespace zqtest::pulse
