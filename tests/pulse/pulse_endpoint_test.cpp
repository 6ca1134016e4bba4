// The server's sinks and sources as endpoints: which are listed, their names, formats,
// containers and the defaults.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>

#include "../../platform/src/usb/usb_container.h"
#include "pulse_fixture.h"

namespace zqtest::pulse {
namespace {

bool Has(const std::vector<std::wstring>& ids, const std::wstring& id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// The endpoint's mix format as "<rate> Hz, <channels> x <bits> bits in <block align> bytes", followed,
// for a WAVEFORMATEXTENSIBLE, by ", float" (or ", not float") and ", mask 0x<channel mask>".
std::string MixFormatOf(IMMDevice* device) {
    CComPtr<IAudioClient> client;
    WAVEFORMATEX* format = nullptr;
    if (FAILED(device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client))) ||
        FAILED(client->GetMixFormat(&format)))
        return "no mix format";
    std::ostringstream text;
    text << format->nSamplesPerSec << " Hz, " << format->nChannels << " x " << format->wBitsPerSample << " bits in "
         << format->nBlockAlign << " bytes";
    const auto* extensible = reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(format);
    if (format->wFormatTag == WAVE_FORMAT_EXTENSIBLE)
        text << (extensible->SubFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT ? ", float" : ", not float") << ", mask 0x"
             << std::hex << extensible->dwChannelMask;
    CoTaskMemFree(format);
    return text.str();
}

using PulseEndpoints = PulseTest;

TEST_F(PulseEndpoints, SinksRenderAndSourcesCaptureButMonitorsAreNoEndpoints) {
    const std::vector<std::wstring> render = ActiveIds(eRender);
    const std::vector<std::wstring> capture = ActiveIds(eCapture);
    EXPECT_TRUE(Has(render, L"speaker48") && Has(render, L"speaker44") && Has(render, L"kv2_out"));
    EXPECT_TRUE(Has(capture, L"kv1_mic") && Has(capture, L"kv2_in"));
    for (const std::wstring& id : capture) EXPECT_EQ(id.find(L".monitor"), std::wstring::npos) << "monitor listed";
    EXPECT_FALSE(Has(render, L"kv1_mic"));
    CComPtr<IMMDevice> missing;
    EXPECT_EQ(E_NOTFOUND, enumerator->GetDevice(L"no_such_sink", &missing));
    EXPECT_EQ(nullptr, missing.p);
}

TEST_F(PulseEndpoints, FriendlyNameIsTheDescriptionAndMixFormatTheDevicesRateAndChannelsAsFloat) {
    CComPtr<IMMDevice> speaker = Device(L"speaker44");
    ASSERT_TRUE(speaker);
    EXPECT_EQ(L"Speakers 44k1", FriendlyNameOf(speaker));
    EXPECT_EQ("44100 Hz, 2 x 32 bits in 8 bytes, float, mask 0x3", MixFormatOf(speaker)) << "front left and right";

    CComPtr<IMMDevice> microphone = Device(L"kv1_mic");
    ASSERT_TRUE(microphone);
    EXPECT_EQ(L"KV-1 USB Microphone", FriendlyNameOf(microphone));
    EXPECT_EQ("48000 Hz, 1 x 32 bits in 4 bytes, float, mask 0x4", MixFormatOf(microphone)) << "front centre";

    DWORD state = 0;
    EXPECT_EQ(S_OK, microphone->GetState(&state));
    EXPECT_EQ(static_cast<DWORD>(DEVICE_STATE_ACTIVE), state);
    CComPtr<IMMEndpoint> endpoint;
    ASSERT_EQ(S_OK, microphone->QueryInterface(IID_IMMEndpoint, reinterpret_cast<void**>(&endpoint)));
    EDataFlow flow = eRender;
    EXPECT_EQ(S_OK, endpoint->GetDataFlow(&flow));
    EXPECT_EQ(eCapture, flow);
}

TEST_F(PulseEndpoints, ContainerIsTheUsbDevicesGuidFromSysfsPathOrBusPath) {
    const GUID pairOut = ContainerOf(Device(L"kv2_out"));  // sysfs.path
    const GUID pairIn = ContainerOf(Device(L"kv2_in"));    // device.bus_path
    EXPECT_NE(GUID_NULL, pairOut);
    EXPECT_EQ(pairOut, pairIn) << "the two endpoints of one USB device share its container";
    EXPECT_EQ(zqplatform::usb::ContainerIdOfUsbFolder(UsbFolder(4)), pairOut);
    const GUID microphone = ContainerOf(Device(L"kv1_mic"));
    EXPECT_EQ(zqplatform::usb::ContainerIdOfUsbFolder(UsbFolder(3)), microphone);
    EXPECT_NE(pairOut, microphone);
    EXPECT_EQ(GUID_NULL, ContainerOf(Device(L"speaker48"))) << "a sink of no USB device";
}

TEST_F(PulseEndpoints, DefaultOfEveryRoleIsTheServersDefaultSinkOrSource) {
    for (ERole role : {eConsole, eMultimedia, eCommunications}) {
        CComPtr<IMMDevice> render;
        CComPtr<IMMDevice> capture;
        ASSERT_EQ(S_OK, enumerator->GetDefaultAudioEndpoint(eRender, role, &render));
        ASSERT_EQ(S_OK, enumerator->GetDefaultAudioEndpoint(eCapture, role, &capture));
        EXPECT_EQ(L"speaker48", IdOf(render));
        EXPECT_EQ(L"kv1_mic", IdOf(capture));
    }
}

TEST_F(PulseEndpoints, EndpointVolumeAndMuteAreTheDevicesOwnOnTheServer) {
    for (const char* name : {"speaker44", "kv2_in"}) {
        SCOPED_TRACE(name);
        const bool sink = std::string(name) == "speaker44";
        const std::string kind = sink ? "sink" : "source";
        CComPtr<IMMDevice> device = Device(std::wstring(name, name + std::strlen(name)));
        CComPtr<IAudioEndpointVolume> volume;
        ASSERT_EQ(S_OK, device->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&volume)));
        UINT channels = 0;
        EXPECT_EQ(S_OK, volume->GetChannelCount(&channels));
        EXPECT_EQ(2u, channels);

