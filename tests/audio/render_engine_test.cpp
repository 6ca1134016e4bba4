// The render engine on the virtual audio engine with the stepped clock: the device list, the
// fill rule of the render thread, mute, start/stop rules and every failure of opening a device.
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <vector>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio_fixture.h"
#include "zqplatform/vm/kernel_faults.h"

namespace {

class RenderEngine : public zqtest::ExactMonitoringTest {
protected:
    void InitWith(uint32_t rate) {
        speaker = AddRender(rate, 2, zqvm::SampleFormat::Float32);
        core->Init(window->Handle());
        render = core->GetRenderEngine();
        capture = core->GetCaptureEngine();
        ASSERT_NE(render, nullptr);
        ASSERT_TRUE(render->m_spRenderAudioClient);  // the default device was opened by Init
    }

    // Queues frames for the render thread as the capture thread would, values 1, 2, 3, ...
    void Queue(size_t frames) {
        capture->WithQueue([&](CCircularBuffer& queue) {
            for (size_t i = 0; i < frames; ++i) {
                const float value = static_cast<float>(++queuedValue);
                const float frame[2] = {value, value};
                ASSERT_EQ(queue.Write(frame, sizeof frame), sizeof frame);
            }
        });
    }

    size_t QueuedFrames() {
        return capture->WithQueue([](CCircularBuffer& queue) { return queue.GetCount() / 8; });
    }

    // One device period and the render thread's refill after it.
    void RenderPeriod(uint64_t expectedReleases) {
        StepPeriods(1);
        ASSERT_TRUE(zqvm::WaitForRenderBuffersReleased(speaker, expectedReleases, zqtest::kStreamWaitMs));
    }

