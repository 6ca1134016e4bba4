// Machine descriptions of the virtual audio engine: a good file sets up the endpoints it
// describes (sound files included), a bad one leaves an empty machine and says why.
#include <cstdio>
#include <cstring>
#include <fstream>

#include "vae_fixture.h"
#include "wav_file.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/bridges.h"
#include "zqplatform/vm/registry.h"

namespace vaetest {
namespace {

class MachineDescriptionTest : public VirtualAudioTest {
protected:
    std::string Dir() const { return testing::TempDir(); }
    std::string Path(const char* name) const {
        return Dir() + "/vae_" + testing::UnitTest::GetInstance()->current_test_info()->name() + "_" + name;
    }
    static void WriteText(const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
    }
};

TEST_F(MachineDescriptionTest, AGoodFileDescribesEveryEndpointAndIgnoresOtherEngineersElements) {
    const std::string xml = R"xml(<?xml version="1.0"?>
<machine>
  <bridge serial="0001" product="KV-1"/>
  <endpoint id="mic-1" flow="capture" name="Microphone (KV-2)" container="{12345678-9abc-def0-1234-56789ABCDEF0}"
            rate="44100" channels="1" format="int16" default="communications">
    <source kind="impulse" amplitude="1" interval="441"/>
  </endpoint>
  <endpoint id="mic-2" flow="capture" name="Line In" rate="96000" channels="2" format="int24" extensible="true"
            state="disabled"/>
  <endpoint id="out-1" flow="render" name="Headphones" rate="48000" channels="2" format="float32"
            default="console, multimedia"/>
  <registry key="HKLM\SOFTWARE\Anything"/>
</machine>)xml";
    std::string error;
    ASSERT_TRUE(zqvm::LoadMachineDescriptionText(xml, &error)) << error;
    EXPECT_EQ(zqvm::EndpointIds(), (std::vector<std::wstring>{L"mic-1", L"mic-2", L"out-1"}));
    EXPECT_EQ(zqvm::DefaultEndpoint(eCapture, eCommunications), L"mic-1");
    EXPECT_EQ(zqvm::DefaultEndpoint(eCapture, eConsole), L"mic-1") << "unclaimed roles go to the first active one";
    EXPECT_EQ(zqvm::DefaultEndpoint(eRender, eMultimedia), L"out-1");

    CComPtr<IMMDevice> mic = Device(L"mic-1");
    const GUID expected = {0x12345678, 0x9ABC, 0xDEF0, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0}};
    EXPECT_EQ(zqtest::ContainerOf(mic), expected);
    EXPECT_EQ(zqtest::FriendlyNameOf(mic), L"Microphone (KV-2)");

    DWORD state = 0;
    ASSERT_EQ(Device(L"mic-2")->GetState(&state), S_OK);
    EXPECT_EQ(state, static_cast<DWORD>(DEVICE_STATE_DISABLED));

    TestStream stream(L"mic-1");
    CComPtr<IAudioCaptureClient> capture = stream.Get<IAudioCaptureClient>();
    ASSERT_EQ(stream.client->Start(), S_OK);
    Step();
    const Packet packet = Take(capture, 2);
    ASSERT_EQ(packet.frames, 441u);
    int16_t first, second;
    std::memcpy(&first, packet.bytes.data(), 2);
    std::memcpy(&second, packet.bytes.data() + 2, 2);
    EXPECT_EQ(first, 32767) << "a full-scale impulse";
    EXPECT_EQ(second, 0);
    ASSERT_EQ(stream.client->Stop(), S_OK);
}

