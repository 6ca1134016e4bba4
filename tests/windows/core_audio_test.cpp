// The audio core on real Core Audio, as Wine implements it over the private PulseAudio server
// (winepulse): the device lists, both streams with the microphone's tone reaching the speaker's
// monitor at the designed level, the session volume, the lifecycle calls and the log.
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "windows_core_fixture.h"

namespace {

using zqwintest::ServerFolder;
using zqwintest::Contains;
using zqwintest::WindowsCoreAudio;

// Wine's winepulse adds one render endpoint of its own, "PulseAudio", that plays on whichever
// sink is the server's default; the library lists it as any other.
constexpr wchar_t kWineFollowDefault[] = L"PulseAudio";

TEST_F(WindowsCoreAudio, InitListsTheServersSinksWithDefaultFirstAndItsSourcesAsCaptureEndpoints) {
    core->Init(window.Handle());
    ASSERT_TRUE(core->IsInit());
    const std::vector<std::wstring> render = RenderNames();
    ASSERT_FALSE(render.empty());
    EXPECT_EQ(L"Default", render[0]);
    EXPECT_EQ(Contains(render, kWineFollowDefault) ? 5u : 4u, render.size()) << zqwintest::Joined(render);
    EXPECT_TRUE(Contains(render, L"Speakers 48k")) << zqwintest::Joined(render);
    EXPECT_TRUE(Contains(render, L"Speakers 44k1"));
    EXPECT_TRUE(Contains(render, L"KV-2 Headphones"));
    // The capture endpoints are the server's sources (Wine lists the sinks' monitors too); the
    // library's capture list holds only the maker's microphones found behind their bridges,
    // and there is none.
    const std::vector<std::wstring> sources = zqwintest::EndpointNames(eCapture);
    EXPECT_TRUE(Contains(sources, L"KV-1 USB Microphone")) << zqwintest::Joined(sources);
    EXPECT_TRUE(Contains(sources, L"KV-2 Studio Microphone"));
    EXPECT_EQ(0u, core->GetCaptureDeviceCount());
    EXPECT_EQ(0u, core->GetHidCaptureDeviceCount());
}

// The whole life of the core object on one server: both streams carry the microphone's tone
// to the default speaker at the designed level, the session volume follows, and the lifecycle
// calls return, leave no thread behind and log what the design says in its order.
TEST_F(WindowsCoreAudio, MonitorsTheMicrophoneAtTheDesignedLevelAndShutsDownClean) {
    CComPtr<IMMDevice> speaker = zqwintest::EndpointNamed(eRender, L"Speakers 48k");
    CComPtr<IMMDevice> microphone = zqwintest::EndpointNamed(eCapture, L"KV-1 USB Microphone");
    ASSERT_TRUE(speaker != nullptr && microphone != nullptr);
    if (!zqwintest::HasOwnMeter(microphone)) {
        std::printf("Wine has no IAudioMeterInformation: the endpoints are handed over with a silent meter\n");
    }
    zqwintest::ToneFeeder feeder(*ServerFolder() + L"\\mic.fifo", 48000, 1000.0, 0.5f);
    ASSERT_TRUE(feeder.Running());
    // Wine's own threads (its PulseAudio connection, its audio clients' timers) stay once
    // made: they are counted after a first cycle with both streams running.
    ASSERT_NO_FATAL_FAILURE(StartOnSpeakerAndMicrophone(speaker, microphone));
    core->Shutdown();
    const size_t threadsBefore = zqwintest::ThreadCount();
    ASSERT_NO_FATAL_FAILURE(StartOnSpeakerAndMicrophone(speaker, microphone));

    // The capture resampler maps mono to left and right at -3 dB; the library opens the render
    // stream at a session volume of 0.5.
    const double expected = 0.5 * std::sqrt(0.5) * 0.5;
    const double level = SpeakerLevel();
    ASSERT_GT(level, 0.0) << "parec recorded nothing from speaker48.monitor";
    std::printf("at speaker48's monitor: %.4f (%.2f dBFS), expected %.4f\n", level, 20 * std::log10(level), expected);
    EXPECT_NEAR(0.0, 20 * std::log10(level / expected), 1.0);

    // Whether it is heard: WindowsWineGaps.SessionVolumeIsHeardOnTheSpeaker.
    core->SetRenderVol(0.25f);
    EXPECT_FLOAT_EQ(0.25f, core->GetRenderVol());

    core->Refresh();
    EXPECT_FALSE(core->IsStarted());
    core->RebuildRender();
    EXPECT_GT(core->GetRenderDeviceCount(), 1u);
    core->Stop();
    core->Shutdown();
    EXPECT_FALSE(core->IsInit());
    EXPECT_EQ(threadsBefore, zqwintest::ThreadCount()) << "a thread of the library outlived Shutdown";

    const std::vector<std::wstring> texts = Lines();
    const std::vector<std::wstring> designed = {
        L"CoreAudio: Init ...",         L"CoreAudio: CMMNotificationClient Init", L"CoreAudio: Start",
        L"AudioRender: StartRender",    L"AudioCapture: StartCapture",            L"CoreAudio: Refresh",
        L"CoreAudio: RebuildRender",    L"CoreAudio: Stop",                       L"CoreAudio: Shutdown",
        L"CoreAudio: Shutdown OK"};
    // Past the first cycle's Shutdown OK: the second cycle's lines, in the designed order.
    auto at = std::find(texts.begin(), texts.end(), L"CoreAudio: Shutdown OK");
    ASSERT_NE(at, texts.end());
    for (const std::wstring& line : designed) {
        at = std::find(at, texts.end(), line);
        ASSERT_NE(at, texts.end()) << "missing or out of order: " << ::testing::PrintToString(line);
    }
}

}  // namespace
