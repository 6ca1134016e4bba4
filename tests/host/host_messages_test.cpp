// zqmonitor and the library's window messages: a microphone unplugged and plugged in again,
// the system mixer changing the speaker's volume, another default speaker.
#include <gtest/gtest.h>

#include "host_process.h"

namespace zqhosttest {
namespace {

#define ASSERT_SUMMARY(result)                                                                     \
    ASSERT_FALSE((result).run.timedOut) << "zqmonitor did not finish\n" << (result).run.err;       \
    ASSERT_EQ((result).run.exitCode, 0) << (result).run.err;                                       \
    ASSERT_TRUE((result).json.has_value()) << (result).parseError << "\n" << (result).run.out

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
    MachineSpec spec;
    spec.serial = "KV1-PLUG-0007";
    const SummaryRun result = RunSummary(folder, MachineXml(spec), 2.5, {"--unplug-at", "0.6", "--replug-at", "1.4"});
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
    const std::vector<JsonValue>& listings = summary["capture_counts"].Items();
    ASSERT_EQ(listings.size(), 3u) << result.run.out;
    EXPECT_EQ(listings[0]["cause"].String(), "init");
    EXPECT_EQ(listings[0]["capture_count"].Number(), 1);
    EXPECT_EQ(listings[1]["cause"].String(), "refresh");
    EXPECT_EQ(listings[1]["capture_count"].Number(), 0);
    EXPECT_EQ(listings[1]["microphone_count"].Number(), 0);
    EXPECT_GE(listings[1]["t"].Number(), device[0]["t"].Number());
    EXPECT_EQ(listings[2]["cause"].String(), "refresh");
    EXPECT_EQ(listings[2]["capture_count"].Number(), 1);
    EXPECT_GE(listings[2]["t"].Number(), device[1]["t"].Number());

    // At the end the microphone is listed again, with what its firmware says.
    const JsonValue& mics = summary["microphones"];
    ASSERT_EQ(mics.size(), 1u);
    EXPECT_EQ(mics[0]["serial"].String(), "KV1-PLUG-0007");
    EXPECT_EQ(mics[0]["fw"].Number(), 0x12);
    EXPECT_EQ(mics[0]["endpoint_name"].String(), spec.microphoneName);
    EXPECT_EQ(summary["capture_devices"].size(), 1u);
}

TEST(HostMessages, UnpluggedMicrophoneStaysAway) {
    TestFolder folder;
    const SummaryRun result = RunSummary(folder, MachineXml(MachineSpec()), 1.5, {"--unplug-at", "0.5"});
    ASSERT_SUMMARY(result);
    const JsonValue& summary = *result.json;
    EXPECT_EQ(summary["messages"]["WM_AUDIO_DEVICE_CHANGED"]["by_wparam"]["1"].Number(), 1) << result.run.out;
    EXPECT_FALSE(summary["messages"]["WM_AUDIO_DEVICE_CHANGED"]["by_wparam"].Has("0")) << result.run.out;
    EXPECT_EQ(summary["microphones"].size(), 0u);
    EXPECT_EQ(summary["capture_devices"].size(), 0u);
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

TEST(HostMessages, NewDefaultSpeakerRebuildsTheRenderSide) {
    TestFolder folder;
    MachineSpec spec;
    spec.renderNames = {"Speakers (First)", "Headphones (Second)"};
    const SummaryRun result = RunSummary(folder, MachineXml(spec), 1.5, {"--switch-render-at", "0.5"});
    ASSERT_SUMMARY(result);
    const JsonValue& summary = *result.json;
    // One message per role whose default changed; the host rebuilds once for those it has.
    EXPECT_EQ(summary["messages"]["WM_AUDIO_RENDER_CHANGED"]["by_wparam"]["0"].Number(), 3) << result.run.out;
    bool rebuilt = false;
    for (const JsonValue& l : summary["capture_counts"].Items()) rebuilt = rebuilt || l["cause"].String() == "rebuild-render";
    EXPECT_TRUE(rebuilt) << result.run.out;
    EXPECT_TRUE(summary["settings"]["started"].Bool());
    EXPECT_GT(summary["levels"]["render_dbfs"].Number(), -60.0);
}

}  // namespace
}  // namespace zqhosttest
