// zqmonitor's non-interactive run: the levels and the spectrum it reads, and its command line
// (the devices it lists are checked with the unplugged microphone, host_messages_test.cpp).
#include <gtest/gtest.h>


#include "host_process.h"

namespace zqhosttest {
namespace {

constexpr double kBinHz = 48000.0 / 4096.0;  // the analyzer's bin spacing

class HostTone : public ::testing::TestWithParam<double> {};

TEST_P(HostTone, StrongestInputBinIsTheToneAndTheMeterItsLevel) {
    TestFolder folder;
    MachineSpec endpointSpec;
    endpointSpec.toneHz = GetParam();
    endpointSpec.toneDbfs = -6.0;
    const SummaryRun result = RunSummary(folder, MachineXml(endpointSpec), 1.5);
    ASSERT_SUMMARY(result);
    const JsonValue& input = (*result.json)["spectrum"]["input"];
    ASSERT_FALSE(input["hz"].IsNull()) << "the input spectrum is silent\n" << result.run.out;
    EXPECT_NEAR(input["hz"].Number(), endpointSpec.toneHz, kBinHz) << result.run.out;
    EXPECT_NEAR(input["bin"].Number(), endpointSpec.toneHz / kBinHz, 1.0);
    // The capture meter's peak of a -6 dBFS tone, and streams that ran.
    EXPECT_NEAR((*result.json)["levels"]["capture_dbfs"].Number(), -6.0, 0.5) << result.run.out;
    EXPECT_GT((*result.json)["levels"]["render_dbfs"].Number(), -60.0) << "nothing reached the speaker";
    EXPECT_TRUE((*result.json)["settings"]["started"].Bool());
}

// Tones with a whole number of cycles in each 10 ms packet.
INSTANTIATE_TEST_SUITE_P(Tones, HostTone, ::testing::Values(1000.0, 5000.0));

TEST(HostCommandLine, RefusesWhatItCannotDo) {
    EXPECT_EQ(RunHost({"--bogus"}).exitCode, 2);
    EXPECT_EQ(RunHost({"--json"}).exitCode, 2) << "--json without --seconds";
    EXPECT_EQ(RunHost({"--seconds", "-1"}).exitCode, 2);
    EXPECT_EQ(RunHost({"--seconds", "1", "--volume-at", "0.5:2"}).exitCode, 2) << "a volume above 1";
    EXPECT_EQ(RunHost({"--seconds", "1", "--bridges", "usb"}).exitCode, 2) << "simulated or hidraw only";
    // Without a terminal and without --seconds there is nothing to show.
    EXPECT_EQ(RunHost({}).exitCode, 1);
    TestFolder folder;
    const HostRun missing = RunHost({"--machine", folder.Path("absent.xml"), "--seconds", "1"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("absent.xml"), std::string::npos) << missing.err;
    // A machine description the platform refuses ends the run before any summary.
    const std::string path = folder.Write("bad.xml", "<machine><endpoint flow=\"sideways\"/></machine>");
    const HostRun run = RunHost({"--machine", path, "--seconds", "1", "--json", "--log", folder.Path("log")});
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_TRUE(run.out.empty()) << run.out;
    // So does an --input that is no sound file.
    const std::string input = folder.Write("input.wav", "not a wav file");
    const SummaryRun unreadable = RunSummary(folder, MachineXml(MachineSpec()), 1.0, {"--input", input});
    EXPECT_EQ(unreadable.run.exitCode, 1) << unreadable.run.err;
    EXPECT_FALSE(unreadable.json.has_value());
}

}  // namespace
}  // namespace zqhosttest
