// Endpoints of the virtual audio engine as the enumerator presents them: lists, defaults,
// identifiers, properties, mix formats, interface queries and the audio client's set-up codes.

#include "vae_fixture.h"

namespace vaetest {
namespace {

using zqvm::SampleFormat;

class EnumerationTest : public VirtualAudioTest {};

using zqtest::EndpointIds;
using zqtest::IdOf;

TEST_F(EnumerationTest, TheBuiltInMachineHasOurMicrophoneAndASpeakerAsDefaults) {
    ASSERT_TRUE(zqvm::LoadMachineDescriptionText(zqvm::DefaultMachineDescription()));
    CComPtr<IMMDeviceEnumerator> enumerator = Enumerator();
    CComPtr<IMMDevice> mic;
    ASSERT_EQ(enumerator->GetDefaultAudioEndpoint(eCapture, eCommunications, &mic), S_OK);
    EXPECT_EQ(zqtest::FriendlyNameOf(mic), L"Microphone (KV-1 USB Microphone)");
    EXPECT_NE(zqtest::ContainerOf(mic), GUID_NULL);

    CComPtr<IAudioClient> client;
    ASSERT_EQ(mic->Activate(IID_IAudioClient, CLSCTX_INPROC_SERVER, nullptr, reinterpret_cast<void**>(&client)), S_OK);
    WAVEFORMATEX* mix = nullptr;
    ASSERT_EQ(client->GetMixFormat(&mix), S_OK);
    EXPECT_EQ(mix->wFormatTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(mix->nSamplesPerSec, 48000u);
    EXPECT_EQ(mix->nChannels, 1);
    EXPECT_EQ(mix->wBitsPerSample, 16);
    CoTaskMemFree(mix);

    CComPtr<IMMDevice> speakers;
    ASSERT_EQ(enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &speakers), S_OK);
    EXPECT_EQ(zqtest::FriendlyNameOf(speakers), L"Speakers (Virtual Audio)");
}

TEST_F(EnumerationTest, ListsFollowFlowAndStateAndDevicesAreFoundByTheirId) {
    const std::wstring mic = Add(eCapture, 48000, 1, SampleFormat::Int16);
    const std::wstring speakers = Add(eRender, 48000, 2, SampleFormat::Float32);
    zqvm::EndpointSpec endpointSpec;
    endpointSpec.flow = eRender;
    endpointSpec.state = DEVICE_STATE_UNPLUGGED;
    const std::wstring unplugged = zqvm::AddEndpoint(endpointSpec);
    ASSERT_FALSE(unplugged.empty());

    CComPtr<IMMDeviceEnumerator> enumerator = Enumerator();
    EXPECT_EQ(EndpointIds(enumerator, eRender, DEVICE_STATE_ACTIVE), std::vector<std::wstring>{speakers});
    EXPECT_EQ(EndpointIds(enumerator, eRender, DEVICE_STATEMASK_ALL), (std::vector<std::wstring>{speakers, unplugged}));
    EXPECT_EQ(EndpointIds(enumerator, eCapture, DEVICE_STATE_ACTIVE), std::vector<std::wstring>{mic});
    EXPECT_EQ(EndpointIds(enumerator, eAll, DEVICE_STATE_ACTIVE), (std::vector<std::wstring>{mic, speakers}));
    EXPECT_TRUE(EndpointIds(enumerator, eCapture, DEVICE_STATE_DISABLED).empty());
    CComPtr<IMMDeviceCollection> collection;
    ASSERT_EQ(enumerator->EnumAudioEndpoints(eRender, DEVICE_STATE_ACTIVE, &collection), S_OK);
    CComPtr<IMMDevice> beyond;
    EXPECT_EQ(collection->Item(1, &beyond), E_INVALIDARG) << "an index past the count";

    CComPtr<IMMDevice> device;
    ASSERT_EQ(enumerator->GetDevice(unplugged.c_str(), &device), S_OK);
    DWORD state = 0;
    ASSERT_EQ(device->GetState(&state), S_OK);
    EXPECT_EQ(state, static_cast<DWORD>(DEVICE_STATE_UNPLUGGED));
    CComPtr<IAudioClient> client;
    EXPECT_EQ(device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client)),
              AUDCLNT_E_DEVICE_INVALIDATED)
        << "an audio client for a device that is not there";
    CComPtr<IMMDevice> missing;
    EXPECT_EQ(enumerator->GetDevice(L"{0.0.0.00000000}.{nothing}", &missing), E_NOTFOUND);
    EXPECT_EQ(missing, nullptr);
    CComPtr<IMMDevice> none;
    ASSERT_TRUE(zqvm::SetDefaultEndpoint(eCapture, eMultimedia, L""));
    EXPECT_EQ(enumerator->GetDefaultAudioEndpoint(eCapture, eMultimedia, &none), E_NOTFOUND);
    ASSERT_EQ(enumerator->GetDefaultAudioEndpoint(eCapture, eConsole, &none), S_OK);
    EXPECT_EQ(IdOf(none), mic);
}

