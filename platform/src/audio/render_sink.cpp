// Render sinks: frames collected, counted and optionally written to a WAV file.
#include "render_sink.h"

#include <sndfile.h>

#include <algorithm>

namespace zqplatform::audio {

RenderSink::RenderSink(uint32_t rate, uint16_t channels, uint32_t keepSeconds)
    : m_rate(rate), m_channels(channels), m_keepFrames(std::max<size_t>(size_t{rate} * keepSeconds, 1)) {}

RenderSink::~RenderSink() { CloseWav(); }

void RenderSink::Prepare() {
    std::lock_guard lock(m_lock);
    if (m_ring.empty()) m_ring.assign(m_keepFrames * m_channels, 0.0f);
}

void RenderSink::Append(const float* samples, uint32_t frames, uint32_t silentFrames, uint32_t underrunFrames) {
    std::lock_guard lock(m_lock);
    m_frames += frames;
    m_silentFrames += silentFrames;
    m_underrunFrames += underrunFrames;
    if (m_file != nullptr) sf_writef_float(m_file, samples, frames);
    if (m_ring.empty()) return;  // never prepared: counts only
    for (uint32_t f = 0; f < frames; ++f) {
        size_t slot;
        if (m_kept < m_keepFrames) {
            slot = (m_start + m_kept) % m_keepFrames;
            ++m_kept;
        } else {
            slot = m_start;  // full: the oldest frame makes room
            m_start = (m_start + 1) % m_keepFrames;
        }
        std::copy_n(samples + size_t{f} * m_channels, m_channels, &m_ring[slot * m_channels]);
    }
}

void RenderSink::NotePeriod(uint32_t frames, uint32_t played) {
    std::lock_guard lock(m_lock);
    if (played < frames) ++m_underruns;
    // The device plays what it was given first, then goes without for the rest of the period.
    if (played > 0) {
        m_longestGap = std::max(m_longestGap, m_gapFrames);
        m_gapFrames = 0;
        m_flowing = true;
    }
    if (m_flowing) m_gapFrames += frames - played;
}

uint64_t RenderSink::LongestGapFrames() {
    std::lock_guard lock(m_lock);
    return std::max(m_longestGap, m_gapFrames);
}

std::vector<float> RenderSink::Collected() {
    std::lock_guard lock(m_lock);
    std::vector<float> out;
    out.reserve(m_kept * m_channels);
    for (size_t i = 0; i < m_kept; ++i) {
        const float* frame = &m_ring[((m_start + i) % m_keepFrames) * m_channels];
        out.insert(out.end(), frame, frame + m_channels);
    }
    return out;
}

uint64_t RenderSink::Frames() {
    std::lock_guard lock(m_lock);
    return m_frames;
}

uint64_t RenderSink::SilentFrames() {
    std::lock_guard lock(m_lock);
    return m_silentFrames;
}

uint64_t RenderSink::UnderrunFrames() {
    std::lock_guard lock(m_lock);
    return m_underrunFrames;
}

uint64_t RenderSink::Underruns() {
    std::lock_guard lock(m_lock);
    return m_underruns;
}

void RenderSink::Clear() {
    std::lock_guard lock(m_lock);
    m_start = m_kept = 0;
    m_frames = m_silentFrames = m_underrunFrames = m_underruns = 0;
    m_flowing = false;
    m_gapFrames = m_longestGap = 0;
}

bool RenderSink::OpenWav(const std::string& path, std::string* error) {
    SNDFILE* file = nullptr;
    if (!path.empty()) {
        SF_INFO info{};
        info.samplerate = static_cast<int>(m_rate);
        info.channels = m_channels;
        info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
        file = sf_open(path.c_str(), SFM_WRITE, &info);
        if (file == nullptr) {
            if (error) *error = "cannot write sound file '" + path + "': " + sf_strerror(nullptr);
            return false;
        }
    }
    SNDFILE* old;
    {
        std::lock_guard lock(m_lock);
        old = m_file;
        m_file = file;
    }
    if (old != nullptr) sf_close(old);  // finishes the header, outside the lock the clock takes
    return true;
}

void RenderSink::CloseWav() { OpenWav(std::string(), nullptr); }

}  // namespace zqplatform::audio
