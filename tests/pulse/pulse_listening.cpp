#include "pulse_listening.h"

#include <gtest/gtest.h>
#include <pulse/error.h>
#include <pulse/simple.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "tone_pitch.h"

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
    const uint32_t rate = m_recording.rate;
    const uint16_t channels = m_recording.channels;
    const pa_sample_spec sampleSpec{PA_SAMPLE_FLOAT32LE, rate, static_cast<uint8_t>(channels)};
    const uint32_t readFrames = rate / 100;
    const pa_buffer_attr attributes{static_cast<uint32_t>(-1), static_cast<uint32_t>(-1), static_cast<uint32_t>(-1),
                                    static_cast<uint32_t>(-1), readFrames * channels * 4u};
    int error = 0;
    pa_simple* recorder = pa_simple_new(nullptr, "zqCoreAudio test", PA_STREAM_RECORD, m_source.c_str(), "listener",
                                        &sampleSpec, nullptr, &attributes, &error);
    if (recorder == nullptr) {
        m_error = "cannot record " + m_source + ": " + pa_strerror(error);
        return;
    }
    const size_t total = static_cast<size_t>(seconds * rate);
    m_recording.frames.reserve(total * channels);
    std::vector<float> chunk(size_t{readFrames} * channels);
    std::vector<double> origins;
    while (!m_stop.load() && m_recording.Count() < total) {
        if (pa_simple_read(recorder, chunk.data(), chunk.size() * sizeof(float), &error) < 0) {
            m_error = "recording " + m_source + " failed: " + pa_strerror(error);
            break;
        }
        const double now = SteadySeconds();
        const pa_usec_t latency = pa_simple_get_latency(recorder, &error);
        m_recording.frames.insert(m_recording.frames.end(), chunk.begin(), chunk.end());
        // The frame after the last one read reaches the client `latency` from now.
        origins.push_back(now - static_cast<double>(latency) / 1e6 - static_cast<double>(m_recording.Count()) / rate);
        m_started.store(true, std::memory_order_release);
    }
    pa_simple_free(recorder);
    if (!origins.empty()) {
        std::nth_element(origins.begin(), origins.begin() + static_cast<std::ptrdiff_t>(origins.size() / 2), origins.end());
        m_recording.origin = origins[origins.size() / 2];
    }
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

}  // namespace zqtest::pulse