TEST_F(MachineDescriptionTest, SoundFilesNamedRelativeToTheDescriptionAreReadAndWritten) {
    std::vector<int16_t> ramp(1000);
    for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<int16_t>(i * 16);
    const std::string input = Path("in.wav");
    const std::string output = Path("out.wav");
    ASSERT_TRUE(zqtest::WriteWav16(input, 48000, ramp));
    const std::string description = Path("machine.xml");
    const auto leaf = [](const std::string& p) { return p.substr(p.find_last_of('/') + 1); };
    WriteText(description, "<machine>\n"
                           "  <endpoint id=\"mic\" flow=\"capture\" rate=\"48000\" channels=\"1\" format=\"float32\">\n"
                           "    <source kind=\"wav\" path=\"" + leaf(input) + "\" loop=\"false\"/>\n"
                           "  </endpoint>\n"
                           "  <endpoint id=\"out\" flow=\"render\" rate=\"48000\" channels=\"1\">\n"
                           "    <sink wav=\"" + leaf(output) + "\"/>\n"
                           "  </endpoint>\n"
                           "</machine>\n");
    std::string error;
    ASSERT_TRUE(zqvm::LoadMachineDescription(description, &error)) << error;

    TestStream mic(L"mic");
    TestStream out(L"out");
    CComPtr<IAudioCaptureClient> capture = mic.Get<IAudioCaptureClient>();
    CComPtr<IAudioRenderClient> render = out.Get<IAudioRenderClient>();
    ASSERT_EQ(mic.client->Start(), S_OK);
    ASSERT_EQ(out.client->Start(), S_OK);
    std::vector<float> captured;
    std::vector<DWORD> flagsSeen;
    for (int period = 0; period < 4; ++period) {
        Step();
        const Packet packet = Take(capture, 4);
        const auto* samples = reinterpret_cast<const float*>(packet.bytes.data());
        captured.insert(captured.end(), samples, samples + packet.frames);
        flagsSeen.push_back(packet.flags);
        BYTE* target = nullptr;
        ASSERT_EQ(render->GetBuffer(packet.frames, &target), S_OK);  // play back what was heard
        std::memcpy(target, packet.bytes.data(), packet.bytes.size());
        ASSERT_EQ(render->ReleaseBuffer(packet.frames, 0), S_OK);
    }
    Step();  // the last packet written is played
    ASSERT_EQ(mic.client->Stop(), S_OK);
    ASSERT_EQ(out.client->Stop(), S_OK);
    EXPECT_EQ(flagsSeen, (std::vector<DWORD>{0, 0, 0, AUDCLNT_BUFFERFLAGS_SILENT}))
        << "the file ends after 1000 frames, within the third packet";
    ASSERT_EQ(captured.size(), 1920u);
    for (size_t i = 0; i < ramp.size(); ++i) ASSERT_FLOAT_EQ(captured[i], ramp[i] / 32768.0f) << i;
    EXPECT_TRUE(std::all_of(captured.begin() + 1000, captured.end(), [](float v) { return v == 0.0f; }));

    zqvm::Reset();  // completes the sink's file
    const std::vector<float> written = zqtest::ReadWav(output).first;
    // The speaker's first period came before anything was written to it: the file holds the
    // silence it played, then what was heard.
    ASSERT_EQ(written.size(), 480u + 1920u);
    EXPECT_TRUE(std::all_of(written.begin(), written.begin() + 480, [](float v) { return v == 0.0f; }));
    EXPECT_EQ(std::vector<float>(written.begin() + 480, written.end()), captured);
    std::remove(input.c_str());
    std::remove(output.c_str());
    std::remove(description.c_str());
}

// A bridge with its strings, its firmware's answer and its registry value; the built-in
// machine's microphone is one bridge paired with the capture endpoint of its container.
TEST_F(MachineDescriptionTest, BridgesComeWithTheirStringsFirmwareAndRegistryValue) {
    ASSERT_TRUE(zqvm::LoadMachineDescriptionText(R"(<machine>
      <bridge serial="KV1-7" product="KV-1 USB Microphone" container="5b2c7e41-9a3d-4c68-b1f0-2e8d6a4c9b37"
              version_reply="aa 07 2"/>
      <bridge serial="OTHER" manufacturer="Acme" vid="0x1234" pid="0x0001" version_reply=""/>
    </machine>)"));
    DWORD count = 0;
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0, 0), HID_UART_SUCCESS);
    ASSERT_EQ(count, 2u);
    char text[HID_UART_DEVICE_STRLEN] = {};
    ASSERT_EQ(HidUart_GetString(0, 0, 0, text, HID_UART_GET_MANUFACTURER_STR), HID_UART_SUCCESS);
    EXPECT_STREQ(text, "KESTRAVON");
    ASSERT_EQ(HidUart_GetString(0, 0, 0, text, HID_UART_GET_PRODUCT_STR), HID_UART_SUCCESS);
    EXPECT_STREQ(text, "KV-1 USB Microphone");
    ASSERT_EQ(HidUart_GetString(1, 0, 0, text, HID_UART_GET_MANUFACTURER_STR), HID_UART_SUCCESS);
    EXPECT_STREQ(text, "Acme");

    CWMAudioDevice record;
    zqvm::SetBridgeTiming(zqvm::BridgeTiming::Instant);
    EXPECT_TRUE(record.InitVer(0));
    EXPECT_EQ(record.GetVerAPI(), 0x07);
    EXPECT_EQ(record.GetVerFW(), 0x02);
    zqvm::SetBridgeTiming(zqvm::BridgeTiming::RealTime);

    DWORD type = 0;
    std::vector<uint8_t> data;
    ASSERT_TRUE(zqvm::RegistryGetValue(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_10C4&PID_EAB0\\KV1-7",
                                       L"ContainerID", type, data));
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    const std::wstring value(reinterpret_cast<const wchar_t*>(data.data()));
    EXPECT_EQ(value, L"{5B2C7E41-9A3D-4C68-B1F0-2E8D6A4C9B37}");
    EXPECT_FALSE(zqvm::RegistryGetValue(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_1234&PID_0001\\OTHER",
                                        L"ContainerID", type, data));

    // Loading another machine takes the bridges away with the endpoints.
    ASSERT_TRUE(zqvm::LoadMachineDescriptionText(zqvm::DefaultMachineDescription()));
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0, 0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 1u);
    zqvm::Reset();
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0, 0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 0u);
}

