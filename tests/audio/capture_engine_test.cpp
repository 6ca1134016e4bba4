// The capture engine on the virtual audio engine with the stepped clock: what each packet puts
// into the analyzer buffers and the render queue, the start/stop rules, and every failure of
// opening a device.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <future>
#include <vector>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio_fixture.h"

namespace {

using zqtest::kStreamWaitMs;

class CaptureEngine : public zqtest::ExactMonitoringTest {
protected:
    void SetUp() override {
        ExactMonitoringTest::SetUp();
        speaker = AddRender(48000, 2, zqvm::SampleFormat::Float32);
        core->Init(window->Handle());
        capture = core->GetCaptureEngine();
        ASSERT_NE(capture, nullptr);
    }

    std::wstring OpenMicrophone(uint32_t rate, uint16_t channels, zqvm::SampleFormat format) {
        mic = AddCapture(rate, channels, format, zqvm::CaptureSource::Fed());
        EXPECT_TRUE(core->SetCaptureDevice(Device(mic)));
        return mic;
    }

    // One device period: the engine delivers a packet, the capture thread handles it.
    void CapturePeriod() {
        const uint64_t before = zqvm::CapturePacketsReleased(mic);
        StepPeriods(1);
        ASSERT_TRUE(zqvm::WaitForCapturePacketsReleased(mic, before + 1, kStreamWaitMs));
    }

    // The latest-packet block of the analyzer's input buffer: frame count and frames.
    std::vector<float> LatestPacket() {
        return capture->WithFeeds([](CAudioSharedMem& input, CAudioSharedMem&) {
            const uint8_t* block = input.GetBlock();
            int32_t count = 0;
            std::memcpy(&count, block, 4);
            std::vector<float> frames(static_cast<size_t>(std::max(count, 0)) * 2);
            if (!frames.empty()) std::memcpy(frames.data(), block + 8, frames.size() * sizeof(float));
            return frames;
        });
    }

    std::vector<float> QueuedForRender() {
        return capture->WithQueue([](CCircularBuffer& queue) {
            std::vector<float> queued(queue.GetCount() / sizeof(float));
            if (!queued.empty()) queue.Read(queued.data(), queued.size() * sizeof(float));
            return queued;
        });
    }

    std::wstring speaker;
    std::wstring mic;
    CAudioCapture* capture = nullptr;
};

TEST_F(CaptureEngine, SilentPacketsAndBypassOffFeedNothingButTheDeviceIsDrained) {
    OpenMicrophone(48000, 2, zqvm::SampleFormat::Float32);
    ASSERT_TRUE(capture->StartCapture());
    CapturePeriod();  // nothing fed: the engine delivers a silent packet
    EXPECT_TRUE(LatestPacket().empty());
    EXPECT_TRUE(QueuedForRender().empty());

    core->SetBypass(false);
    std::vector<float> fed(960, 0.5f);
    ASSERT_TRUE(zqvm::FeedFrames(mic, fed));
    CapturePeriod();
    EXPECT_EQ(zqvm::FedFramesPending(mic), 0u);  // drained
    EXPECT_TRUE(LatestPacket().empty());
    EXPECT_TRUE(QueuedForRender().empty());

    core->SetBypass(true);
    ASSERT_TRUE(zqvm::FeedFrames(mic, fed));
    CapturePeriod();
    EXPECT_EQ(LatestPacket().size(), 960u);
}

TEST_F(CaptureEngine, AWakeUpWithoutAPacketReleasesZeroFramesAndFeedsNothing) {
    OpenMicrophone(48000, 2, zqvm::SampleFormat::Float32);
    ASSERT_TRUE(capture->StartCapture());
    CapturePeriod();
    const uint64_t released = zqvm::CapturePacketsReleased(mic);
    recorder->Clear();
    // The samples-ready event without a packet behind it: GetBuffer yields 0 frames.
    ASSERT_TRUE(SetEvent(capture->m_CaptureAudioSamplesReadyEvent.get()));
    ASSERT_TRUE(zqvm::FeedFrames(mic, std::vector<float>(960, 0.5f)));
    CapturePeriod();  // the next real packet is still handled normally
    EXPECT_EQ(zqvm::CapturePacketsReleased(mic), released + 1);
    EXPECT_EQ(LatestPacket().size(), 960u);
    EXPECT_TRUE(recorder->TextsContaining(L"Unable to release capture buffer").empty());
}

TEST_F(CaptureEngine, StartAndStopRules) {
    ASSERT_FALSE(capture->StartCapture());  // no device opened yet
    EXPECT_TRUE(recorder->Contains(L"!m_spCaptureAudioClient.p"));
    recorder->Clear();
    capture->StopCapture();
    auto events = recorder->Events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1].text, L"!IsStarted");
    EXPECT_EQ(events[1].type, zqLogEventWarning);

    OpenMicrophone(48000, 2, zqvm::SampleFormat::Float32);
    ASSERT_TRUE(capture->StartCapture());
    HANDLE thread = capture->m_CaptureThread;
    ASSERT_NE(thread, nullptr);
    ASSERT_TRUE(capture->StartCapture());
    EXPECT_EQ(capture->m_CaptureThread, thread);  // one thread only
    EXPECT_EQ(zqvm::RunningStreams(mic), 1);
    capture->StopCapture();
    EXPECT_EQ(capture->m_CaptureThread, nullptr);
    EXPECT_EQ(zqvm::RunningStreams(mic), 0);
    EXPECT_TRUE(recorder->Contains(L"AudioCapture: WASAPICaptureThread end of thread"));
}

