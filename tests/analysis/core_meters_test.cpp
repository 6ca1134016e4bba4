// The core's meters, volumes and mute, and the analysis end to end, on the virtual audio engine.
#include <cmath>
#include <cstring>

#include "analyzer_test_support.h"
#include "audio/AudioRender.h"
#include "audio_fixture.h"

namespace {

using zqtest::WaitUntil;

constexpr float kFloor = 1.0e-12f;
constexpr uint32_t kWaitMs = 5000;

float MeterPercent(float peak) { return PPM2Percent(log10f(std::fabs(peak)) * 20.0f); }

zqvm::CaptureSource Tone(double amplitude) {
    zqvm::CaptureSource source;
    source.kind = zqvm::CaptureSource::Kind::Tone;
    source.frequency = 1000.0;
    source.amplitude = amplitude;
    return source;
}
const zqvm::CaptureSource kSilence;

class CoreMeters : public zqtest::AudioMachineTest {
protected:
    // A capture endpoint with source and the default render endpoint; the core opened on both.
    void Open(const zqvm::CaptureSource& source) {
        capture = AddCapture(48000, 2, zqvm::SampleFormat::Float32, source);
        render = AddRender(48000, 2, zqvm::SampleFormat::Float32);
        core->Init(window->Handle());
        ASSERT_TRUE(core->SetCaptureDevice(Device(capture)));
    }
    // Runs the streams for some device periods, a period at a time, each taken by the capture thread.
    void Run(int periods) {
        for (int i = 0; i < periods; ++i) {
            const uint64_t released = zqvm::CapturePacketsReleased(capture);
            StepPeriods(1);
            ASSERT_TRUE(zqvm::WaitForCapturePacketsReleased(capture, released + 1, kWaitMs));
        }
    }
    std::wstring capture;
    std::wstring render;
};

TEST_F(CoreMeters, BeforeInitEverythingReadsZero) {
    EXPECT_EQ(core->GetPeakCapture(), 0.0f);  // not PPM2Percent of anything
    EXPECT_EQ(core->GetPeakRender(), 0.0f);
    EXPECT_EQ(core->GetPeakCaptureDBFS(), 0.0f);
    EXPECT_EQ(core->GetCaptureVol(), 0.0f);
    EXPECT_EQ(core->GetRenderVol(), 0.0f);
    core->SetRenderVol(0.5f);
    core->MuteRender(true);
    EXPECT_FALSE(core->IsRenderMute());
}

TEST_F(CoreMeters, PercentMetersFollowTheEndpointMeter) {
    Open(Tone(1.0));
    EXPECT_EQ(core->GetPeakCapture(), PPM2Percent(-100.0f)) << "no period metered yet: a reading of 0.0";
    core->Start();
    Run(3);
    EXPECT_EQ(core->GetPeakCapture(), MeterPercent(zqvm::MeterPeak(capture)));
    EXPECT_NEAR(core->GetPeakCapture(), PPM2Percent(0.0f), 0.01f);
    EXPECT_EQ(core->GetPeakCaptureDBFS(), zqvm::MeterPeak(capture));

    ASSERT_TRUE(zqvm::SetCaptureSource(capture, Tone(0.1)));
    Run(3);
    EXPECT_NEAR(core->GetPeakCapture(), PPM2Percent(-20.0f), 0.05f);

    ASSERT_TRUE(zqvm::SetCaptureSource(capture, kSilence));
    Run(3);
    EXPECT_EQ(core->GetPeakCapture(), PPM2Percent(-100.0f));
    EXPECT_EQ(core->GetPeakCaptureDBFS(), 0.0f);

    // A meter call that fails without writing reads as silence.
    ASSERT_TRUE(zqvm::SetCaptureSource(capture, Tone(0.5)));
    Run(3);
    ASSERT_TRUE(zqvm::InjectFailure(capture, "IAudioMeterInformation::GetPeakValue", E_FAIL));
    EXPECT_EQ(core->GetPeakCapture(), PPM2Percent(-100.0f));
    EXPECT_EQ(core->GetPeakCaptureDBFS(), 0.0f);
    core->Stop();
}

TEST_F(CoreMeters, LinearMetersNeedBothStreams) {
    Open(Tone(0.5));
    core->Start();
    Run(3);
    ASSERT_GT(core->GetPeakCaptureDBFS(), 0.4f);
    core->GetRenderEngine()->StopRender();  // capture alone
    Run(2);
    EXPECT_EQ(core->GetPeakCaptureDBFS(), 0.0f);
    EXPECT_EQ(core->GetPeakRenderDBFS(), 0.0f);
    EXPECT_GT(core->GetPeakCapture(), PPM2Percent(-100.0f));
    core->Stop();
}

TEST_F(CoreMeters, VolumesGoThroughTheSessionsAndOursAreNotEchoed) {
    Open(kSilence);
    // Whatever opening the devices reported is out of the way first.
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
    window->Pump();
    const size_t before = window->Received(WM_SESSION_VOLUME_CHANGED).size();

    core->SetRenderVol(0.3f);
    EXPECT_NEAR(core->GetRenderVol(), 0.3f, 1e-6f);
    EXPECT_NEAR(zqvm::SessionVolume(render), 0.3f, 1e-6f);
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
    window->Pump();
    EXPECT_EQ(window->Received(WM_SESSION_VOLUME_CHANGED).size(), before) << "our own change reached the host";

    // Another program's change does reach it.
    ASSERT_TRUE(zqvm::SetSessionVolumeAsOtherProgram(render, 0.6f, false));
    ASSERT_TRUE(window->WaitFor(WM_SESSION_VOLUME_CHANGED, before + 1, kWaitMs));
    const auto received = window->Received(WM_SESSION_VOLUME_CHANGED);
    const auto bits = static_cast<uint32_t>(received.back().wParam);
    float level = 0.0f;
    std::memcpy(&level, &bits, sizeof level);
    EXPECT_EQ(level, 0.6f);

    core->SetCaptureVol(0.4f);
    EXPECT_NEAR(core->GetCaptureVol(), 0.4f, 1e-6f);
    core->SetCaptureVol(1.5f);  // refused by the platform
    EXPECT_NEAR(core->GetCaptureVol(), 0.4f, 1e-6f);
}

TEST_F(CoreMeters, MuteSurvivesStopStartAndADeviceChange) {
    Open(kSilence);
    const std::wstring other = AddRender(44100, 2, zqvm::SampleFormat::Int16, L"Headphones (test)", false);
    core->MuteRender(true);
    EXPECT_TRUE(core->IsRenderMute());
    core->Start();
    core->Stop();
    core->Start();
    EXPECT_TRUE(core->IsRenderMute());
    ASSERT_TRUE(core->SetRenderDevice(Device(other)));
    EXPECT_TRUE(core->IsRenderMute());
    core->MuteRender(false);
    EXPECT_FALSE(core->IsRenderMute());
    core->Stop();
}

TEST_F(CoreMeters, AToneShowsOnItsBinAndDecaysToTheFloorAfterIt) {
    Open(Tone(std::pow(10.0, -6.0 / 20.0)));
    core->Start();
    Run(40);  // the analyzer thread ticks on the same clock
    // Its first tick falls due 100 ms after it set its timers, which a loaded machine may do
    // late: the periods go on, a bounded number of them, until a tick has shown the tone.
    for (int i = 0; i < 100 && !WaitUntil([&] { return core->GetSpectrumAmpIn(85) > 1.0f; }, 20); ++i) Run(1);
    ASSERT_GT(core->GetSpectrumAmpIn(85), 1.0f);
    int loudest = 0;
    for (int bin = 1; bin < 2048; ++bin) {
        if (core->GetSpectrumAmpIn(bin) > core->GetSpectrumAmpIn(loudest)) loudest = bin;
    }
    EXPECT_EQ(loudest, 85);  // 85 * 11.72 Hz = 996 Hz
    EXPECT_NEAR(core->GetPeakCapture(), PPM2Percent(-6.0f), 0.5f);

    // Streams stopped: the ticks drain what the feed still holds (the bin may rise again a
    // while), then each 5 ms decay job lowers it until it reads the floor. One step at a time,
    // each given its chance to run before the next; a step whose tick and decay cancel out
    // leaves the value as it was, so a step that changes nothing is no failure in itself.
    core->Stop();
    for (int step = 0; step < 20000 && core->GetSpectrumAmpIn(85) != kFloor; ++step) {
        const float before = core->GetSpectrumAmpIn(85);
        zqvm::AdvanceClock(5 * zqtest::kMs100ns);
        WaitUntil([&] { return core->GetSpectrumAmpIn(85) != before; }, 50);
    }
    EXPECT_EQ(core->GetSpectrumAmpIn(85), kFloor);
}

}  // namespace
