// The monitoring path's rate control: the stage on its own (its correction follows the depth
// the render thread reports, within its bound), the switch in the environment, and the whole
// path on the stepped clock with a speaker whose clock runs slow, or a render thread held up.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio/MonitorRateControl.h"
#include "audio_fixture.h"
#include "scoped_environment.h"
#include "zqplatform/vm/thread_waits.h"

namespace {

using zqtest::AudioMachineTest;
using zqtest::ScopedEnvironment;

constexpr const char* kSwitch = CMonitorRateControl::kDisableVariable;

WAVEFORMATEX SpeakerFormat(uint32_t rate) {
    WAVEFORMATEX format{};
    format.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
    format.nChannels = 2;
    format.nSamplesPerSec = rate;
    format.wBitsPerSample = 32;
    format.nBlockAlign = 8;
    format.nAvgBytesPerSec = rate * 8;
    return format;
}

// Frames the stage produces from `packets` packets of 480, each after a window's worth of
// refills that found `depthFrames`.
int64_t FramesThrough(CMonitorRateControl& stage, int packets, size_t depthFrames) {
    std::vector<float> packet(480 * 2, 0.25f);
    int64_t produced = 0;
    for (int p = 0; p < packets; ++p) {
        stage.ObserveDepth(depthFrames);
        const float* out = nullptr;
        const int n = stage.Process(packet.data(), 480, &out);
        EXPECT_GE(n, 0);
        produced += n;
    }
    return produced;
}

TEST(MonitorRateControl, TheCorrectionFollowsTheDepthWithinItsBound) {
    ScopedEnvironment on(kSwitch, "1");
    const WAVEFORMATEX format = SpeakerFormat(48000);
    std::unique_ptr<CMonitorRateControl> stage = CMonitorRateControl::Create(format);
    ASSERT_NE(stage, nullptr);
    const int packets = 1000;  // ten seconds
    const double in = 480.0 * packets;

    // At the target depth the stage passes the frames on, apart from its filter's few.
    const size_t target = 528;  // 11 ms at 48 kHz
    EXPECT_NEAR(static_cast<double>(FramesThrough(*stage, packets, target)), in, 64.0);
    EXPECT_DOUBLE_EQ(stage->CorrectionPpm(), 0.0);

    // Half a millisecond too deep (a slow render clock's creep): 1000 ppm fewer frames. The
    // first window still runs at the correction before it, so it is counted apart.
    FramesThrough(*stage, 10, target + 24);
    EXPECT_NEAR(stage->CorrectionPpm(), -1000.0, 0.1);
    EXPECT_NEAR(static_cast<double>(FramesThrough(*stage, packets, target + 24)), in * (1 - 1000e-6), 8.0);

    // A backlog of 100 ms drains at the bound, not faster.
    FramesThrough(*stage, 10, target + 4800);
    EXPECT_DOUBLE_EQ(stage->CorrectionPpm(), -CMonitorRateControl::kMaxCorrectionPpm);
    // (libswresample applies large corrections a little short of what was asked: 1.96 %.)
    EXPECT_NEAR(static_cast<double>(FramesThrough(*stage, packets, target + 4800)), in * (1 - 0.02), in * 0.001);

    // Too shallow (a fast render clock): more frames.
    FramesThrough(*stage, 10, target - 24);
    EXPECT_NEAR(stage->CorrectionPpm(), 1000.0, 0.1);
    EXPECT_NEAR(static_cast<double>(FramesThrough(*stage, packets, target - 24)), in * (1 + 1000e-6), 8.0);
}

// The whole monitoring path on the stepped clock: the speaker's periods end 5 ms after the
// microphone's, so each half-period step wakes one stream thread, which the test waits for.
class RateControlledMonitoring : public AudioMachineTest {
protected:
    void Start(const char* rateControl, double speakerPpm) {
        environment = std::make_unique<ScopedEnvironment>(kSwitch, rateControl);
        zqvm::EndpointSpec speakerSpec;
        speakerSpec.flow = eRender;
        speakerSpec.name = L"Speakers (test)";
        speakerSpec.ppm = speakerPpm;
        speakerSpec.phaseMs = 5.0;
        speakerSpec.defaultFor = {eConsole, eMultimedia, eCommunications};
        speaker = zqvm::AddEndpoint(speakerSpec);
        mic = AddCapture(44100, 1, zqvm::SampleFormat::Float32, zqvm::CaptureSource::Tone(440, 0.5));
        core->Init(window->Handle());
        ASSERT_TRUE(core->SetCaptureDevice(Device(mic)));
        core->Start();
        ASSERT_TRUE(core->IsStarted());
        zqvm::AdvanceClock(50000);  // from here each step ends a capture period, then a render one
    }

