// Monitoring end to end: a tone on a virtual microphone, streams started through the core,
// what the virtual speaker receives. On the real-time clock as the host runs it (pitch and level:
// a loaded machine may be late to wake a stream thread, which a host hears as a gap), and on the
// stepped clock, where the absence of gaps and clicks is held exactly.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio_fixture.h"
#include "tone_pitch.h"
#include "zqplatform/vm/message_pump.h"

namespace {

constexpr double kTone = 1000.0;
constexpr double kAmplitude = 0.5;

struct ChannelStats {
    double frequency = 0;  // from the crossings' spacing (zqtest::TonePitchHz)
    double peak = 0;       // from the RMS of a sine
    double worstStep = 0;  // largest deviation from the sine recurrence: clicks, gaps, garbage
};

// Statistics of one channel of interleaved frames, over whole cycles from `first` on.
ChannelStats Analyse(const std::vector<float>& frames, int channels, int channel, size_t first, size_t count,
                     double rate) {
    ChannelStats stats;
    double sumSquares = 0;
    const double c = 2.0 * std::cos(2.0 * M_PI * kTone / rate);
    for (size_t i = first; i < first + count; ++i) {
        const double x = frames[i * channels + channel];
        sumSquares += x * x;
        if (i > first + 1) {
            const double prev = frames[(i - 1) * channels + channel];
            const double prev2 = frames[(i - 2) * channels + channel];
            stats.worstStep = std::max(stats.worstStep, std::fabs(x - (c * prev - prev2)));
        }
    }
    stats.peak = std::sqrt(2.0 * sumSquares / static_cast<double>(count));
    stats.frequency = zqtest::TonePitchHz(frames.data() + channel, channels, first, first + count, rate);
    return stats;
}

double Decibels(double ratio) { return 20.0 * std::log10(ratio); }

class Monitoring : public zqtest::ExactMonitoringTest {
protected:
    // Opens the microphone and the default speaker through the core.
    void Open(uint32_t micRate, uint16_t micChannels, zqvm::SampleFormat micFormat, uint32_t speakerRate,
              zqvm::SampleFormat speakerFormat) {
        speaker = AddRender(speakerRate, 2, speakerFormat);
        mic = AddCapture(micRate, micChannels, micFormat, zqvm::CaptureSource::Tone(kTone, kAmplitude));
        speakerRateHz = speakerRate;
        core->Init(window->Handle());
        ASSERT_TRUE(core->SetCaptureDevice(Device(mic)));
    }

    // Checks both channels of what the speaker played: the tone's pitch and the expected level;
    // with exact timing also no discontinuity (a click, a gap or garbage breaks the sine
    // recurrence) and no period without data once audio flows.
    enum class Timing { Scheduler, Stepped };
    void ExpectTone(double expectedPeak, double quantisation, Timing timing) {
        const std::vector<float> played = zqvm::RenderedFrames(speaker);
        const size_t frames = played.size() / 2;
        const size_t skip = speakerRateHz / 10;  // the resamplers' start-up
        ASSERT_GT(frames, skip + speakerRateHz);
        const size_t count = (frames - skip) / (speakerRateHz / 1000) * (speakerRateHz / 1000);
        for (int channel = 0; channel < 2; ++channel) {
            SCOPED_TRACE(channel == 0 ? "left" : "right");
            const ChannelStats s = Analyse(played, 2, channel, skip, count, speakerRateHz);
            EXPECT_NEAR(s.frequency, kTone, 2.0);
            EXPECT_LT(std::fabs(Decibels(s.peak / expectedPeak)), 0.5) << "peak " << s.peak;
            if (timing == Timing::Stepped) {
                EXPECT_LT(s.worstStep, 2e-3 + quantisation) << "a discontinuity in the played tone";
            }
        }
        if (timing == Timing::Stepped) {
            EXPECT_LE(zqvm::LongestGapFrames(speaker), speakerRateHz / 100);
        }
    }

    std::wstring mic;
    std::wstring speaker;
    uint32_t speakerRateHz = 0;
};

// The render engine opens its device with the stream volume at 0.5; the virtual speaker applies
// that session volume, so a level passed through unchanged arrives at half the amplitude.
double SessionGain(const std::wstring& speaker) { return zqvm::SessionVolume(speaker); }

TEST_F(Monitoring, RealTimeMono16BitToStereo16BitAt44100) {
    zqvm::SetClockMode(zqvm::ClockMode::RealTime);
    Open(48000, 1, zqvm::SampleFormat::Int16, 44100, zqvm::SampleFormat::Int16);
    core->Start();
    ASSERT_TRUE(core->IsStarted());
    ASSERT_TRUE(zqvm::PumpUntil([&] { return zqvm::RenderedFrameCount(speaker) >= 88200; }, 10000));
    core->Stop();
    // The capture resampler maps the mono channel to left and right at -3 dB.
    ExpectTone(kAmplitude * M_SQRT1_2 * SessionGain(speaker), 2.0 / 32768.0, Timing::Scheduler);
}

TEST_F(Monitoring, SteppedClockHasNoGapOnceAudioFlows) {
    Open(44100, 2, zqvm::SampleFormat::Float32, 48000, zqvm::SampleFormat::Float32);
    // The two device clocks run half a period apart, so that each step of 5 ms wakes exactly one
    // stream thread and the test can wait for it: capture at 10, 20, ... ms, render at 15, 25, ...
    // Every render wake-up then finds the packet captured just before it.
    ASSERT_TRUE(core->GetCaptureEngine()->StartCapture());
    zqvm::AdvanceClock(50000);
    ASSERT_TRUE(core->GetRenderEngine()->StartRender());
    uint64_t packets = 0;
    uint64_t buffers = 0;
    auto captureStep = [&] {
        zqvm::AdvanceClock(50000);
        ASSERT_TRUE(zqvm::WaitForCapturePacketsReleased(mic, ++packets, 5000));
    };
    auto renderStep = [&] {
        zqvm::AdvanceClock(50000);
        ASSERT_TRUE(zqvm::WaitForRenderBuffersReleased(speaker, ++buffers, 5000));
    };
    captureStep();
    renderStep();  // the first packet goes into the device
    captureStep();
    renderStep();  // the device plays it: audio flows from here
    // The resamplers' first output is a little short of a period (their filter delay), which
    // leaves the device a few frames short once; from then on every period is full.
    const uint64_t underrunsAtFlow = zqvm::Underruns(speaker);
    for (int i = 0; i < 200; ++i) {
        captureStep();
        renderStep();
    }
    EXPECT_EQ(zqvm::Underruns(speaker), underrunsAtFlow);
    core->Stop();
    ExpectTone(kAmplitude * SessionGain(speaker), 0.0, Timing::Stepped);
}

}  // namespace