    std::wstring speaker;
    CAudioRender* render = nullptr;
    CAudioCapture* capture = nullptr;
    int queuedValue = 0;
};

// The engine answers for the list it owns, each answer read under its device lock: the count,
// the record at an index (none out of range, a negative index included) and the first record's
// endpoint, which RebuildRender opens; released, the list holds nothing.
TEST_F(RenderEngine, AnswersForTheDeviceListItOwns) {
    InitWith(48000);
    ASSERT_EQ(render->DeviceCount(), 2u);
    EXPECT_EQ(render->DeviceAt(1), core->GetRenderDevice(1));
    EXPECT_EQ(render->DeviceAt(-1), nullptr);
    EXPECT_EQ(render->DeviceAt(2), nullptr);
    ASSERT_NE(render->DeviceAt(0), nullptr);
    EXPECT_EQ(render->FirstDevice(), render->DeviceAt(0)->GetDevice());
    EXPECT_EQ(render->m_spRenderDevice.p, render->FirstDevice()) << "Init opened the first record's endpoint";
    render->ReleaseAudioDevices();
    EXPECT_EQ(render->DeviceCount(), 0u);
    EXPECT_EQ(render->DeviceAt(0), nullptr);
    EXPECT_EQ(render->FirstDevice(), nullptr);
    EXPECT_EQ(core->GetRenderDeviceCount(), 0u);
}

TEST_F(RenderEngine, ListsDefaultFirstThenEveryActiveEndpoint) {
    InitWith(48000);
    ASSERT_EQ(core->GetRenderDeviceCount(), 2u);
    EXPECT_EQ(core->GetRenderDevice(0)->GetName(), L"Default");
    EXPECT_EQ(core->GetRenderDevice(1)->GetName(), L"Speakers (test)");
    EXPECT_TRUE(core->GetRenderDevice(1)->GetFriendlyName().IsEmpty());
    EXPECT_EQ(core->GetRenderDevice(2), nullptr);
    EXPECT_EQ(core->GetRenderDevice(-1), nullptr);
    EXPECT_TRUE(recorder->Contains(L"AudioRender: Num of render audio devices: 1"));
    EXPECT_TRUE(recorder->Contains(L"AudioRender: [0]: Speakers (test)"));
    EXPECT_TRUE(recorder->Contains(L"AudioRender: Add default render audio device"));
}

// Without a device the render meter reads the floor and the volume 0.
TEST_F(RenderEngine, WithoutADefaultEndpointTheListStaysEmpty) {
    speaker = AddRender(48000, 2, zqvm::SampleFormat::Float32, L"Speakers (test)", false);
    for (ERole role : {eConsole, eMultimedia, eCommunications}) zqvm::SetDefaultEndpoint(eRender, role, L"");
    core->Init(window->Handle());
    EXPECT_EQ(core->GetRenderDeviceCount(), 0u);
    EXPECT_FALSE(core->GetRenderEngine()->m_spRenderAudioClient);
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: RenderEngine Set Default Audio Device"));
    EXPECT_EQ(core->GetPeakRender(), PPM2Percent(-100.0f));
    EXPECT_EQ(core->GetRenderVol(), 0.0f);
}

TEST_F(RenderEngine, FillsAsMuchAsTheDeviceHasRoomFor) {
    // At 96 kHz a device period is 960 frames: after the buffer was filled once, one period
    // frees exactly 960 frames.
    InitWith(96000);
    const size_t buffer = render->m_nBufferFrames;
    ASSERT_GT(buffer, 960u);
    Queue(buffer + 1000);
    ASSERT_TRUE(render->StartRender());
    RenderPeriod(1);  // the empty device takes a whole buffer
    EXPECT_EQ(QueuedFrames(), 1000u);
    RenderPeriod(2);  // 1000 queued, 960 free: 40 are left
    EXPECT_EQ(QueuedFrames(), 40u);
    RenderPeriod(3);  // 40 queued, 960 free: all 40 go, the queue is empty
    EXPECT_EQ(QueuedFrames(), 0u);
    StepPeriods(1);  // nothing queued: the thread leaves the device alone
    render->StopRender();
    EXPECT_EQ(zqvm::RenderBuffersReleased(speaker), 3u);
    // What was played is what was queued, in order and unchanged (the device applies the
    // session volume, which the engine set to 0.5 when it opened the device).
    const float volume = zqvm::SessionVolume(speaker);
    EXPECT_EQ(volume, 0.5f);
    // The device's first period came before the thread's first refill: it played silence.
    const std::vector<float> played = zqvm::RenderedFrames(speaker);
    const size_t firstPeriod = 960;
    const size_t playedFrames = played.size() / 2;
    ASSERT_GE(playedFrames, firstPeriod + 960u);
    EXPECT_EQ(zqvm::UnderrunFrames(speaker), firstPeriod);
    for (size_t i = 0; i < firstPeriod; ++i) ASSERT_EQ(played[2 * i], 0.0f) << i;
    for (size_t i = firstPeriod; i < playedFrames; ++i)
        ASSERT_EQ(played[2 * i], volume * static_cast<float>(i - firstPeriod + 1)) << i;
}

TEST_F(RenderEngine, MuteHandsBuffersOverSilentWhileTheQueueDrainsAlike) {
    InitWith(96000);
    core->MuteRender(true);
    const size_t buffer = render->m_nBufferFrames;
    Queue(buffer + 960);
    ASSERT_TRUE(render->StartRender());
    RenderPeriod(1);
    RenderPeriod(2);
    EXPECT_EQ(QueuedFrames(), 0u);  // drained at the same pace as unmuted
    StepPeriods(3);                 // the device plays out what it holds
    // Every frame played is silent: released so, or silence the device played on its own.
    EXPECT_GT(zqvm::RenderedSilentFrames(speaker), 0u);
    EXPECT_EQ(zqvm::RenderedSilentFrames(speaker) + zqvm::UnderrunFrames(speaker), zqvm::RenderedFrameCount(speaker));
    const std::vector<float> played = zqvm::RenderedFrames(speaker);
    EXPECT_TRUE(std::all_of(played.begin(), played.end(), [](float v) { return v == 0.0f; }));
}

// Frames queued for one device are in its format: a device of another format must not play
// them, so they go when their device goes; the next device gets only what is queued for it.
TEST_F(RenderEngine, FramesQueuedForTheOldDeviceGoWithIt) {
    InitWith(48000);
    const std::wstring headset = AddRender(44100, 2, zqvm::SampleFormat::Int16, L"Headset", false);
    Queue(700);
    ASSERT_EQ(QueuedFrames(), 700u);
    ASSERT_TRUE(core->SetRenderDevice(Device(headset)));
    EXPECT_EQ(QueuedFrames(), 0u);
    Queue(100);
    render->StartRender();
    speaker = headset;
    RenderPeriod(1);
    EXPECT_EQ(QueuedFrames(), 0u);  // played by the headset
}

TEST_F(RenderEngine, StartAndStopRules) {
    InitWith(48000);
    recorder->Clear();
    render->StopRender();
    auto events = recorder->Events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1].text, L"!IsStarted");
    EXPECT_EQ(events[1].type, zqLogEventWarning);
    ASSERT_TRUE(render->StartRender());
    HANDLE thread = render->m_RenderThread;
    ASSERT_TRUE(render->StartRender());
    EXPECT_EQ(render->m_RenderThread, thread);
    EXPECT_EQ(zqvm::RunningStreams(speaker), 1);
    render->StopRender();
    EXPECT_EQ(zqvm::RunningStreams(speaker), 0);
    EXPECT_TRUE(recorder->Contains(L"AudioRender: WASAPIRenderThread end of thread"));

    recorder->Clear();
    EXPECT_EQ(render->SetAudioDevice(nullptr), 1);
    EXPECT_FALSE(render->StartRender());
    EXPECT_TRUE(recorder->Contains(zqLogEventError, L"AudioRender: !m_spRenderDevice"));
}

