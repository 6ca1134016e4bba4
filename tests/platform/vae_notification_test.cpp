// Endpoint notifications of the virtual audio engine: arrivals, removals, state changes and
// default changes per role, delivered on an engine thread; unregistration.
#include <future>

#include "vae_event_sinks.h"
#include "vae_fixture.h"

namespace vaetest {
namespace {

using Kind = DeviceEvent::Kind;
using zqvm::SampleFormat;

class NotificationTest : public VirtualAudioTest {
protected:
    static std::wstring AddRender(const wchar_t* name) {
        zqvm::EndpointSpec endpointSpec;
        endpointSpec.flow = eRender;
        endpointSpec.name = name;
        return zqvm::AddEndpoint(endpointSpec);
    }
    static std::vector<DeviceEvent> Delivered(RecordingClient& client) {
        EXPECT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
        std::vector<DeviceEvent> events = client.Events();
        client.Clear();
        for (const DeviceEvent& e : events) EXPECT_NE(e.thread, std::this_thread::get_id());
        return events;
    }
};

TEST_F(NotificationTest, ArrivalStateAndRemovalAreReportedWithEveryRoleWhoseDefaultMoved) {
    CComPtr<IMMDeviceEnumerator> enumerator = Enumerator();
    RecordingClient client;
    ASSERT_EQ(enumerator->RegisterEndpointNotificationCallback(&client), S_OK);

    const std::wstring first = AddRender(L"First");
    std::vector<DeviceEvent> events = Delivered(client);
    ASSERT_EQ(events.size(), 4u) << "added, then the default of each role";
    EXPECT_EQ(events[0].kind, Kind::Added);
    EXPECT_EQ(events[0].id, first);
    for (int role = 0; role < 3; ++role) {
        EXPECT_EQ(events[1 + role].kind, Kind::Default);
        EXPECT_EQ(events[1 + role].flow, eRender);
        EXPECT_EQ(events[1 + role].role, static_cast<ERole>(role));
        EXPECT_EQ(events[1 + role].id, first);
    }

    const std::wstring second = AddRender(L"Second");
    events = Delivered(client);
    ASSERT_EQ(events.size(), 1u) << "every role has a default already";
    EXPECT_EQ(events[0].kind, Kind::Added);

    ASSERT_TRUE(zqvm::SetDefaultEndpoint(eRender, eCommunications, second));
    ASSERT_TRUE(zqvm::SetDefaultEndpoint(eRender, eCommunications, second));  // no change: no report
    events = Delivered(client);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].role, eCommunications);
    EXPECT_EQ(events[0].id, second);

    ASSERT_TRUE(zqvm::SetEndpointState(first, DEVICE_STATE_DISABLED));
    events = Delivered(client);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].kind, Kind::State);
    EXPECT_EQ(events[0].state, static_cast<DWORD>(DEVICE_STATE_DISABLED));
    EXPECT_EQ(events[1].role, eConsole);
    EXPECT_EQ(events[2].role, eMultimedia);
    EXPECT_EQ(events[1].id, second);
    EXPECT_EQ(zqvm::DefaultEndpoint(eRender, eConsole), second);

    ASSERT_TRUE(zqvm::RemoveEndpoint(second));
    events = Delivered(client);
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].kind, Kind::Removed);
    for (int role = 0; role < 3; ++role) {
        EXPECT_EQ(events[1 + role].kind, Kind::Default);
        EXPECT_TRUE(events[1 + role].id.empty()) << "no active render endpoint is left";
    }
    EXPECT_FALSE(zqvm::SetDefaultEndpoint(eRender, eConsole, first)) << "a disabled endpoint became the default";
    EXPECT_FALSE(zqvm::RemoveEndpoint(second));
    // Still known to GetDevice, as not present, so that a client can look at what went.
    CComPtr<IMMDevice> removed;
    ASSERT_EQ(enumerator->GetDevice(second.c_str(), &removed), S_OK);
    DWORD state = 0;
    ASSERT_EQ(removed->GetState(&state), S_OK);
    EXPECT_EQ(state, static_cast<DWORD>(DEVICE_STATE_NOTPRESENT));
    ASSERT_EQ(enumerator->UnregisterEndpointNotificationCallback(&client), S_OK);
}

TEST_F(NotificationTest, ACallbackMayCallTheEngineAndUnregisterWaitsForIt) {
    CComPtr<IMMDeviceEnumerator> enumerator = Enumerator();
    RecordingClient client;
    ASSERT_EQ(enumerator->RegisterEndpointNotificationCallback(&client), S_OK);
    EXPECT_EQ(zqvm::NotificationClientCount(), 1u);

    client.latch.Close();
    const std::wstring id = AddRender(L"Held");
    ASSERT_TRUE(client.latch.WaitUntilHeld(std::chrono::milliseconds(kWaitMs)));
    // The engine holds no lock while calling: the machine can still be changed and asked.
    CComPtr<IMMDevice> device;
    EXPECT_EQ(enumerator->GetDevice(id.c_str(), &device), S_OK);
    EXPECT_TRUE(zqvm::SetEndpointState(id, DEVICE_STATE_UNPLUGGED));

    auto unregistered = std::async(std::launch::async, [&] {
        const HRESULT hr = enumerator->UnregisterEndpointNotificationCallback(&client);
        return std::make_pair(hr, client.inCallback.load());
    });
    EXPECT_EQ(unregistered.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout)
        << "Unregister returned while the client was being called";
    client.latch.Open();
    const auto [hr, stillInCallback] = unregistered.get();
    EXPECT_EQ(hr, S_OK);
    EXPECT_FALSE(stillInCallback);
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
    const std::vector<DeviceEvent> events = client.Events();
    ASSERT_EQ(events.size(), 1u) << "the client heard of changes after it left";
    EXPECT_EQ(events[0].kind, Kind::Added);
    EXPECT_EQ(enumerator->UnregisterEndpointNotificationCallback(&client), E_NOTFOUND);
    EXPECT_EQ(zqvm::NotificationClientCount(), 0u);
}

TEST_F(NotificationTest, AClientHearsOnlyOfChangesMadeWhileItIsRegistered) {
    CComPtr<IMMDeviceEnumerator> enumerator = Enumerator();
    RecordingClient early;
    RecordingClient late;
    ASSERT_EQ(enumerator->RegisterEndpointNotificationCallback(&early), S_OK);
    early.latch.Close();
    const std::wstring id = AddRender(L"Before");
    ASSERT_TRUE(early.latch.WaitUntilHeld(std::chrono::milliseconds(kWaitMs)));
    // The change's other reports are still queued behind the held callback.
    ASSERT_EQ(enumerator->RegisterEndpointNotificationCallback(&late), S_OK);
    early.latch.Open();
    ASSERT_TRUE(zqvm::SetEndpointState(id, DEVICE_STATE_DISABLED));
    const std::vector<DeviceEvent> heard = Delivered(late);
    EXPECT_EQ(Delivered(early).size(), 8u) << "added, three defaults, state, three defaults";
    ASSERT_EQ(heard.size(), 4u);
    EXPECT_EQ(heard[0].kind, Kind::State);
    ASSERT_EQ(enumerator->UnregisterEndpointNotificationCallback(&early), S_OK);
    ASSERT_EQ(enumerator->UnregisterEndpointNotificationCallback(&late), S_OK);
}

}  // namespace
}  // namespace vaetest
