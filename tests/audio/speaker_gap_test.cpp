// What a listener hears when the render thread is held up: the virtual speaker plays silence
// for the periods nobody filled, and the file it records (the host's --output) shows the gap
// where it happened instead of closing it up.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio_fixture.h"
#include "wav_file.h"

namespace {

using zqtest::ExactMonitoringTest;

constexpr int64_t kHalfPeriod = 50000;

// Runs of exact zeros at least minFrames long, after the first sound: (start, length) pairs.
std::vector<std::pair<size_t, size_t>> SilentRuns(const std::vector<float>& samples, size_t minFrames) {
    std::vector<std::pair<size_t, size_t>> runs;
    size_t i = 0;
    while (i < samples.size() && samples[i] == 0.0f) ++i;
    while (i < samples.size()) {
        if (samples[i] != 0.0f) {
            ++i;
            continue;
        }
        const size_t start = i;
        while (i < samples.size() && samples[i] == 0.0f) ++i;
        if (i - start >= minFrames) runs.emplace_back(start, i - start);
    }
    return runs;
}

// The queue as the engines leave it, refilled at every period from the first.
class SpeakerGap : public ExactMonitoringTest {};

TEST_F(SpeakerGap, AHeldUpRenderThreadLeavesSilenceInTheRecordedOutput) {
    const std::wstring speaker = AddRender(48000, 2, zqvm::SampleFormat::Float32);
    const std::wstring mic = AddCapture(48000, 2, zqvm::SampleFormat::Float32, zqvm::CaptureSource::Tone(1000, 0.5));
    const std::string output = testing::TempDir() + "/speaker_gap_output.wav";
    std::string error;
    ASSERT_TRUE(zqvm::SetRenderWavFile(speaker, output, &error)) << error;
    core->Init(window->Handle());
    ASSERT_TRUE(core->SetCaptureDevice(Device(mic)));
    CAudioCapture* capture = core->GetCaptureEngine();
    // Capture periods end at 10, 20, ... ms and render periods at 15, 25, ...: each half-period
    // step wakes one stream thread, and the test waits for it.
    ASSERT_TRUE(capture->StartCapture());
    zqvm::AdvanceClock(kHalfPeriod);
    ASSERT_TRUE(core->GetRenderEngine()->StartRender());
    uint64_t packets = 0;
    uint64_t buffers = 0;
    for (int i = 0; i < 60; ++i) {
        zqvm::AdvanceClock(kHalfPeriod);
        ASSERT_TRUE(zqvm::WaitForCapturePacketsReleased(mic, ++packets, zqtest::kStreamWaitMs));
        zqvm::AdvanceClock(kHalfPeriod);
        ASSERT_TRUE(zqvm::WaitForRenderBuffersReleased(speaker, ++buffers, zqtest::kStreamWaitMs));
    }
    const uint64_t underrunFramesBefore = zqvm::UnderrunFrames(speaker);
    const uint64_t playedBefore = zqvm::RenderedFrameCount(speaker);

    // The render thread waits for the packet lock while the device plays on for 100 ms.
    constexpr int kHeldPeriods = 10;
    capture->WithQueue([&](CCircularBuffer&) { zqvm::AdvanceClock(kHeldPeriods * 2 * kHalfPeriod); });
    core->Stop();
    ASSERT_TRUE(zqvm::SetRenderWavFile(speaker, std::string()));  // completes the file

    const uint64_t gapFrames = zqvm::UnderrunFrames(speaker) - underrunFramesBefore;
    // What the device held when the thread stopped (at most its 30 ms buffer) is played first.
    EXPECT_GE(gapFrames, (kHeldPeriods - 3) * 480u);
    EXPECT_EQ(zqvm::RenderedFrameCount(speaker), playedBefore + kHeldPeriods * 480u);

    const std::vector<float> left = zqtest::ReadWav(output).first;
    ASSERT_EQ(left.size(), zqvm::RenderedFrameCount(speaker)) << "every period is in the file";
    const auto runs = SilentRuns(left, 48);  // a millisecond of exact zeros is no tone
    ASSERT_EQ(runs.size(), 1u) << "one gap, and none while the thread kept up";
    EXPECT_EQ(runs[0].second, gapFrames);
    EXPECT_EQ(runs[0].first + runs[0].second, left.size()) << "the gap is where the thread was held up";
    std::remove(output.c_str());
}

}  // namespace