        ASSERT_EQ(S_OK, volume->SetMasterVolumeLevelScalar(0.4f, nullptr));
        const std::optional<std::string> set = Pactl("get-" + kind + "-volume " + name);
        ASSERT_TRUE(set);
        EXPECT_NE(std::string::npos, set->find("40%")) << *set;

        ASSERT_TRUE(Pactl("set-" + kind + "-volume " + name + " 70%"));
        float scalar = 0.0f;
        EXPECT_EQ(S_OK, volume->GetMasterVolumeLevelScalar(&scalar));
        EXPECT_NEAR(0.70f, scalar, 0.005f);
        float db = 0.0f;
        EXPECT_EQ(S_OK, volume->GetMasterVolumeLevel(&db));
        EXPECT_NEAR(20.0 * std::log10(0.7 * 0.7 * 0.7), db, 0.1) << "the server's cubic software volume";
        UINT step = 0;
        UINT steps = 0;
        EXPECT_EQ(S_OK, volume->GetVolumeStepInfo(&step, &steps));
        EXPECT_EQ(70u, step);
        EXPECT_EQ(S_OK, volume->VolumeStepUp(nullptr));
        EXPECT_EQ(S_OK, volume->GetMasterVolumeLevelScalar(&scalar));
        EXPECT_NEAR(0.71f, scalar, 0.005f);

        ASSERT_EQ(S_OK, volume->SetMute(TRUE, nullptr));
        const std::optional<std::string> muted = Pactl("get-" + kind + "-mute " + name);
        ASSERT_TRUE(muted);
        EXPECT_NE(std::string::npos, muted->find("yes")) << *muted;
        ASSERT_TRUE(Pactl("set-" + kind + "-mute " + name + " 0"));
        BOOL mute = TRUE;
        EXPECT_EQ(S_OK, volume->GetMute(&mute));
        EXPECT_FALSE(mute);
        EXPECT_EQ(E_INVALIDARG, volume->SetMasterVolumeLevelScalar(1.5f, nullptr));
        EXPECT_TRUE(Pactl("set-" + kind + "-volume " + name + " 100%"));
    }
}

// One channel's level goes to the server as that channel of the sink's own volume, the others
// kept; a level in dB is the server's cubic software scale (-12 dB is 63 %).
TEST_F(PulseEndpoints, EndpointVolumeSetsOneChannelAndLevelsInDbOnTheServersScale) {
    CComPtr<IAudioEndpointVolume> volume;
    ASSERT_EQ(S_OK, Device(L"speaker44")->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr,
                                                   reinterpret_cast<void**>(&volume)));
    ASSERT_EQ(S_OK, volume->SetMasterVolumeLevelScalar(0.8f, nullptr));
    ASSERT_EQ(S_OK, volume->SetChannelVolumeLevelScalar(1, 0.3f, nullptr));
    const std::optional<std::string> channels = Pactl("get-sink-volume speaker44");
    ASSERT_TRUE(channels);
    const size_t left = channels->find("80%");
    EXPECT_NE(std::string::npos, left) << *channels;
    EXPECT_NE(std::string::npos, channels->find("30%", left)) << "the right channel after the left: " << *channels;
    float scalar = 0.0f;
    EXPECT_EQ(S_OK, volume->GetMasterVolumeLevelScalar(&scalar));
    EXPECT_NEAR(0.8f, scalar, 0.005f) << "the loudest channel";
    EXPECT_EQ(S_OK, volume->GetChannelVolumeLevelScalar(1, &scalar));
    EXPECT_NEAR(0.3f, scalar, 0.005f);

    ASSERT_EQ(S_OK, volume->SetMasterVolumeLevel(-12.0f, nullptr));
    const std::optional<std::string> inDb = Pactl("get-sink-volume speaker44");
    ASSERT_TRUE(inDb);
    const size_t first = inDb->find("63%");
    EXPECT_NE(std::string::npos, first) << *inDb;
    EXPECT_NE(std::string::npos, inDb->find("63%", first + 1)) << "every channel: " << *inDb;
    float db = 0.0f;
    EXPECT_EQ(S_OK, volume->GetChannelVolumeLevel(0, &db));
    EXPECT_NEAR(-12.0f, db, 0.01f);
    EXPECT_EQ(E_INVALIDARG, volume->GetChannelVolumeLevel(2, &db));
    EXPECT_TRUE(Pactl("set-sink-volume speaker44 100%"));
}

}  // namespace
}  // namespace zqtest::pulse
