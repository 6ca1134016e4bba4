// The core on the system's endpoint notifications: the microphone list kept up to date from
// the engine's notification thread, and the device messages to the host's window.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "core/NotificationClient.h"
#include "microphone_machine.h"
#include "zqplatform/vm/message_pump.h"

namespace {

using zqtest::MicrophoneMachineTest;
using zqtest::ReceivedMessage;

constexpr DWORD kWait = 5000;

class DeviceNotifications : public MicrophoneMachineTest {
protected:
    // Delivers what the engine has queued, handling the messages the core sends meanwhile.
    void Deliver() {
        auto delivered = std::async(std::launch::async, [] { return zqvm::WaitForNotificationsDelivered(kWait); });
        ASSERT_TRUE(zqvm::PumpUntil(
            [&] { return delivered.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }, kWait));
        ASSERT_TRUE(delivered.get());
        window->Pump();
    }
    std::vector<ReceivedMessage> DeviceMessages() { return window->Received(WM_AUDIO_DEVICE_CHANGED); }
};

TEST_F(DeviceNotifications, AMicrophoneArrivingIsListedBeforeTheHostIsToldWithWParam0) {
    core->Init(window->Handle());
    std::vector<unsigned int> countsWhenTold;
    window->OnMessage([&](const ReceivedMessage& m) {
        if (m.message == WM_AUDIO_DEVICE_CHANGED) countsWhenTold.push_back(core->GetHidCaptureDeviceCount());
    });
    AddMicrophone("KV1-NEW");
    Deliver();
    ASSERT_EQ(DeviceMessages().size(), 1u);
    EXPECT_EQ(DeviceMessages()[0].wParam, 0u);
    EXPECT_EQ(DeviceMessages()[0].lParam, 0);
    EXPECT_EQ(countsWhenTold, std::vector<unsigned int>{1u});
    // The capture engine's own list changes only when the host refreshes.
    EXPECT_EQ(core->GetCaptureDeviceCount(), 0u);
    core->Refresh();
    EXPECT_EQ(core->GetCaptureDeviceCount(), 1u);
}

// States are compared whole: active or not-present with other bits beside it is neither, and
// like the other states (disabled, unplugged) it is only logged: no discovery and no removal.
// The plain states, given the same way, run them.
TEST_F(DeviceNotifications, AStateWithOtherBitsBesideActiveOrNotPresentIsNeither) {
    const zqtest::Microphone listed = AddMicrophone("KV1-A");
    core->Init(window->Handle());
    AddMicrophone("KV1-NEW", "KV-1 USB Microphone", false);  // a discovery would list it
    CMMNotificationClient* client = core->GetNotifyClient();
    ASSERT_NE(client, nullptr);
    recorder->Clear();
    const DWORD states[] = {DEVICE_STATE_ACTIVE | DEVICE_STATE_UNPLUGGED, DEVICE_STATE_ACTIVE | DEVICE_STATE_DISABLED,
                            DEVICE_STATE_NOTPRESENT | DEVICE_STATE_UNPLUGGED, DEVICE_STATE_DISABLED,
                            DEVICE_STATE_UNPLUGGED};
    for (DWORD state : states) {
        EXPECT_EQ(client->OnDeviceStateChanged(listed.endpoint.c_str(), state), S_OK);
    }
    window->Pump();
    EXPECT_EQ(recorder->TextsContaining(L"CoreAudio: call DeviceChange").size(), 5u);
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: call DeviceChange, device id: " + listed.endpoint + L", state = 8"));
    EXPECT_TRUE(recorder->TextsContaining(L"CoreAudio: call FillDevicesZQ").empty());
    EXPECT_TRUE(recorder->TextsContaining(L"CoreAudio: call RemoveDevice").empty());
    EXPECT_EQ(ListedSerials(), std::vector<std::wstring>{L"KV1-A"});
    EXPECT_TRUE(DeviceMessages().empty());

    EXPECT_EQ(client->OnDeviceStateChanged(listed.endpoint.c_str(), DEVICE_STATE_ACTIVE), S_OK);
    window->Pump();
    EXPECT_EQ(ListedSerials(), (std::vector<std::wstring>{L"KV1-A", L"KV1-NEW"}));
    EXPECT_EQ(DeviceMessages().size(), 1u);
    EXPECT_EQ(client->OnDeviceStateChanged(listed.endpoint.c_str(), DEVICE_STATE_NOTPRESENT), S_OK);
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: call RemoveDevice, device id: " + listed.endpoint));
}

// A microphone whose endpoint is no longer present (a state change) or is taken out of the
// machine altogether (OnDeviceRemoved: the enumerator still knows it, not present) is found by
// its container and taken off the list; the others keep their order, and the host is told its
// serial number.
TEST_F(DeviceNotifications, RemovedMicrophonesAreTakenOffTheListInOrderAndTheirSerialsPosted) {
    AddMicrophone("KV1-A");
    const zqtest::Microphone middle = AddMicrophone("KV1-B");
    const zqtest::Microphone last = AddMicrophone("KV1-C");
    const std::wstring lineIn = AddCapture(48000, 2, zqvm::SampleFormat::Float32, zqvm::CaptureSource::Silence());
    core->Init(window->Handle());
    ASSERT_EQ(ListedSerials(), (std::vector<std::wstring>{L"KV1-A", L"KV1-B", L"KV1-C"}));

    ASSERT_TRUE(zqvm::RemoveBridge(middle.bridge));
    ASSERT_TRUE(zqvm::InvalidateEndpoint(middle.endpoint));
    Deliver();
    EXPECT_EQ(ListedSerials(), (std::vector<std::wstring>{L"KV1-A", L"KV1-C"}));
    ASSERT_TRUE(zqvm::RemoveBridge(last.bridge));
    ASSERT_TRUE(zqvm::RemoveEndpoint(last.endpoint));
    Deliver();
    EXPECT_EQ(ListedSerials(), std::vector<std::wstring>{L"KV1-A"});
    ASSERT_EQ(DeviceMessages().size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(DeviceMessages()[i].wParam, 1u);
        ASSERT_NE(DeviceMessages()[i].lParam, 0);
        EXPECT_STREQ(reinterpret_cast<const wchar_t*>(DeviceMessages()[i].lParam), i == 0 ? L"KV1-B" : L"KV1-C");
    }

    // An endpoint that is none of the maker's microphones: the log line and nothing else.
    ASSERT_TRUE(zqvm::InvalidateEndpoint(lineIn));
    Deliver();
    EXPECT_EQ(DeviceMessages().size(), 2u);
    EXPECT_EQ(core->GetHidCaptureDeviceCount(), 1u);
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: call RemoveDevice, device id: " + lineIn));
}

TEST_F(DeviceNotifications, TheRemovedSerialStaysReadableUntilTheCoreGoes) {
    const zqtest::Microphone mic = AddMicrophone("KV1-GONE");
    core->Init(window->Handle());
    ASSERT_TRUE(zqvm::InvalidateEndpoint(mic.endpoint));
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWait));
    core->Shutdown();  // the host has not handled the posted message yet
    window->Pump();
    ASSERT_EQ(DeviceMessages().size(), 1u);
    EXPECT_STREQ(reinterpret_cast<const wchar_t*>(DeviceMessages()[0].lParam), L"KV1-GONE");
}

