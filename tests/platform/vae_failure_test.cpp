// Failure injection and device loss in the virtual audio engine: chosen results per method
// and endpoint, and an endpoint invalidated while its streams run.
#include <algorithm>

#include "vae_event_sinks.h"
#include "vae_fixture.h"

namespace vaetest {
namespace {

using zqvm::SampleFormat;

class FailureTest : public VirtualAudioTest {};

TEST_F(FailureTest, AnInjectedResultIsReturnedOnceOrAlwaysForTheChosenEndpointOnly) {
    const std::wstring mic = Add(eCapture, 48000, 1, SampleFormat::Int16);
    const std::wstring other = Add(eCapture, 48000, 1, SampleFormat::Int16);
    CComPtr<IMMDevice> device = Device(mic);
    CComPtr<IMMDevice> otherDevice = Device(other);
    const auto activate = [](IMMDevice* d) {
        CComPtr<IAudioClient> client;
        return d->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client));
    };

    ASSERT_TRUE(zqvm::InjectFailure(mic, "IMMDevice::Activate", E_OUTOFMEMORY, /*once=*/true));
    EXPECT_EQ(activate(otherDevice), S_OK);
    EXPECT_EQ(activate(device), E_OUTOFMEMORY);
    EXPECT_EQ(activate(device), S_OK) << "a once-failure must be used up";

    ASSERT_TRUE(zqvm::InjectFailure(mic, "IAudioClient::Initialize", AUDCLNT_E_DEVICE_IN_USE));
    for (int i = 0; i < 3; ++i) {
        CComPtr<IAudioClient> client;
        ASSERT_EQ(device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client)), S_OK);
        WAVEFORMATEX* mix = nullptr;
        ASSERT_EQ(client->GetMixFormat(&mix), S_OK);
        EXPECT_EQ(client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK, 200000, 0, mix,
                                     nullptr),
                  AUDCLNT_E_DEVICE_IN_USE);
        CoTaskMemFree(mix);
    }
    zqvm::ClearFailures();
    TestStream stream(mic);

    // An empty id reaches every endpoint and the enumerator itself.
    ASSERT_TRUE(zqvm::InjectFailure(L"", "IMMDeviceEnumerator::GetDefaultAudioEndpoint", E_FAIL, true));
    ASSERT_TRUE(zqvm::InjectFailure(L"", "IPropertyStore::GetValue", E_ACCESSDENIED, true));
    CComPtr<IMMDevice> none;
    EXPECT_EQ(Enumerator()->GetDefaultAudioEndpoint(eCapture, eConsole, &none), E_FAIL);
    EXPECT_EQ(none, nullptr);
    CComPtr<IPropertyStore> store;
    ASSERT_EQ(otherDevice->OpenPropertyStore(STGM_READ, &store), S_OK);
    PROPVARIANT value;
    EXPECT_EQ(store->GetValue(PKEY_Device_FriendlyName, &value), E_ACCESSDENIED);
    EXPECT_EQ(value.vt, VT_EMPTY);
    ASSERT_EQ(store->GetValue(PKEY_Device_FriendlyName, &value), S_OK);
    PropVariantClear(&value);

    EXPECT_FALSE(zqvm::InjectFailure(mic, "IAudioClient::Intialize", E_FAIL)) << "a misspelt method was accepted";
}

// The call trace sees what failure injection sees: every method at its entry, in order, with the
// endpoint of its object; an injected failure is still traced; nothing is traced while it is off.
TEST_F(FailureTest, TheCallTraceListsEveryMethodInOrderWithItsEndpointOnlyWhileOn) {
    const std::wstring mic = Add(eCapture, 48000, 1, SampleFormat::Int16);
    const std::string micUtf8(mic.begin(), mic.end());  // the test endpoints' ids are ASCII
    zqvm::ClearCoreAudioCalls();
    {
        TestStream untraced(mic);
    }
    EXPECT_TRUE(zqvm::CoreAudioCalls().empty()) << "traced while off";

    zqvm::TraceCoreAudioCalls(true);
    ASSERT_TRUE(zqvm::InjectFailure(mic, "IAudioClient::GetDevicePeriod", E_FAIL, /*once=*/true));
    CComPtr<IMMDeviceCollection> devices;
    ASSERT_EQ(Enumerator()->EnumAudioEndpoints(eCapture, DEVICE_STATE_ACTIVE, &devices), S_OK);
    CComPtr<IMMDevice> device = Device(mic);
    CComPtr<IAudioClient> client;
    ASSERT_EQ(device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client)), S_OK);
    REFERENCE_TIME period = 0;
    EXPECT_EQ(client->GetDevicePeriod(&period, nullptr), E_FAIL);
    zqvm::TraceCoreAudioCalls(false);
    EXPECT_EQ(client->GetDevicePeriod(&period, nullptr), S_OK);
    zqvm::ClearFailures();

    const std::vector<std::string> calls = zqvm::CoreAudioCalls();
    const std::vector<std::string> expected = {"IMMDeviceEnumerator::EnumAudioEndpoints",
                                               "IMMDevice::Activate on " + micUtf8,
                                               "IAudioClient::GetDevicePeriod on " + micUtf8};
    // In this order, other calls (the fixture's own GetDevice) in between.
    auto at = calls.begin();
    for (const std::string& call : expected) {
        at = std::find(at, calls.end(), call);
        ASSERT_NE(at, calls.end()) << "no " << call << " (in order) among " << calls.size() << " calls";
    }
    EXPECT_EQ(1, std::count(calls.begin(), calls.end(), "IAudioClient::GetDevicePeriod on " + micUtf8))
        << "the call after the trace was turned off";
    zqvm::ClearCoreAudioCalls();
    EXPECT_TRUE(zqvm::CoreAudioCalls().empty());
}