TEST_F(CaptureEngine, ANullDeviceReleasesTheStreamAndOpensNothing) {
    OpenMicrophone(48000, 2, zqvm::SampleFormat::Float32);
    ASSERT_TRUE(capture->StartCapture());
    EXPECT_EQ(capture->SetAudioDevice(nullptr), 1);
    EXPECT_EQ(capture->m_CaptureThread, nullptr);
    EXPECT_FALSE(capture->m_CaptureShutdownEvent);
    EXPECT_FALSE(capture->m_spCaptureAudioClient);
    EXPECT_EQ(zqvm::EndpointRefCount(mic), 0);
    EXPECT_EQ(capture->SetFirstAudioDevice(), E_FAIL);  // no microphone listed
}

// Every step of the open, and each of the stream's two events, failing once.
TEST_F(CaptureEngine, EveryFailingStepIsReportedAndTheNextOpenSucceeds) {
    mic = AddCapture(48000, 2, zqvm::SampleFormat::Float32, zqvm::CaptureSource::Fed());
    const long baseline = zqvm::LiveObjectCount();
    ExpectEachFailingStepReported(
        mic, static_cast<HRESULT>(0x88890099u),
        {
            {"IMMDevice::Activate/IAudioClient", L"Unable to activate audio client: 88890099.\n"},
            {"IAudioClient::GetMixFormat", L"Unable to get mix format on audio client: 88890099.\n"},
            {"IAudioClient::Initialize", L"Unable to initialize audio client: 88890099.\n"},
            {"IAudioClient::GetBufferSize", L"Unable to get audio client buffer: 88890099. \n"},
            {"IAudioClient::SetEventHandle", L"Unable to set ready event: 88890099.\n"},
            {"IAudioClient::GetService/IAudioCaptureClient", L"Unable to get new capture client: 88890099.\n"},
            {"IAudioClient::GetService/ISimpleAudioVolume", L"Unable to get Capture Simple Audio Volume: 88890099.\n"},
            {"IMMDevice::Activate/IAudioMeterInformation", L"Unable to get Capture Audio Meter Info: 88890099.\n"},
        },
        [this] { return capture->SetAudioDevice(Device(mic)); });
    capture->SetAudioDevice(nullptr);
    EXPECT_EQ(zqvm::LiveObjectCount(), baseline);  // nothing a failed open built was left behind
    EXPECT_EQ(zqvm::EndpointRefCount(mic), 0);
}

TEST_F(CaptureEngine, AFormatTheResamplerRefusesFailsTheOpenButKeepsTheClient) {
    mic = AddCapture(48000, 2, zqvm::SampleFormat::Int24, zqvm::CaptureSource::Fed());
    EXPECT_EQ(capture->SetAudioDevice(Device(mic)), E_FAIL);  // reported by the resampler set-up
    // The stream still runs; its packets are drained and dropped.
    ASSERT_TRUE(capture->StartCapture());
    ASSERT_TRUE(zqvm::FeedFrames(mic, std::vector<float>(960, 0.5f)));
    CapturePeriod();
    EXPECT_TRUE(LatestPacket().empty());
}

