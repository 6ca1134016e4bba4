// Streams that meet failing calls: a device that did not open starts no thread; a failed
// release is made good at the next wake-up; a loop call that keeps failing is reported once and
// the host, told with its device message, rebuilds the stream and sound flows again.
#include <gtest/gtest.h>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio/StreamFailureWatch.h"
#include "audio_fixture.h"

namespace {

using zqtest::AudioMachineTest;

constexpr uint32_t kWait = 5000;
constexpr HRESULT kFault = static_cast<HRESULT>(0x8889A001);

class StreamRecovery : public AudioMachineTest {
protected:
    void SetUp() override {
        AudioMachineTest::SetUp();
        speaker = AddRender(48000, 2, zqvm::SampleFormat::Float32);
        mic = AddCapture(48000, 1, zqvm::SampleFormat::Float32, zqvm::CaptureSource::Tone(1000.0, 0.5));
    }

    // Opens the microphone, starts both streams and lets them run for a few periods.
    void StartMonitoring() {
        core->Init(window->Handle());
        ASSERT_TRUE(core->SetCaptureDevice(Device(mic)));
        core->Start();
        ASSERT_TRUE(core->IsStarted());
    }

    // Whether the microphone's packets keep coming and what they carry reaches the speaker over
    // the next periods (the render thread hands the device only what the capture thread queued).
    bool SoundFlows(int periods = 10) {
        const uint64_t rendered = zqvm::RenderBuffersReleased(speaker);
        for (int i = 0; i < periods; ++i) {
            const uint64_t packets = zqvm::CapturePacketsReleased(mic);
            StepPeriods(1);
            if (!zqvm::WaitForCapturePacketsReleased(mic, packets + 1, kWait)) {
                ADD_FAILURE() << "no capture packet at step " << i;
                return false;
            }
        }
        return zqvm::WaitForRenderBuffersReleased(speaker, rendered + 1, kWait);
    }

    size_t Lines(const std::wstring& text) { return recorder->TextsContaining(text).size(); }

    // Moves the clock until the host's window gets message: a failure must last a number of
    // wake-ups before it is reported, and wake-ups that fall due together count once.
    bool StepUntilTold(UINT message) {
        for (int i = 0; i < 20 * CStreamFailureWatch::kPersistentWakeUps; ++i) {
            StepPeriods(1);
            if (window->WaitFor(message, 1, 20)) return true;
        }
        return false;
    }

    std::wstring speaker;
    std::wstring mic;
};

TEST_F(StreamRecovery, ADeviceThatDidNotOpenStartsNoThreadAndSaysSoOnce) {
    core->Init(window->Handle());
    ASSERT_TRUE(zqvm::InjectFailure(mic, "IAudioClient::GetService/IAudioCaptureClient", kFault));
    EXPECT_FALSE(core->SetCaptureDevice(Device(mic)));
    core->Start();
    EXPECT_FALSE(core->GetCaptureEngine()->IsStarted());
    EXPECT_TRUE(core->GetRenderEngine()->IsStarted());
    StepPeriods(3);  // a capture thread would meet the missing capture client here
    EXPECT_TRUE(recorder->Contains(L"Unable to get new capture client: 8889a001.\n"));
    EXPECT_TRUE(recorder->Contains(L"AudioCapture: the capture device did not open: no stream to start"));
    EXPECT_TRUE(recorder->TextsContaining(L"Unable to start capture client").empty());
}

TEST_F(StreamRecovery, AFailedCaptureReleaseIsMadeGoodAtTheNextWakeUp) {
    StartMonitoring();
    ASSERT_TRUE(SoundFlows());
    ASSERT_TRUE(zqvm::InjectFailure(mic, "IAudioCaptureClient::ReleaseBuffer", kFault, true));
    const uint64_t released = zqvm::CapturePacketsReleased(mic);
    StepPeriods(1);  // this packet's release fails: the device holds it
    ASSERT_TRUE(recorder->WaitFor(L"Unable to release capture buffer: 8889a001!\n", kWait));
    StepPeriods(1);  // released now, and the next packet after it
    EXPECT_TRUE(zqvm::WaitForCapturePacketsReleased(mic, released + 2, kWait));
    EXPECT_TRUE(SoundFlows(20));
    EXPECT_EQ(Lines(L"Unable to release capture buffer: 8889a001!\n"), 1u);
    EXPECT_TRUE(window->Received(WM_AUDIO_DEVICE_CHANGED).empty()) << "recovered without the host";
}

TEST_F(StreamRecovery, AFailedRenderReleaseIsMadeGoodAtTheNextWakeUp) {
    StartMonitoring();
    ASSERT_TRUE(SoundFlows());
    ASSERT_TRUE(zqvm::InjectFailure(speaker, "IAudioRenderClient::ReleaseBuffer", kFault, true));
    EXPECT_TRUE(SoundFlows(20));
    EXPECT_TRUE(window->Received(WM_AUDIO_RENDER_CHANGED).empty()) << "recovered without the host";
}

TEST_F(StreamRecovery, ACaptureCallThatKeepsFailingIsReportedOnceAndTheHostsRefreshBringsSoundBack) {
    StartMonitoring();
    ASSERT_TRUE(zqvm::InjectFailure(mic, "IAudioCaptureClient::GetBuffer", kFault));
    ASSERT_TRUE(StepUntilTold(WM_AUDIO_DEVICE_CHANGED));
    StepPeriods(3 * CStreamFailureWatch::kPersistentWakeUps);
    window->Pump();
    EXPECT_EQ(window->Received(WM_AUDIO_DEVICE_CHANGED).size(), 1u) << "told once, not at every wake-up";
    EXPECT_EQ(Lines(L"AudioCapture: the capture stream keeps failing (IAudioCaptureClient::GetBuffer: 8889a001); "
                    L"the host is told to rebuild it"),
              1u);
    zqvm::ClearFailures();  // the device works again; the host does what the message asks
    core->SetCaptureDevice(Device(mic));
    core->Start();
    EXPECT_TRUE(SoundFlows());
}

TEST_F(StreamRecovery, ARenderCallThatKeepsFailingIsReportedOnceAndTheHostsRebuildBringsSoundBack) {
    StartMonitoring();
    ASSERT_TRUE(zqvm::InjectFailure(speaker, "IAudioClient::GetCurrentPadding", kFault));
    ASSERT_TRUE(StepUntilTold(WM_AUDIO_RENDER_CHANGED));
    StepPeriods(3 * CStreamFailureWatch::kPersistentWakeUps);
    window->Pump();
    EXPECT_EQ(window->Received(WM_AUDIO_RENDER_CHANGED).size(), 1u);
    EXPECT_EQ(Lines(L"AudioRender: the render stream keeps failing (IAudioClient::GetCurrentPadding: 8889a001); "
                    L"the host is told to rebuild it"),
              1u);
    zqvm::ClearFailures();
    core->RebuildRender();
    core->Start();
    EXPECT_TRUE(SoundFlows());
}

}  // namespace