TEST_F(FailureTest, APulledDeviceInvalidatesItsStreamsStopsItsClockAndIsReported) {
    const std::wstring mic = Add(eCapture, 48000, 1, SampleFormat::Int16, zqvm::CaptureSource::Tone(1000.0, 0.5));
    TestStream stream(mic);
    CComPtr<IAudioCaptureClient> capture = stream.Get<IAudioCaptureClient>();
    CComPtr<ISimpleAudioVolume> volume = stream.Get<ISimpleAudioVolume>();
    CComPtr<IMMDevice> device = Device(mic);
    CComPtr<IAudioMeterInformation> meter;
    ASSERT_EQ(device->Activate(IID_IAudioMeterInformation, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&meter)), S_OK);
    CComPtr<IAudioSessionManager> manager;
    ASSERT_EQ(device->Activate(IID_IAudioSessionManager, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&manager)),
              S_OK);
    CComPtr<IAudioSessionControl> control;
    ASSERT_EQ(manager->GetAudioSessionControl(nullptr, 0, &control), S_OK);
    RecordingSessionSink sink;
    ASSERT_EQ(control->RegisterAudioSessionNotification(&sink), S_OK);
    RecordingClient client;
    CComPtr<IMMDeviceEnumerator> enumerator = Enumerator();
    ASSERT_EQ(enumerator->RegisterEndpointNotificationCallback(&client), S_OK);

    ASSERT_EQ(stream.client->Start(), S_OK);
    Step();
    ASSERT_TRUE(stream.Signalled());
    float peak = 0.0f;
    ASSERT_EQ(meter->GetPeakValue(&peak), S_OK);
    EXPECT_NEAR(peak, 0.5f, 1e-3f);

    ASSERT_TRUE(zqvm::InvalidateEndpoint(mic));
    BYTE* data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    EXPECT_EQ(capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr), AUDCLNT_E_DEVICE_INVALIDATED);
    EXPECT_EQ(capture->ReleaseBuffer(0), AUDCLNT_E_DEVICE_INVALIDATED);
    UINT32 padding = 0;
    EXPECT_EQ(stream.client->GetCurrentPadding(&padding), AUDCLNT_E_DEVICE_INVALIDATED);
    EXPECT_EQ(stream.client->Start(), AUDCLNT_E_DEVICE_INVALIDATED);
    EXPECT_EQ(volume->SetMasterVolume(0.5f, nullptr), AUDCLNT_E_DEVICE_INVALIDATED);
    EXPECT_EQ(meter->GetPeakValue(&peak), AUDCLNT_E_DEVICE_INVALIDATED);
    AudioSessionState state;
    EXPECT_EQ(control->GetState(&state), AUDCLNT_E_DEVICE_INVALIDATED);
    Step(3);
    EXPECT_FALSE(stream.Signalled()) << "a pulled device's clock still signals";

    DWORD deviceState = 0;
    ASSERT_EQ(device->GetState(&deviceState), S_OK);
    EXPECT_EQ(deviceState, static_cast<DWORD>(DEVICE_STATE_NOTPRESENT));
    CComPtr<IMMDeviceCollection> active;
    ASSERT_EQ(enumerator->EnumAudioEndpoints(eCapture, DEVICE_STATE_ACTIVE, &active), S_OK);
    UINT count = 1;
    ASSERT_EQ(active->GetCount(&count), S_OK);
    EXPECT_EQ(count, 0u);
    ASSERT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
    const std::vector<DeviceEvent> events = client.Events();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].kind, DeviceEvent::Kind::State);
    EXPECT_EQ(events[0].state, static_cast<DWORD>(DEVICE_STATE_NOTPRESENT));
    for (size_t i = 1; i < 4; ++i) EXPECT_TRUE(events[i].id.empty()) << "the capture default must go";
    EXPECT_EQ(sink.Disconnects(), std::vector<AudioSessionDisconnectReason>{DisconnectReasonDeviceRemoval});
    EXPECT_EQ(stream.client->Stop(), AUDCLNT_E_DEVICE_INVALIDATED);
    EXPECT_EQ(zqvm::RunningStreams(mic), 0) << "Stop on a pulled device still stops the stream";

    // Plugged in again: new objects work, the old ones stay invalid.
    ASSERT_TRUE(zqvm::SetEndpointState(mic, DEVICE_STATE_ACTIVE));
    EXPECT_EQ(capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr), AUDCLNT_E_DEVICE_INVALIDATED);
    TestStream again(mic);
    ASSERT_EQ(again.client->Start(), S_OK);
    Step();
    EXPECT_TRUE(again.Signalled());
    ASSERT_EQ(again.client->Stop(), S_OK);
    EXPECT_EQ(control->UnregisterAudioSessionNotification(&sink), S_OK) << "a sink must be able to leave a lost session";
    ASSERT_EQ(enumerator->UnregisterEndpointNotificationCallback(&client), S_OK);
}

}  // namespace
}  // namespace vaetest