TEST_F(MachineDescriptionTest, ABadDescriptionLeavesAnEmptyMachineAndSaysWhere) {
    ASSERT_TRUE(zqvm::LoadMachineDescriptionText(zqvm::DefaultMachineDescription()));
    ASSERT_EQ(zqvm::EndpointIds().size(), 2u);
    struct Case {
        const char* xml;
        const char* mention;
    };
    const Case cases[] = {
        {"<machine>\n<endpoint flow=\"render\">\n</machine>", "line 3"},
        {"<machine><endpoint flow=\"sideways\"/></machine>", "flow"},
        {"<machine><endpoint flow=\"render\" rates=\"48000\"/></machine>", "rates"},
        {"<machine><endpoint flow=\"render\" format=\"int12\"/></machine>", "format"},
        {"<machine><endpoint flow=\"render\" channels=\"9\"/></machine>", "channels"},
        {"<machine><endpoint flow=\"render\" ppm=\"fast\"/></machine>", "ppm"},
        {"<machine><endpoint flow=\"render\" phase_ms=\"12\"/></machine>", "phase"},
        {"<machine><endpoint flow=\"render\" container=\"not-a-guid\"/></machine>", "container"},
        {"<machine><endpoint flow=\"render\" default=\"everything\"/></machine>", "everything"},
        {"<machine><endpoint flow=\"render\"><source kind=\"tone\"/></endpoint></machine>", "source"},
        {"<machine><endpoint flow=\"capture\"><source kind=\"wav\" path=\"/no/such.wav\"/></endpoint></machine>",
         "/no/such.wav"},
        {"<machine><endpoint id=\"a\" flow=\"render\"/><endpoint id=\"a\" flow=\"capture\"/></machine>", "id"},
        {"<machine><endpoint flow=\"render\" rate=\"384000\" channels=\"8\" keep_seconds=\"3600\"/></machine>",
         "keep_seconds"},
        {"<config/>", "<machine>"},
        {"<machine><bridge product=\"KV-1\"/></machine>", "serial"},
        {"<machine><bridge serial=\"S\" version_reply=\"AA 5G\"/></machine>", "version_reply"},
        {"<machine><bridge serial=\"S\" version_reply=\"100\"/></machine>", "version_reply"},
        {"<machine><bridge serial=\"S\" container=\"{1234}\"/></machine>", "container"},
        {"<machine><bridge serial=\"S\" usb_device=\"/devices/nowhere/1-9\"/></machine>", "/devices/nowhere/1-9"},
        {"<machine><endpoint flow=\"capture\" container=\"{5B2C7E41-9A3D-4C68-B1F0-2E8D6A4C9B37}\" "
         "usb_device=\"/devices/x\"/></machine>",
         "not both"},
        {"<machine><bridge serial=\"S\" pid=\"0x10000\"/></machine>", "pid"},
        {"<machine><bridge serial=\"S\" vendor=\"x\"/></machine>", "vendor"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.xml);
        ASSERT_TRUE(zqvm::LoadMachineDescriptionText(zqvm::DefaultMachineDescription()));
        std::string error;
        EXPECT_FALSE(zqvm::LoadMachineDescriptionText(c.xml, &error));
        EXPECT_NE(error.find(c.mention), std::string::npos) << error;
        EXPECT_TRUE(zqvm::EndpointIds().empty());
        DWORD bridges = 99;
        EXPECT_EQ(HidUart_GetNumDevices(&bridges, 0, 0), HID_UART_SUCCESS);
        EXPECT_EQ(bridges, 0u);
    }
    std::string error;
    EXPECT_FALSE(zqvm::LoadMachineDescription(Path("missing.xml"), &error));
    EXPECT_NE(error.find("missing.xml"), std::string::npos) << error;
}

}  // namespace
}  // namespace vaetest