    // Runs the given number of device periods, each stream thread done before the next step.
    void Run(int periods) {
        HANDLE captureReady = core->GetCaptureEngine()->m_CaptureAudioSamplesReadyEvent.get();
        HANDLE renderReady = core->GetRenderEngine()->m_RenderAudioSamplesReadyEvent.get();
        for (int i = 0; i < periods; ++i) {
            zqvm::AdvanceClock(50000);
            ASSERT_TRUE(zqvm::WaitUntilWaitedOn(captureReady, 5000));
            zqvm::AdvanceClock(50000);
            ASSERT_TRUE(zqvm::WaitUntilWaitedOn(renderReady, 5000));
        }
    }

    // What waits to be heard: the frames queued for the render thread and those its device holds.
    size_t QueuedFrames() {
        UINT32 padding = 0;
        EXPECT_EQ(core->GetRenderEngine()->m_spRenderAudioClient->GetCurrentPadding(&padding), S_OK);
        return padding +
               core->GetCaptureEngine()->WithQueue([](CCircularBuffer& queue) { return queue.GetCount() / 8; });
    }

    std::unique_ptr<ScopedEnvironment> environment;
    std::wstring speaker;
    std::wstring mic;
};

TEST_F(RateControlledMonitoring, ASlowSpeakerClockNeitherFillsTheQueueNorDropsAudio) {
    Start("1", -1000.0);
    Run(200);
    const size_t settled = QueuedFrames();
    Run(6000);  // a minute: the slow speaker leaves 48 frames a second behind
    EXPECT_LE(QueuedFrames(), settled + 48) << "the queue stays within a millisecond of where it settled";
    EXPECT_EQ(core->GetCaptureEngine()->QueueDroppedFrames(), 0u);
    const uint64_t underruns = zqvm::Underruns(speaker);
    Run(100);
    EXPECT_EQ(zqvm::Underruns(speaker), underruns);
}

TEST_F(RateControlledMonitoring, AFastSpeakerClockNeverRunsDry) {
    Start("1", 1000.0);
    Run(200);
    const uint64_t underruns = zqvm::Underruns(speaker);
    const size_t settled = QueuedFrames();
    Run(6000);  // a minute: the fast speaker takes 48 frames a second more than it gets
    EXPECT_EQ(zqvm::Underruns(speaker), underruns);
    EXPECT_GE(QueuedFrames() + 48, settled) << "the queue stays within a millisecond of where it settled";
}

TEST_F(RateControlledMonitoring, WithoutItTheSameSpeakerBuildsABacklog) {
    Start("0", -1000.0);
    Run(200);
    const size_t settled = QueuedFrames();
    Run(6000);
    EXPECT_GE(QueuedFrames(), settled + 2800) << "a minute at 1000 ppm leaves 2880 frames behind, for good";
}

TEST_F(RateControlledMonitoring, TheBacklogOfAHeldUpRenderThreadDrainsWithinFiveSeconds) {
    Start("1", 0.0);
    Run(200);
    const size_t settled = QueuedFrames();
    ASSERT_TRUE(zqvm::HoldStreamEvents(speaker, 5));
    Run(10);
    EXPECT_GE(QueuedFrames(), settled + 2000) << "50 ms held up leave a backlog";
    Run(490);
    EXPECT_LE(QueuedFrames(), settled + 96) << "back within 2 ms";
    EXPECT_EQ(core->GetCaptureEngine()->QueueDroppedFrames(), 0u);
}

}  // namespace