TEST_F(DeviceNotifications, DefaultRenderChangesPostOncePerRoleAndCaptureChangesNothing) {
    AddRender(48000, 2, zqvm::SampleFormat::Float32, L"Speakers A");
    const std::wstring b = AddRender(48000, 2, zqvm::SampleFormat::Float32, L"Speakers B", false);
    const std::wstring mic = AddCapture(48000, 1, zqvm::SampleFormat::Int16, zqvm::CaptureSource::Silence());
    const std::wstring mic2 = AddCapture(48000, 1, zqvm::SampleFormat::Int16, zqvm::CaptureSource::Silence());
    core->Init(window->Handle());
    for (ERole role : {eConsole, eMultimedia, eCommunications}) ASSERT_TRUE(zqvm::SetDefaultEndpoint(eRender, role, b));
    ASSERT_TRUE(zqvm::SetDefaultEndpoint(eCapture, eConsole, mic2));
    Deliver();
    const auto render = window->Received(WM_AUDIO_RENDER_CHANGED);
    ASSERT_EQ(render.size(), 3u);
    for (const auto& m : render) {
        EXPECT_EQ(m.wParam, 0u);
        EXPECT_EQ(m.lParam, 0);
    }
    EXPECT_TRUE(DeviceMessages().empty());
    const size_t before = window->All().size();
    core->DoCaptureChanged(mic.c_str());
    window->Pump();
    EXPECT_EQ(window->All().size(), before);
    EXPECT_EQ(window->Received(WM_AUDIO_RENDER_CHANGED).size(), 3u);
    EXPECT_TRUE(DeviceMessages().empty());
}

