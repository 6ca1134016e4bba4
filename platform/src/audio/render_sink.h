// Where a render endpoint's sound goes: the most recent frames played, kept for tests, the
// counts of frames, silent frames and underruns, and optionally a WAV file. Internal to the
// platform library.
//
// Append runs on the device clock (the clock thread, or the test's thread in stepped mode)
// and never allocates: the store is sized by Prepare, which streams call at Initialize. The
// WAV file is written there too; it is meant for local files.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

struct sf_private_tag;  // libsndfile's SNDFILE

namespace zqplatform::audio {

class RenderSink {
public:
    RenderSink(uint32_t rate, uint16_t channels, uint32_t keepSeconds);
    ~RenderSink();
    RenderSink(const RenderSink&) = delete;
    RenderSink& operator=(const RenderSink&) = delete;

    void Prepare();  // allocates the store once
    // frames × channels samples played in one period: silentFrames of them released silent,
    // underrunFrames of them silence the stream did not supply.
    void Append(const float* samples, uint32_t frames, uint32_t silentFrames, uint32_t underrunFrames);
    // One device period of frames, of which the stream supplied played: counts an underrun when
    // it was short, and follows the gaps once audio has flowed.
    void NotePeriod(uint32_t frames, uint32_t played);
    uint64_t LongestGapFrames();

    std::vector<float> Collected();
    uint64_t Frames();
    uint64_t SilentFrames();
    uint64_t UnderrunFrames();
    uint64_t Underruns();
    void Clear();

    bool OpenWav(const std::string& path, std::string* error);  // empty path: close
    void CloseWav();

private:
    const uint32_t m_rate;
    const uint16_t m_channels;
    const size_t m_keepFrames;
    std::mutex m_lock;
    std::vector<float> m_ring;  // m_keepFrames × channels once prepared
    size_t m_start = 0;         // oldest kept frame
    size_t m_kept = 0;
    uint64_t m_frames = 0;
    uint64_t m_silentFrames = 0;
    uint64_t m_underrunFrames = 0;
    uint64_t m_underruns = 0;
    bool m_flowing = false;        // a frame has been played since the last Clear
    uint64_t m_gapFrames = 0;      // frames without data since the last frame played
    uint64_t m_longestGap = 0;
    sf_private_tag* m_file = nullptr;
};

}  // namespace zqplatform::audio
