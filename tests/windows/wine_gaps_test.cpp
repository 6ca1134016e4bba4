// Checks of what Wine's Core Audio may not implement: each finds out at run time whether the
// piece is there, and skips naming it when it is not, so that the same program checks it in
// full on a Windows machine or a later Wine.
#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <cmath>
#include <string>

#include "windows_core_fixture.h"

namespace {

using zqwintest::EndpointNamed;
using zqwintest::WindowsCoreAudio;

// Whether a volume set through the session manager's default session (GUID_NULL, as the
// library's session volume takes it) is the volume of a stream opened on the same endpoint.
bool DefaultSessionIsShared(IMMDevice* device) {
    CComPtr<IAudioClient> client;
    CComPtr<IAudioSessionManager> manager;
    if (FAILED(device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client))) ||
        FAILED(device->Activate(__uuidof(IAudioSessionManager), CLSCTX_ALL, nullptr,
                                reinterpret_cast<void**>(&manager)))) {
        return false;
    }
    WAVEFORMATEX* format = nullptr;
    if (FAILED(client->GetMixFormat(&format))) return false;
    const HRESULT opened = client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 1000000, 0, format, nullptr);
    CoTaskMemFree(format);
    CComPtr<ISimpleAudioVolume> stream;
    CComPtr<ISimpleAudioVolume> session;
    if (FAILED(opened) || FAILED(client->GetService(__uuidof(ISimpleAudioVolume), reinterpret_cast<void**>(&stream))) ||
        FAILED(manager->GetSimpleAudioVolume(&GUID_NULL, FALSE, &session))) {
        return false;
    }
    float before = 0.0f;
    stream->GetMasterVolume(&before);
    const float probe = before == 0.25f ? 0.75f : 0.25f;
    session->SetMasterVolume(probe, nullptr);
    float after = 0.0f;
    stream->GetMasterVolume(&after);
    session->SetMasterVolume(before, nullptr);
    return after == probe;
}

TEST_F(WindowsCoreAudio, SessionVolumeIsHeardOnTheSpeaker) {
    CComPtr<IMMDevice> speaker = EndpointNamed(eRender, L"Speakers 48k");
    CComPtr<IMMDevice> microphone = EndpointNamed(eCapture, L"KV-1 USB Microphone");
    ASSERT_TRUE(speaker != nullptr && microphone != nullptr);
    if (!DefaultSessionIsShared(speaker)) {
        GTEST_SKIP() << "audio sessions: Wine's IAudioSessionManager::GetSimpleAudioVolume(GUID_NULL) makes a "
                        "session of its own instead of the process's default session that the streams play in, "
                        "so the session volume the library sets is read back but not heard";
    }
    zqwintest::ToneFeeder feeder(*zqwintest::ServerFolder() + L"\\mic.fifo", 48000, 1000.0, 0.5f);
    ASSERT_TRUE(feeder.Running());
    ASSERT_NO_FATAL_FAILURE(StartOnSpeakerAndMicrophone(speaker, microphone));
    const double level = SpeakerLevel();
    core->SetRenderVol(0.25f);
    const double quieter = SpeakerLevel();
    ASSERT_GT(level, 0.0);
    EXPECT_NEAR(20 * std::log10(0.5), 20 * std::log10(quieter / level), 1.0);
}

TEST_F(WindowsCoreAudio, MetersReadTheMonitoredTone) {
    CComPtr<IMMDevice> speaker = EndpointNamed(eRender, L"Speakers 48k");
    CComPtr<IMMDevice> microphone = EndpointNamed(eCapture, L"KV-1 USB Microphone");
    ASSERT_TRUE(speaker != nullptr && microphone != nullptr);
    if (!zqwintest::HasOwnMeter(speaker) || !zqwintest::HasOwnMeter(microphone)) {
        GTEST_SKIP() << "IAudioMeterInformation: Wine's endpoints answer E_NOINTERFACE to its Activate, so "
                        "GetPeakCapture and GetPeakRender have no meter to read";
    }
    zqwintest::ToneFeeder feeder(*zqwintest::ServerFolder() + L"\\mic.fifo", 48000, 1000.0, 0.5f);
    ASSERT_TRUE(feeder.Running());
    ASSERT_NO_FATAL_FAILURE(StartOnSpeakerAndMicrophone(speaker, microphone));
    // A second of pumping for the meters to see the tone.
    window.PumpUntilMessage(1000);
    EXPECT_GT(core->GetPeakCapture(), 0.0f);
    EXPECT_GT(core->GetPeakRender(), 0.0f);
}

