// Session volume and session events of the virtual audio engine: delivery on an engine
// thread with the event context, the volume range, and unregistration.
#include <future>

#include "vae_event_sinks.h"
#include "vae_fixture.h"

namespace vaetest {
namespace {

using zqvm::SampleFormat;

constexpr GUID kOurContext = {0x2715279F, 0x4139, 0x4BA0, {0x9C, 0xB1, 0xB3, 0x51, 0xF1, 0xB5, 0x8A, 0x4A}};
constexpr GUID kMixerContext = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};

class SessionTest : public VirtualAudioTest {
protected:
    struct Session {
        CComPtr<IAudioSessionControl> control;
        CComPtr<ISimpleAudioVolume> volume;
    };
    static Session Open(const std::wstring& id) {
        Session session;
        CComPtr<IAudioSessionManager> manager;
        EXPECT_EQ(Device(id)->Activate(IID_IAudioSessionManager, CLSCTX_INPROC_SERVER, nullptr,
                                       reinterpret_cast<void**>(&manager)),
                  S_OK);
        if (!manager) return session;
        EXPECT_EQ(manager->GetAudioSessionControl(&GUID_NULL, 0, &session.control), S_OK);
        EXPECT_EQ(manager->GetSimpleAudioVolume(&GUID_NULL, 0, &session.volume), S_OK);
        return session;
    }
};

TEST_F(SessionTest, OurOwnChangeReachesEverySinkOnAnEngineThreadWithOurContext) {
    const std::wstring id = Add(eRender, 48000, 2, SampleFormat::Float32);
    Session session = Open(id);
    RecordingSessionSink sink;
    ASSERT_EQ(session.control->RegisterAudioSessionNotification(&sink), S_OK);
    EXPECT_EQ(zqvm::SessionEventSinkCount(id), 1u);

    ASSERT_EQ(session.volume->SetMasterVolume(0.3f, &kOurContext), S_OK);
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
    std::vector<VolumeEvent> events = sink.Volumes();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_FLOAT_EQ(events[0].volume, 0.3f);
    EXPECT_EQ(events[0].mute, FALSE);
    ASSERT_TRUE(events[0].context.has_value());
    EXPECT_EQ(*events[0].context, kOurContext);
    EXPECT_NE(events[0].thread, std::this_thread::get_id());
    float level = 0.0f;
    ASSERT_EQ(session.volume->GetMasterVolume(&level), S_OK);
    EXPECT_FLOAT_EQ(level, 0.3f);
    EXPECT_FLOAT_EQ(zqvm::SessionVolume(id), 0.3f);

    EXPECT_EQ(session.volume->SetMasterVolume(1.5f, nullptr), E_INVALIDARG);
    EXPECT_EQ(session.volume->SetMasterVolume(-0.1f, nullptr), E_INVALIDARG);
    ASSERT_EQ(session.volume->GetMasterVolume(&level), S_OK);
    EXPECT_FLOAT_EQ(level, 0.3f) << "a refused level changed the volume";

    ASSERT_EQ(session.volume->SetMute(TRUE, nullptr), S_OK);
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
    events = sink.Volumes();
    ASSERT_EQ(events.size(), 2u) << "refused levels must not be reported";
    EXPECT_EQ(events[1].mute, TRUE);
    EXPECT_FALSE(events[1].context.has_value());
    ASSERT_EQ(session.control->UnregisterAudioSessionNotification(&sink), S_OK);
}

TEST_F(SessionTest, AnotherProgramsChangeArrivesWithItsContextAndSharesTheStreamVolume) {
    const std::wstring id = Add(eRender, 48000, 2, SampleFormat::Float32);
    Session session = Open(id);
    TestStream stream(id);
    CComPtr<ISimpleAudioVolume> streamVolume = stream.Get<ISimpleAudioVolume>();
    RecordingSessionSink sink;
    ASSERT_EQ(session.control->RegisterAudioSessionNotification(&sink), S_OK);

    ASSERT_TRUE(zqvm::SetSessionVolumeAsOtherProgram(id, 0.75f, false, kMixerContext));
    ASSERT_TRUE(zqvm::SetSessionVolumeAsOtherProgram(id, 0.75f, true));
    EXPECT_FALSE(zqvm::SetSessionVolumeAsOtherProgram(id, 2.0f, false));
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
    const std::vector<VolumeEvent> events = sink.Volumes();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_FLOAT_EQ(events[0].volume, 0.75f);
    EXPECT_EQ(events[0].mute, FALSE);
    EXPECT_EQ(events[0].context, std::optional<GUID>(kMixerContext));
    EXPECT_EQ(events[1].mute, TRUE);
    EXPECT_FALSE(events[1].context.has_value());

    float level = 0.0f;
    BOOL mute = FALSE;
    ASSERT_EQ(streamVolume->GetMasterVolume(&level), S_OK);
    ASSERT_EQ(streamVolume->GetMute(&mute), S_OK);
    EXPECT_FLOAT_EQ(level, 0.75f);
    EXPECT_EQ(mute, TRUE);

    // The session goes active and inactive with its streams.
    ASSERT_EQ(stream.client->Start(), S_OK);
    AudioSessionState state = AudioSessionStateInactive;
    ASSERT_EQ(session.control->GetState(&state), S_OK);
    EXPECT_EQ(state, AudioSessionStateActive);
    ASSERT_EQ(stream.client->Stop(), S_OK);
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
    EXPECT_EQ(sink.States(), (std::vector<AudioSessionState>{AudioSessionStateActive, AudioSessionStateInactive}));
    ASSERT_EQ(session.control->UnregisterAudioSessionNotification(&sink), S_OK);
}

TEST_F(SessionTest, UnregisteredSinksHearNothingAndUnregisterWaitsForACallbackUnderWay) {
    const std::wstring id = Add(eCapture, 48000, 1, SampleFormat::Int16);
    Session session = Open(id);
    RecordingSessionSink sink;
    ASSERT_EQ(session.control->RegisterAudioSessionNotification(&sink), S_OK);

    sink.latch.Close();
    ASSERT_TRUE(zqvm::SetSessionVolumeAsOtherProgram(id, 0.5f, false));
    ASSERT_TRUE(sink.latch.WaitUntilHeld(std::chrono::milliseconds(kWaitMs)));
    auto unregistered = std::async(std::launch::async, [&] {
        const HRESULT hr = session.control->UnregisterAudioSessionNotification(&sink);
        return std::make_pair(hr, sink.inCallback.load());
    });
    EXPECT_EQ(unregistered.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout)
        << "Unregister returned while the sink was being called";
    sink.latch.Open();
    const auto [hr, stillInCallback] = unregistered.get();
    EXPECT_EQ(hr, S_OK);
    EXPECT_FALSE(stillInCallback);

    ASSERT_TRUE(zqvm::SetSessionVolumeAsOtherProgram(id, 0.25f, false));
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
    EXPECT_EQ(sink.Volumes().size(), 1u);
    EXPECT_EQ(session.control->UnregisterAudioSessionNotification(&sink), E_NOTFOUND);
    EXPECT_EQ(session.control->RegisterAudioSessionNotification(nullptr), E_POINTER);
}

}  // namespace
}  // namespace vaetest
