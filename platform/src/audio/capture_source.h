// What capture endpoints hear: the sources of zqvm::CaptureSource made ready for the device
// clock, and the queue of frames a test feeds. Internal to the platform library.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "zqplatform/vm/audio_machine.h"

namespace zqplatform::audio {

// A sound file already converted to the endpoint's rate and channel count.
struct WavClip {
    std::vector<float> samples;  // interleaved
    size_t frames = 0;
};

// A capture source with everything it needs loaded, cheap to copy (the clip is shared).
struct ResolvedSource {
    zqvm::CaptureSource::Kind kind = zqvm::CaptureSource::Kind::Silence;
    double frequency = 0.0;
    double amplitude = 0.0;
    uint32_t intervalFrames = 0;
    bool loop = true;
    std::shared_ptr<const WavClip> clip;
};

// Loads a WAV source (libsndfile; converted to rate and channels with linear interpolation
// and channel mapping). nullopt and the reason in *error for a file that cannot be read or a
// meaningless parameter.
std::optional<ResolvedSource> ResolveSource(const zqvm::CaptureSource& source, uint32_t rate, uint16_t channels,
                                            std::string* error);

// Frames fed by a test. Push may grow the storage (on the feeding thread); Pop never allocates.
class FedQueue {
public:
    void Push(std::span<const float> samples);
    // Moves up to count samples into out; returns how many.
    size_t Pop(float* out, size_t count);
    size_t Pending();
    void Clear();

private:
    std::mutex m_lock;
    std::vector<float> m_ring;
    size_t m_head = 0;
    size_t m_size = 0;
};

// One stream's position in its source. Used by the device clock only.
class SourceGenerator {
public:
    void Restart(const ResolvedSource& source);
    // Fills frames × channels samples; true when the packet is silence (no sound at all from
    // the source: a silent source, an empty feed queue, a finished file).
    bool Generate(float* out, uint32_t frames, uint16_t channels, uint32_t rate, FedQueue& fed);

private:
    ResolvedSource m_source;
    uint64_t m_frame = 0;     // frames generated since the restart
    size_t m_clipFrame = 0;   // position in the clip
};

}  // namespace zqplatform::audio