TEST_F(RenderEngine, EveryFailingStepIsReportedAndTheNextOpenSucceeds) {
    InitWith(48000);
    const HRESULT injected = static_cast<HRESULT>(0x88890077u);
    ExpectEachFailingStepReported(
        speaker, injected,
        {
            {"IMMDevice::Activate/IAudioClient", L"Unable to activate audio client: 88890077.\n"},
            {"IAudioClient::GetMixFormat", L"Unable to get mix format on audio client: 88890077.\n"},
            {"IAudioClient::Initialize", L"Unable to initialize audio client: 88890077.\n"},
            {"IAudioClient::GetBufferSize", L"Unable to get audio client buffer: 88890077. \n"},
            {"IAudioClient::SetEventHandle", L"Unable to set ready event: 88890077.\n"},
            {"IAudioClient::GetService/IAudioRenderClient", L"Unable to get new Render client: 88890077.\n"},
            {"IAudioClient::GetService/ISimpleAudioVolume", L"Unable to get Render Simple Audio Volume: 88890077.\n"},
            {"IMMDevice::Activate/IAudioMeterInformation", L"Unable to get Render Audio Meter Info: 88890077.\n"},
        },
        [this] { return render->SetAudioDevice(Device(speaker)); });
    // A session that cannot be opened leaves the engine without its volume sink, nothing else.
    ASSERT_TRUE(zqvm::InjectFailure(speaker, "IMMDevice::Activate/IAudioSessionManager", injected, true));
    EXPECT_EQ(render->SetAudioDevice(Device(speaker)), S_OK);
    EXPECT_EQ(render->m_pASV, nullptr);
    EXPECT_EQ(core->GetRenderVol(), 0.0f);
}

TEST_F(RenderEngine, AFormatTheResamplerRefusesFailsTheOpenWithMinusOne) {
    InitWith(48000);
    const std::wstring packed24 = AddRender(48000, 2, zqvm::SampleFormat::Int24, L"Packed 24-bit", false);
    EXPECT_EQ(render->SetAudioDevice(Device(packed24)), -1);  // reported by the resampler set-up
    EXPECT_TRUE(render->StartRender());  // the client stays; the capture thread skips the conversion
}

TEST_F(RenderEngine, ThreadCreationFailureIsReported) {
    InitWith(48000);
    zqvm::FailThreadCreations(0, 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(render->StartRender());
    EXPECT_TRUE(recorder->Contains(L"Unable to create transport thread: 8."));
    EXPECT_EQ(render->m_RenderThread, nullptr);
    EXPECT_TRUE(render->StartRender());
}

TEST_F(RenderEngine, AnEndpointPulledMidStreamStopsPromptlyAndAnotherOpens) {
    InitWith(48000);
    Queue(480);
    ASSERT_TRUE(render->StartRender());
    RenderPeriod(1);
    ASSERT_TRUE(zqvm::InvalidateEndpoint(speaker));
    StepPeriods(5);
    auto stopped = std::async(std::launch::async, [this] { render->StopRender(); });
    ASSERT_EQ(stopped.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    const std::wstring other = AddRender(44100, 2, zqvm::SampleFormat::Int16, L"Headphones");
    speaker = other;
    ASSERT_TRUE(core->SetRenderDevice(Device(other)));
    Queue(441);
    ASSERT_TRUE(render->StartRender());
    RenderPeriod(1);
}

}  // namespace
