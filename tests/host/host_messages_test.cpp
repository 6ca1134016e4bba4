// zqmonitor and the library's window messages: a microphone unplugged and plugged in again,
// the system mixer changing the speaker's volume, another default speaker.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "host_process.h"

namespace zqhosttest {
namespace {

// The messages of the log with that name, in the order the host received them.
std::vector<JsonValue> MessagesNamed(const JsonValue& summary, const std::string& name) {
    std::vector<JsonValue> found;
    for (const JsonValue& m : summary["message_log"].Items()) {
        if (m["message"].String() == name) found.push_back(m);
    }
    return found;
}

TEST(HostMessages, UnplugAndReplugTheMicrophone) {
    TestFolder folder;
    MachineSpec endpointSpec;
    endpointSpec.serial = "KV1-PLUG-0007";
    const SummaryRun result = RunSummary(folder, MachineXml(endpointSpec), 2.5, {"--unplug-at", "0.6", "--replug-at", "1.4"});
    ASSERT_SUMMARY(result);
    const JsonValue& summary = *result.json;
    for (const JsonValue& action : summary["actions"].Items()) {
        EXPECT_TRUE(action["ok"].Bool()) << action["action"].String() << ": " << action["text"].String();
    }

    // The removal (posted, wParam 1, the serial number in lParam), then the refreshed list
    // after the microphone came back (sent, wParam 0).
    const std::vector<JsonValue> device = MessagesNamed(summary, "WM_AUDIO_DEVICE_CHANGED");
    ASSERT_EQ(device.size(), 2u) << result.run.out;
    EXPECT_EQ(device[0]["wparam"].Number(), 1);
    EXPECT_EQ(device[0]["serial"].String(), "KV1-PLUG-0007");
    EXPECT_EQ(device[1]["wparam"].Number(), 0);
    EXPECT_GE(device[0]["t"].Number(), 0.6);
    EXPECT_GE(device[1]["t"].Number(), 1.4);

    // The host's listings: one capture device at the start, none after its Refresh on the
    // removal, one again after the Refresh on the arrival.
    const std::vector<JsonValue> listings = summary["capture_counts"].Items();
    std::vector<std::pair<std::string, double>> counts;
    for (const JsonValue& l : listings) counts.emplace_back(l["cause"].String(), l["capture_count"].Number());
    ASSERT_EQ(counts, (std::vector<std::pair<std::string, double>>{{"init", 1}, {"refresh", 0}, {"refresh", 1}}))
        << result.run.out;
    EXPECT_EQ(listings[1]["microphone_count"].Number(), 0);
    EXPECT_GE(listings[1]["t"].Number(), device[0]["t"].Number());
    EXPECT_GE(listings[2]["t"].Number(), device[1]["t"].Number());

    // At the end the microphone is listed again, with its strings, what its firmware says and the
    // name host/config.xml gives (5, 0x12, KV-1 USB Microphone), paired with its endpoint.
    const JsonValue& mics = summary["microphones"];
    ASSERT_EQ(mics.size(), 1u);
    EXPECT_EQ(mics[0]["serial"].String(), "KV1-PLUG-0007");
    EXPECT_EQ(mics[0]["product"].String(), "KV-1 USB Microphone");
    EXPECT_EQ(mics[0]["manufacturer"].String(), "KESTRAVON");
    EXPECT_EQ(mics[0]["api"].Number(), 5);
    EXPECT_EQ(mics[0]["fw"].Number(), 0x12);
    EXPECT_EQ(mics[0]["friendly_name"].String(), "KV-1");
    EXPECT_EQ(mics[0]["endpoint_name"].String(), endpointSpec.microphoneName);
    const JsonValue& capture = summary["capture_devices"];
    ASSERT_EQ(capture.size(), 1u);
    EXPECT_EQ(capture[0]["name"].String(), endpointSpec.microphoneName);
    EXPECT_EQ(capture[0]["serial"].String(), "KV1-PLUG-0007");
}

// With two microphones, --mic chooses which one is pulled: its bridge and its endpoint go, the
// other stays listed and is the one captured from after the Refresh.
TEST(HostMessages, UnplugsTheMicrophoneNamed) {
    TestFolder folder;
    const std::string machine = R"xml(<machine>
  <bridge product="KV-1 USB Microphone" serial="KV1-FIRST-0001" container="{5B2C7E41-9A3D-4C68-B1F0-2E8D6A4C9B37}"/>
  <bridge product="KV-1 USB Microphone" serial="KV1-SECOND-0002" container="{0D6F3A22-8B17-4E5C-A1D9-7C3B2E9F4A60}"/>
  <endpoint flow="capture" name="Microphone (first)" container="{5B2C7E41-9A3D-4C68-B1F0-2E8D6A4C9B37}"
            rate="48000" channels="1" format="int16" default="all">
    <source kind="tone" frequency="1000" level_dbfs="-6"/>
  </endpoint>
  <endpoint flow="capture" name="Microphone (second)" container="{0D6F3A22-8B17-4E5C-A1D9-7C3B2E9F4A60}"
            rate="48000" channels="1" format="int16">
    <source kind="tone" frequency="1000" level_dbfs="-6"/>
  </endpoint>
  <endpoint flow="render" name="Speakers (Virtual Audio)" rate="48000" channels="2" format="float32" default="all"/>
</machine>
)xml";
    const SummaryRun result = RunSummary(folder, machine, 1.5, {"--mic", "KV1-FIRST-0001", "--unplug-at", "0.5"});
    ASSERT_SUMMARY(result);
    const JsonValue& summary = *result.json;
    const std::vector<JsonValue> device = MessagesNamed(summary, "WM_AUDIO_DEVICE_CHANGED");
    ASSERT_EQ(device.size(), 1u) << result.run.out;
    EXPECT_EQ(device[0]["wparam"].Number(), 1);
    EXPECT_EQ(device[0]["serial"].String(), "KV1-FIRST-0001");
    const JsonValue& mics = summary["microphones"];
    ASSERT_EQ(mics.size(), 1u) << result.run.out;
    EXPECT_EQ(mics[0]["serial"].String(), "KV1-SECOND-0002");
    EXPECT_EQ(mics[0]["endpoint_name"].String(), "Microphone (second)");
    const JsonValue& capture = summary["capture_devices"];
    ASSERT_EQ(capture.size(), 1u);
    EXPECT_EQ(capture[0]["name"].String(), "Microphone (second)");
}

TEST(HostMessages, VolumeSetByTheSystemMixerIsShown) {
    TestFolder folder;
    const SummaryRun result = RunSummary(folder, MachineXml(MachineSpec()), 1.5, {"--volume-at", "0.5:0.25"});
    ASSERT_SUMMARY(result);
    const JsonValue& summary = *result.json;
    const std::vector<JsonValue> volume = MessagesNamed(summary, "WM_SESSION_VOLUME_CHANGED");
    ASSERT_FALSE(volume.empty()) << result.run.out;
    EXPECT_FLOAT_EQ(static_cast<float>(volume.back()["volume"].Number()), 0.25f);
    EXPECT_FALSE(volume.back()["mute"].Bool());
    EXPECT_FLOAT_EQ(static_cast<float>(summary["settings"]["render_volume"].Number()), 0.25f);
}

// A new default speaker, twice: one message per role whose default changed, and the host rebuilds
// the render side for each switch. Monitoring goes on in each new speaker's own mix format (to
// the 48 kHz float headset and back to the 44.1 kHz 16-bit speakers): what the speakers are given
// stays the microphone's tone (-6 dBFS at the microphone, the render session at half volume),
// with no frames queued in the old format played as the new one.
TEST(HostMessages, NewDefaultSpeakerOfAnotherFormatIsRebuiltAndGetsTheTone) {
    TestFolder folder;
    const std::string machine = R"xml(<machine>
  <bridge product="KV-1 USB Microphone" serial="KV1-2024-0001" container="{5B2C7E41-9A3D-4C68-B1F0-2E8D6A4C9B37}"/>
  <endpoint flow="capture" name="Microphone (KV-1 USB Microphone)" container="{5B2C7E41-9A3D-4C68-B1F0-2E8D6A4C9B37}"
            rate="48000" channels="1" format="int16" default="all">
    <source kind="tone" frequency="1000" level_dbfs="-6"/>
  </endpoint>
  <endpoint flow="render" name="Speakers (44.1 kHz)" rate="44100" channels="2" format="int16" default="all"/>
  <endpoint flow="render" name="Headset (48 kHz)" rate="48000" channels="2" format="float32"/>
</machine>
)xml";
    const SummaryRun result =
        RunSummary(folder, machine, 1.5, {"--switch-render-at", "0.5", "--switch-render-at", "1.0"});
    ASSERT_SUMMARY(result);
    const JsonValue& summary = *result.json;
    EXPECT_EQ(summary["messages"]["WM_AUDIO_RENDER_CHANGED"]["by_wparam"]["0"].Number(), 6) << result.run.out;
    size_t rebuilds = 0;
    for (const JsonValue& l : summary["capture_counts"].Items()) {
        if (l["cause"].String() == "rebuild-render") ++rebuilds;
    }
    EXPECT_GE(rebuilds, 2u) << result.run.out;
    EXPECT_TRUE(summary["settings"]["started"].Bool());
    EXPECT_GT(summary["levels"]["render_dbfs"].Number(), -60.0) << "nothing reached the speakers";
    EXPECT_LT(summary["levels"]["render_dbfs"].Number(), -6.0) << "the speakers were given more than the tone";
}

}  // namespace
}  // namespace zqhosttest