TEST_F(DeviceNotifications, AFailedRegistrationStillLogsAndShutdownDestroysTheClient) {
    ASSERT_TRUE(zqvm::InjectFailure(L"", "IMMDeviceEnumerator::RegisterEndpointNotificationCallback", E_OUTOFMEMORY));
    core->Init(window->Handle());
    EXPECT_NE(core->GetNotifyClient(), nullptr);
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: CMMNotificationClient Init"));
    EXPECT_EQ(zqvm::NotificationClientCount(), 0u);
    core->Shutdown();
    EXPECT_EQ(core->GetNotifyClient(), nullptr);
}

TEST_F(DeviceNotifications, ShutdownWhileANotificationWaitsForTheHostsWindowDoesNotDeadlock) {
    core->Init(window->Handle());
    AddMicrophone("KV1-LATE");
    // The notification thread now waits in SendMessageW for this thread.
    ASSERT_TRUE(zqvm::WaitForQueuedMessages(QS_SENDMESSAGE, kWait));
    auto shutdown = std::async(std::launch::deferred, [&] { core->Shutdown(); });
    shutdown.get();  // runs here, on the window's thread: it must handle the message to get on
    EXPECT_EQ(DeviceMessages().size(), 1u);
    EXPECT_EQ(zqvm::NotificationClientCount(), 0u);
    EXPECT_EQ(core->GetHidCaptureDeviceCount(), 0u);  // cleared, and nothing added after
}

// A host may shut the library down from the handler of the very message a notification sent.
TEST_F(DeviceNotifications, ShutdownInsideTheHandlerOfTheSentDeviceMessageReturns) {
    core->Init(window->Handle());
    bool shutDownInHandler = false;
    window->OnMessage([&](const ReceivedMessage& m) {
        if (m.message != WM_AUDIO_DEVICE_CHANGED || m.wParam != 0) return;
        core->Shutdown();  // the notification thread waits in SendMessageW for this handler
        shutDownInHandler = true;
    });
    AddMicrophone("KV1-LATE");
    ASSERT_TRUE(zqvm::PumpUntil([&] { return shutDownInHandler; }, kWait));
    EXPECT_EQ(DeviceMessages().size(), 1u);
    EXPECT_FALSE(core->IsInit());
    EXPECT_EQ(core->GetNotifyClient(), nullptr);
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWait));
    EXPECT_EQ(zqvm::NotificationClientCount(), 0u);
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: Shutdown OK"));
}