TEST_F(EnumerationTest, QueriesKeepTheObjectsIdentityAndReferencesAreCountedPerEndpoint) {
    const std::wstring id = Add(eCapture, 48000, 1, SampleFormat::Int16);
    EXPECT_EQ(zqvm::EndpointRefCount(id), 0);
    {
        CComPtr<IMMDevice> device = Device(id);
        EXPECT_EQ(zqvm::EndpointRefCount(id), 1);
        CComPtr<IMMEndpoint> endpoint;
        ASSERT_EQ(device.QueryInterface(&endpoint), S_OK);
        EXPECT_EQ(zqvm::EndpointRefCount(id), 2);
        EDataFlow flow = eRender;
        ASSERT_EQ(endpoint->GetDataFlow(&flow), S_OK);
        EXPECT_EQ(flow, eCapture);
        CComPtr<IUnknown> viaDevice;
        CComPtr<IUnknown> viaEndpoint;
        ASSERT_EQ(device.QueryInterface(&viaDevice), S_OK);
        ASSERT_EQ(endpoint.QueryInterface(&viaEndpoint), S_OK);
        EXPECT_EQ(viaDevice.p, viaEndpoint.p) << "IUnknown must be one pointer per object";
        CComPtr<IAudioClient> notThere;
        EXPECT_EQ(device.QueryInterface(&notThere), E_NOINTERFACE);
        EXPECT_EQ(notThere, nullptr);
        CComPtr<IMMDevice> second = Device(id);
        EXPECT_EQ(zqvm::EndpointRefCount(id), 5);
    }
    EXPECT_EQ(zqvm::EndpointRefCount(id), 0);
}

TEST_F(EnumerationTest, TheAudioClientRefusesCallsOutOfOrder) {
    const std::wstring mic = Add(eCapture, 48000, 1, SampleFormat::Int16);
    CComPtr<IAudioClient> client;
    ASSERT_EQ(Device(mic)->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client)), S_OK);
    UINT32 frames = 0;
    EXPECT_EQ(client->GetBufferSize(&frames), AUDCLNT_E_NOT_INITIALIZED);
    EXPECT_EQ(client->GetCurrentPadding(&frames), AUDCLNT_E_NOT_INITIALIZED);
    EXPECT_EQ(client->Start(), AUDCLNT_E_NOT_INITIALIZED);
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(client->SetEventHandle(event), AUDCLNT_E_NOT_INITIALIZED);
    CComPtr<IAudioCaptureClient> capture;
    EXPECT_EQ(client->GetService(IID_IAudioCaptureClient, reinterpret_cast<void**>(&capture)), AUDCLNT_E_NOT_INITIALIZED);
    REFERENCE_TIME period = 0;
    REFERENCE_TIME minimum = 0;
    ASSERT_EQ(client->GetDevicePeriod(&period, &minimum), S_OK);
    EXPECT_EQ(period, 100000);
    EXPECT_LE(minimum, period);

    WAVEFORMATEX* mix = nullptr;
    ASSERT_EQ(client->GetMixFormat(&mix), S_OK);
    EXPECT_EQ(client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 200000, 0, nullptr, nullptr), E_POINTER);
    ASSERT_EQ(client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK, 200000, 0, mix, nullptr),
              S_OK);
    EXPECT_EQ(client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK, 200000, 0, mix, nullptr),
              AUDCLNT_E_ALREADY_INITIALIZED);
    CoTaskMemFree(mix);
    EXPECT_EQ(client->Start(), AUDCLNT_E_EVENTHANDLE_NOT_SET);
    EXPECT_EQ(client->SetEventHandle(nullptr), E_INVALIDARG);
    CComPtr<IAudioRenderClient> render;
    EXPECT_EQ(client->GetService(IID_IAudioRenderClient, reinterpret_cast<void**>(&render)),
              AUDCLNT_E_WRONG_ENDPOINT_TYPE);
    EXPECT_EQ(render, nullptr);
    CComPtr<IMMDevice> notAService;
    EXPECT_EQ(client->GetService(IID_IMMDevice, reinterpret_cast<void**>(&notAService)), E_NOINTERFACE);
    ASSERT_EQ(client->SetEventHandle(event), S_OK);
    CloseHandle(event);  // the engine keeps its own reference to the event
    ASSERT_EQ(client->Start(), S_OK);
    HANDLE another = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(client->SetEventHandle(another), AUDCLNT_E_NOT_STOPPED) << "the event changed under a running clock";
    ASSERT_EQ(client->Stop(), S_OK);
    EXPECT_EQ(client->SetEventHandle(another), S_OK);
    CloseHandle(another);
}

}  // namespace
}  // namespace vaetest