TEST_F(CaptureEngine, AnEndpointPulledMidStreamStopsPromptlyAndAnotherOpens) {
    OpenMicrophone(48000, 2, zqvm::SampleFormat::Float32);
    ASSERT_TRUE(capture->StartCapture());
    CapturePeriod();
    ASSERT_TRUE(zqvm::InvalidateEndpoint(mic));
    StepPeriods(5);  // no more packets; the thread must neither spin nor crash
    auto stopped = std::async(std::launch::async, [this] { capture->StopCapture(); });
    ASSERT_EQ(stopped.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    const std::wstring second = AddCapture(44100, 1, zqvm::SampleFormat::Int16, zqvm::CaptureSource::Fed(), L"Mic 2");
    mic = second;
    ASSERT_TRUE(core->SetCaptureDevice(Device(second)));
    ASSERT_TRUE(capture->StartCapture());
    ASSERT_TRUE(zqvm::FeedFrames(second, std::vector<float>(441, 0.25f)));
    CapturePeriod();
    EXPECT_FALSE(LatestPacket().empty());
}


// Level in dB (full scale 1.0) of the samples at offset, offset + stride, ...
double LevelDb(const std::vector<float>& samples, size_t offset, size_t stride) {
    double power = 0.0;
    size_t count = 0;
    for (size_t i = offset; i < samples.size(); i += stride, ++count) {
        power += static_cast<double>(samples[i]) * samples[i];
    }
    return count == 0 ? -999.0 : 10.0 * std::log10(power / static_cast<double>(count));
}

// A -6 dBFS tone on the first channel of microphones with 1 to 8 channels; every other channel
// carries the tone inverted, so that any share of them in the engine's frames moves the level.
// Microphones with two or more channels, 5 and 7 included, reach the analyzer feed and the
// render queue as their first channel twice, unchanged, so at a stereo microphone's level and
// without clipping; a mono one (16-bit, so that a device format other than the engine's is
// converted too) at the resampler's mono-to-stereo gain (-3 dB), within 16-bit quantisation.
// The latest-packet block holds the frames the render queue got (its device has the engine's
// format).
TEST_F(CaptureEngine, EveryChannelCountFeedsTheFirstChannelAtTheLevelOfAStereoMicrophone) {
    const double amplitude = std::pow(10.0, -6.0 / 20.0);
    const double stereoDb = 20.0 * std::log10(amplitude / std::sqrt(2.0));  // whole periods of the tone
    for (uint16_t channels = 1; channels <= 8; ++channels) {
        SCOPED_TRACE(testing::Message() << channels << " channels");
        const zqvm::SampleFormat format = channels == 1 ? zqvm::SampleFormat::Int16 : zqvm::SampleFormat::Float32;
        mic = AddCapture(48000, channels, format, zqvm::CaptureSource::Fed(),
                         (L"Microphone " + std::to_wstring(channels)).c_str());
        ASSERT_TRUE(core->SetCaptureDevice(Device(mic)));
        ASSERT_TRUE(capture->StartCapture());
        std::vector<float> fed;
        for (int i = 0; i < 480; ++i) {
            const auto v = static_cast<float>(amplitude * std::sin(2.0 * M_PI * 1000.0 * i / 48000.0));
            fed.push_back(v);
            for (uint16_t c = 1; c < channels; ++c) fed.push_back(-v);
        }
        ASSERT_TRUE(zqvm::FeedFrames(mic, fed));
        CapturePeriod();

        std::vector<float> feed(480);
        const size_t bytes = capture->WithFeeds([&](CAudioSharedMem& input, CAudioSharedMem&) {
            return input.Read(feed.data(), feed.size() * sizeof(float));
        });
        ASSERT_EQ(bytes, 480 * sizeof(float));
        const std::vector<float> queued = QueuedForRender();
        ASSERT_EQ(queued.size(), 960u);

        const double expectedDb = channels == 1 ? stereoDb + 20.0 * std::log10(M_SQRT1_2) : stereoDb;
        EXPECT_NEAR(LevelDb(feed, 0, 1), expectedDb, 0.01);
        EXPECT_NEAR(LevelDb(queued, 0, 2), expectedDb, 0.01) << "left";
        EXPECT_NEAR(LevelDb(queued, 1, 2), expectedDb, 0.01) << "right";
        for (size_t i = 0; i < feed.size(); ++i) {
            if (channels > 1) {
                ASSERT_EQ(feed[i], fed[i * channels]) << "frame " << i;
            }
            ASSERT_EQ(queued[2 * i], feed[i]) << "frame " << i;
            ASSERT_EQ(queued[2 * i + 1], feed[i]) << "frame " << i;
        }
        EXPECT_EQ(LatestPacket(), queued);
        capture->StopCapture();
    }
}

}  // namespace