// Counts the endpoint notifications the system delivers, and signals each.
class CountingNotificationClient final : public IMMNotificationClient {
public:
    CountingNotificationClient() : m_arrived(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    ~CountingNotificationClient() { CloseHandle(m_arrived); }
    CountingNotificationClient(const CountingNotificationClient&) = delete;
    CountingNotificationClient& operator=(const CountingNotificationClient&) = delete;
    HANDLE Arrived() const { return m_arrived; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (riid == __uuidof(IUnknown) || riid == __uuidof(IMMNotificationClient)) {
            *ppv = static_cast<IMMNotificationClient*>(this);
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }  // lives on the test's stack
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override { return Note(); }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return Note(); }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return Note(); }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR) override { return Note(); }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }

private:
    HRESULT Note() {
        SetEvent(m_arrived);
        return S_OK;
    }
    HANDLE m_arrived;
};

TEST_F(WindowsCoreAudio, ANewSinkReachesTheHostAsADeviceMessage) {
    CComPtr<IMMDeviceEnumerator> enumerator;
    ASSERT_HRESULT_SUCCEEDED(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                              __uuidof(IMMDeviceEnumerator), reinterpret_cast<void**>(&enumerator)));
    CountingNotificationClient client;
    ASSERT_HRESULT_SUCCEEDED(enumerator->RegisterEndpointNotificationCallback(&client));
    core->Init(window.Handle());
    const std::optional<std::string> module =
        zqwintest::RunUnix("pactl load-module module-null-sink sink_name=zq_windows_new", 10000);
    ASSERT_TRUE(module.has_value()) << "pactl load-module failed";
    const bool notified = WaitForSingleObject(client.Arrived(), 3000) == WAIT_OBJECT_0;
    const bool messaged = notified && window.PumpUntilMessage(3000);
    enumerator->UnregisterEndpointNotificationCallback(&client);
    zqwintest::RunUnix("pactl unload-module " + *module, 10000);
    if (!notified) {
        GTEST_SKIP() << "device notifications: Wine's mmdevapi called no IMMNotificationClient within 3 s of a "
                        "new sink on the server, so the library's WM_AUDIO_DEVICE_CHANGED cannot follow";
    }
    EXPECT_TRUE(messaged) << "the system told of the new sink, the host heard nothing";
}

TEST_F(WindowsCoreAudio, EndpointsOfOneUsbDeviceShareTheirContainer) {
    auto containerOf = [](IMMDevice* device, GUID& container) {
        CComPtr<IPropertyStore> store;
        PROPVARIANT value;
        PropVariantInit(&value);
        const bool found = device != nullptr && SUCCEEDED(device->OpenPropertyStore(STGM_READ, &store)) &&
                           SUCCEEDED(store->GetValue(PKEY_Device_ContainerId, &value)) && value.vt == VT_CLSID;
        if (found) container = *value.puuid;
        PropVariantClear(&value);
        return found;
    };
    CComPtr<IMMDevice> headphones = EndpointNamed(eRender, L"KV-2 Headphones");
    CComPtr<IMMDevice> studioMic = EndpointNamed(eCapture, L"KV-2 Studio Microphone");
    CComPtr<IMMDevice> kv1 = EndpointNamed(eCapture, L"KV-1 USB Microphone");
    GUID a = GUID_NULL, b = GUID_NULL, c = GUID_NULL;
    if (!containerOf(kv1, c)) {
        GTEST_SKIP() << "PKEY_Device_ContainerId: Wine's endpoints carry no container, so a microphone's "
                        "endpoint cannot be paired with its bridge";
    }
    ASSERT_TRUE(containerOf(headphones, a) && containerOf(studioMic, b));
    EXPECT_TRUE(IsEqualGUID(a, b)) << "the KV-2's sink and source are one USB device";
    EXPECT_FALSE(IsEqualGUID(a, c)) << "the KV-1 is another";
}

}  // namespace
