// Helpers for the analyzer's tests: a core with its engines on the stepped clock (so that the
// core's own analyzer thread never runs a job unless a test moves the clock), feeding the
// capture engine's analyzer buffers, bounded waits. The test thread does not join COM, so Init
// opens no audio device: the engines are there, with nothing but what a test feeds them.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "analysis/AudioAnalyzer.h"
#include "audio/AudioCapture.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/clock.h"

namespace zqtest {

constexpr int64_t kMs100ns = 10000;  // one millisecond on the platform clock

// Polls pred until it holds or timeoutMs of real time have passed.
template <typename Pred>
bool WaitUntil(Pred pred, int timeoutMs = 5000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

inline std::vector<float> Values(CAudioAnalyzer::SharedArray array) {
    std::vector<float> values;
    for (const auto& element : array) values.push_back(element.load());
    return values;
}

inline std::vector<float> Values(const CPeakHistory& history) {
    std::vector<float> values;
    for (int place = 0; place < history.Size(); ++place) values.push_back(history.At(place));
    return values;
}

using Feed = CAudioCapture::Feed;
constexpr Feed kInputFeed = Feed::Input;
constexpr Feed kOutputFeed = Feed::Output;

// Writes count engine frames into one analyzer feed of the capture engine, as its thread does.
inline void WriteFeed(CAudioCapture& capture, Feed feed, const float* frames, uint32_t count) {
    capture.WithFeeds([&](CAudioSharedMem& input, CAudioSharedMem& output) {
        (feed == Feed::Input ? input : output).WritePacket(frames, count);
    });
}

class CoreWithEngines : public ::testing::Test {
protected:
    void SetUp() override {
        zqvm::SetClockMode(zqvm::ClockMode::Stepped);
        core = std::make_unique<CZQCoreAudio>();
        core->Init(nullptr);
        capture = core->GetCaptureEngine();
        ASSERT_NE(capture, nullptr);
    }
    void TearDown() override {
        core->Shutdown();
        core.reset();
        g_pCore = nullptr;  // the destructor leaves it; later tests must not see a dead core
        zqvm::SetClockMode(zqvm::ClockMode::RealTime);
    }

    // Queues mono samples as engine frames (first channel the sample, second its negation: only
    // the first may reach the analyzer).
    void Push(Feed feed, const std::vector<float>& mono) {
        std::vector<float> frames;
        for (float s : mono) {
            frames.push_back(s);
            frames.push_back(-s);
        }
        WriteFeed(*capture, feed, frames.data(), static_cast<uint32_t>(mono.size()));
    }

    std::unique_ptr<CZQCoreAudio> core;
    CAudioCapture* capture = nullptr;
};

}  // namespace zqtest
