// The render session's volume events: changes by others reach the host's window, the library's
// own changes do not.
#include <gtest/gtest.h>

#include "audio/AudioSessionVolume.h"
#include "audio_fixture.h"

namespace {

using zqtest::AudioMachineTest;

class SessionVolume : public AudioMachineTest {
protected:
    void SetUp() override {
        AudioMachineTest::SetUp();
        speaker = AddRender(48000, 2, zqvm::SampleFormat::Float32);
    }
    CAudioSessionVolume* Create(HWND hwnd) {
        CAudioSessionVolume* sink = nullptr;
        EXPECT_EQ(CAudioSessionVolume::CreateInstance(hwnd, Device(speaker), &sink), S_OK);
        return sink;
    }
    std::wstring speaker;
};

// Another program's change, with or without an event context of its own, reaches the window;
// a change under the library's own context does not.
TEST_F(SessionVolume, AnotherProgramsChangeIsPostedWithTheFloatBitsAndTheMuteState) {
    CAudioSessionVolume* sink = Create(window->Handle());
    ASSERT_NE(sink, nullptr);
    sink->EnableNotifications(TRUE);
    EXPECT_TRUE(sink->m_bNotificationsEnabled);
    ASSERT_EQ(sink->m_pSimpleVolume->SetMasterVolume(0.3f, &g_guidVolumeEventContext), S_OK);
    const GUID foreign = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
    ASSERT_TRUE(zqvm::SetSessionVolumeAsOtherProgram(speaker, 0.75f, false, foreign));
    ASSERT_TRUE(zqvm::SetSessionVolumeAsOtherProgram(speaker, 0.75f, true));
    ASSERT_TRUE(window->WaitFor(WM_SESSION_VOLUME_CHANGED, 2, 5000));
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(5000));
    window->Pump();
    auto messages = window->Received(WM_SESSION_VOLUME_CHANGED);
    ASSERT_EQ(messages.size(), 2u) << "the library's own change was echoed";
    EXPECT_EQ(messages[0].wParam, 0x3F400000u);
    EXPECT_EQ(messages[0].lParam, 0);
    EXPECT_EQ(messages[1].lParam, 1);
    sink->Release();
    EXPECT_EQ(zqvm::SessionEventSinkCount(speaker), 0u);  // the destructor withdrew the request
}

TEST_F(SessionVolume, WithoutAWindowItNeverListens) {
    CAudioSessionVolume* sink = Create(nullptr);
    ASSERT_NE(sink, nullptr);
    sink->EnableNotifications(TRUE);
    EXPECT_FALSE(sink->m_bNotificationsEnabled);
    EXPECT_EQ(zqvm::SessionEventSinkCount(speaker), 0u);
    sink->Release();
}

TEST_F(SessionVolume, ASessionThatCannotBeOpenedFailsCreation) {
    ASSERT_TRUE(zqvm::InjectFailure(speaker, "IAudioSessionManager::GetSimpleAudioVolume", E_OUTOFMEMORY));
    CAudioSessionVolume* sink = reinterpret_cast<CAudioSessionVolume*>(0x1);
    EXPECT_EQ(CAudioSessionVolume::CreateInstance(window->Handle(), Device(speaker), &sink), E_OUTOFMEMORY);
    EXPECT_EQ(sink, reinterpret_cast<CAudioSessionVolume*>(0x1));  // not written
}

}  // namespace
