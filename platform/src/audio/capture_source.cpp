// Capture sources: tone, impulse, sound file, fed frames, silence.
#include "capture_source.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace zqplatform::audio {
namespace {

std::optional<ResolvedSource> Fail(std::string* error, std::string why) {
    if (error) *error = std::move(why);
    return std::nullopt;
}

// Reads the whole file as float and converts it to the endpoint's rate and channels.
std::shared_ptr<const WavClip> LoadClip(const std::string& path, uint32_t rate, uint16_t channels,
                                        std::string* error) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        if (error) *error = "cannot read sound file '" + path + "': " + sf_strerror(nullptr);
        return nullptr;
    }
    const auto srcChannels = static_cast<size_t>(info.channels);
    std::vector<float> raw(static_cast<size_t>(info.frames) * srcChannels);
    const sf_count_t got = sf_readf_float(file, raw.data(), info.frames);
    sf_close(file);
    if (got <= 0 || srcChannels == 0 || info.samplerate <= 0) {
        if (error) *error = "sound file '" + path + "' holds no audio";
        return nullptr;
    }
    const auto srcFrames = static_cast<size_t>(got);

    // Channel mapping first: to mono by averaging, otherwise channel c from source c mod n.
    std::vector<float> mapped(srcFrames * channels);
    for (size_t f = 0; f < srcFrames; ++f) {
        const float* in = &raw[f * srcChannels];
        float* out = &mapped[f * channels];
        if (channels == 1) {
            double sum = 0.0;
            for (size_t c = 0; c < srcChannels; ++c) sum += in[c];
            out[0] = static_cast<float>(sum / static_cast<double>(srcChannels));
        } else {
            for (size_t c = 0; c < channels; ++c) out[c] = in[c % srcChannels];
        }
    }

    auto clip = std::make_shared<WavClip>();
    if (static_cast<uint32_t>(info.samplerate) == rate) {
        clip->samples = std::move(mapped);
        clip->frames = srcFrames;
        return clip;
    }
    // Linear interpolation: good enough for a test signal, and exact for equal rates.
    const double step = static_cast<double>(info.samplerate) / rate;
    const auto outFrames = static_cast<size_t>(std::floor(static_cast<double>(srcFrames - 1) / step)) + 1;
    clip->samples.resize(outFrames * channels);
    clip->frames = outFrames;
    for (size_t f = 0; f < outFrames; ++f) {
        const double at = static_cast<double>(f) * step;
        const auto i = static_cast<size_t>(at);
        const size_t j = std::min(i + 1, srcFrames - 1);
        const double t = at - static_cast<double>(i);
        for (size_t c = 0; c < channels; ++c) {
            const double a = mapped[i * channels + c];
            const double b = mapped[j * channels + c];
            clip->samples[f * channels + c] = static_cast<float>(a + (b - a) * t);
        }
    }
    return clip;
}

}  // namespace

std::optional<ResolvedSource> ResolveSource(const zqvm::CaptureSource& source, uint32_t rate, uint16_t channels,
                                            std::string* error) {
    using Kind = zqvm::CaptureSource::Kind;
    ResolvedSource resolved;
    resolved.kind = source.kind;
    resolved.frequency = source.frequency;
    resolved.amplitude = source.amplitude;
    resolved.intervalFrames = source.intervalFrames;
    resolved.loop = source.loop;
    switch (source.kind) {
        case Kind::Tone:
            if (!(source.frequency > 0.0) || source.frequency >= rate / 2.0)
                return Fail(error, "tone frequency must lie between 0 and half the sample rate");
            [[fallthrough]];
        case Kind::Impulse:
            if (!(source.amplitude >= 0.0) || source.amplitude > 1.0)
                return Fail(error, "amplitude must lie between 0 and 1 (0 dBFS)");
            break;
        case Kind::WavFile:
            resolved.clip = LoadClip(source.path, rate, channels, error);
            if (!resolved.clip) return std::nullopt;
            break;
        case Kind::Silence:
        case Kind::Fed:
            break;
    }
    return resolved;
}

void FedQueue::Push(std::span<const float> samples) {
    std::lock_guard lock(m_lock);
    if (m_size + samples.size() > m_ring.size()) {
        // Grow to a linear copy, oldest first; Pop then carries on as before.
        std::vector<float> bigger(std::max(m_ring.size() * 2, m_size + samples.size()));
        for (size_t i = 0; i < m_size; ++i) bigger[i] = m_ring[(m_head + i) % m_ring.size()];
        m_ring.swap(bigger);
        m_head = 0;
    }
    for (size_t i = 0; i < samples.size(); ++i) m_ring[(m_head + m_size + i) % m_ring.size()] = samples[i];
    m_size += samples.size();
}

size_t FedQueue::Pop(float* out, size_t count) {
    std::lock_guard lock(m_lock);
    const size_t n = std::min(count, m_size);
    for (size_t i = 0; i < n; ++i) out[i] = m_ring[(m_head + i) % m_ring.size()];
    if (n > 0) m_head = (m_head + n) % m_ring.size();
    m_size -= n;
    return n;
}

size_t FedQueue::Pending() {
    std::lock_guard lock(m_lock);
    return m_size;
}

void FedQueue::Clear() {
    std::lock_guard lock(m_lock);
    m_head = 0;
    m_size = 0;
}

void SourceGenerator::Restart(const ResolvedSource& source) {
    m_source = source;
    m_frame = 0;
    m_clipFrame = 0;
}

bool SourceGenerator::Generate(float* out, uint32_t frames, uint16_t channels, uint32_t rate, FedQueue& fed) {
    using Kind = zqvm::CaptureSource::Kind;
    const size_t samples = size_t{frames} * channels;
    bool silent = false;
    switch (m_source.kind) {
        case Kind::Silence:
            std::fill(out, out + samples, 0.0f);
            silent = true;
            break;
        case Kind::Tone:
            for (uint32_t f = 0; f < frames; ++f) {
                // Phase from the frame number, not accumulated, so it never drifts.
                double cycles = m_source.frequency * static_cast<double>(m_frame + f) / rate;
                cycles -= std::floor(cycles);
                const auto v = static_cast<float>(m_source.amplitude * std::sin(2.0 * std::numbers::pi * cycles));
                std::fill(out + size_t{f} * channels, out + size_t{f + 1} * channels, v);
            }
            break;
        case Kind::Impulse:
            for (uint32_t f = 0; f < frames; ++f) {
                const uint64_t n = m_frame + f;
                const bool hit = m_source.intervalFrames == 0 ? n == 0 : n % m_source.intervalFrames == 0;
                std::fill(out + size_t{f} * channels, out + size_t{f + 1} * channels,
                          hit ? static_cast<float>(m_source.amplitude) : 0.0f);
            }
            break;
        case Kind::WavFile: {
            const WavClip& clip = *m_source.clip;
            size_t written = 0;
            while (written < frames && m_clipFrame < clip.frames) {
                const size_t n = std::min<size_t>(frames - written, clip.frames - m_clipFrame);
                std::copy_n(&clip.samples[m_clipFrame * channels], n * channels, out + written * channels);
                written += n;
                m_clipFrame += n;
                if (m_clipFrame == clip.frames && m_source.loop) m_clipFrame = 0;
            }
            std::fill(out + written * channels, out + samples, 0.0f);
            silent = written == 0;
            break;
        }
        case Kind::Fed: {
            const size_t got = fed.Pop(out, samples);
            std::fill(out + got, out + samples, 0.0f);
            silent = got == 0;
            break;
        }
    }
    m_frame += frames;
    return silent;
}

}  // namespace zqplatform::audio