// Microphones come and go on the engine's thread while the host refreshes, starts and stops,
// pumping its messages in between, and finally shuts down while they still come and go.
TEST_F(DeviceNotifications, MicrophonesComingAndGoingWhileTheHostRefreshesAndShutsDown) {
    AddRender(48000, 2, zqvm::SampleFormat::Float32);
    const zqtest::Microphone mic = AddMicrophone("KV1-STRESS");
    core->Init(window->Handle());
    window->OnMessage([&](const ReceivedMessage& m) {
        if (m.message == WM_AUDIO_DEVICE_CHANGED) {
            core->Refresh();
            core->Start();
        }
    });

    std::atomic<int> rounds{0};
    bool delivered = true;
    std::thread plugger([&] {
        for (int i = 0; i < 500; ++i) {
            // Each change is delivered before the next, so every one reaches the core (or, once
            // Shutdown has begun, the closed client) instead of piling up in the engine.
            zqvm::RemoveAllBridges();
            zqvm::InvalidateEndpoint(mic.endpoint);
            delivered = zqvm::WaitForNotificationsDelivered(kWait) && delivered;
            zqvm::AddBridge(mic.description);
            zqvm::SetEndpointState(mic.endpoint, DEVICE_STATE_ACTIVE);
            delivered = zqvm::WaitForNotificationsDelivered(kWait) && delivered;
            rounds.store(i + 1);
        }
    });
    int cycles = 0;
    while (rounds.load() < 250) {
        core->Refresh();
        core->Start();
        window->Pump();
        core->Stop();
        window->Pump();
        ++cycles;
    }
    auto shutdown = std::async(std::launch::deferred, [&] { core->Shutdown(); });
    shutdown.get();  // the last 250 rounds run on during and after it
    plugger.join();
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWait));
    EXPECT_EQ(rounds.load(), 500);
    EXPECT_TRUE(delivered);
    // Every arrival before Shutdown was sent to the host. (A removal is posted only when the
    // microphone was still listed: a Refresh between the bridge going and its endpoint going
    // may already have dropped it.)
    size_t arrivals = 0;
    for (const ReceivedMessage& m : DeviceMessages()) arrivals += m.wParam == 0 ? 1 : 0;
    EXPECT_GE(arrivals, 250u);
    EXPECT_GT(cycles, 0);
    EXPECT_EQ(zqvm::NotificationClientCount(), 0u);
    EXPECT_EQ(core->GetHidCaptureDeviceCount(), 0u);
    EXPECT_FALSE(core->IsInit());
}

// A microphone's endpoint comes and goes (its bridge stays) while the host refreshes: the
// discovery of each arrival runs beside the host's, and every record either lists must carry
// its bridge's versions and the name they select.
TEST_F(DeviceNotifications, ArrivalsDuringRefreshesListTheMicrophoneWithItsVersionsAndName) {
    AddRender(48000, 2, zqvm::SampleFormat::Float32);
    const zqtest::Microphone mic = AddMicrophone("KV1-STORM");
    core->Init(window->Handle());
    int wrong = 0;
    int checked = 0;
    auto check = [&] {
        for (unsigned int i = 0; i < core->GetHidCaptureDeviceCount(); ++i) {
            CWMAudioDevice* record = core->GetHidCaptureDevice(static_cast<int>(i));
            ++checked;
            if (record->GetVerAPI() != 0x05 || record->GetVerFW() != 0x12 || record->GetFriendlyName() != L"KV-1 Studio") {
                ++wrong;
            }
        }
        if (core->GetHidCaptureDeviceCount() > 1) ++wrong;  // listed twice
    };
    // While the sent message is handled the notification thread waits for the handler: the
    // records hold still.
    window->OnMessage([&](const ReceivedMessage& m) {
        if (m.message == WM_AUDIO_DEVICE_CHANGED && m.wParam == 0) check();
    });
    std::atomic<bool> finished{false};
    bool delivered = true;
    std::thread plugger([&] {
        for (int i = 0; i < 200; ++i) {
            zqvm::SetEndpointState(mic.endpoint, DEVICE_STATE_UNPLUGGED);
            delivered = zqvm::WaitForNotificationsDelivered(kWait) && delivered;
            zqvm::SetEndpointState(mic.endpoint, DEVICE_STATE_ACTIVE);
            delivered = zqvm::WaitForNotificationsDelivered(kWait) && delivered;
        }
        finished.store(true);
    });
    while (!finished.load()) {
        core->Refresh();
        window->Pump();
    }
    plugger.join();
    window->Pump();
    EXPECT_TRUE(delivered);
    EXPECT_GT(checked, 0);
    EXPECT_EQ(wrong, 0) << "records listed twice or without their versions or name";
    core->Shutdown();
}

}  // namespace
