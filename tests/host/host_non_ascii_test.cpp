// zqmonitor with a microphone whose serial number is not ASCII (UTF-8 from its simulated
// bridge), run as a host runs it, without setting a locale: the summary and the log carry the
// serial as it is, and the microphone is paired and captured. Over hidraw: host_hidraw_test.cpp.
#include <gtest/gtest.h>

#include "host_process.h"

namespace zqhosttest {
namespace {

TEST(HostNonAscii, ASimulatedBridgesSerialReadsBackRightInTheSummaryAndTheLog) {
    const std::string serial = "KV1-ÜMLAUT-1";
    TestFolder folder;
    MachineSpec endpointSpec;
    endpointSpec.serial = serial;
    endpointSpec.microphoneName = "Mikrofon (KV-1 Süd) 🎤";
    const SummaryRun result = RunSummary(folder, MachineXml(endpointSpec), 1.0);
    ASSERT_SUMMARY(result);
    const JsonValue& mics = (*result.json)["microphones"];
    ASSERT_EQ(mics.size(), 1u) << result.run.out;
    EXPECT_EQ(mics[0]["serial"].String(), serial);
    EXPECT_EQ(mics[0]["friendly_name"].String(), "KV-1");
    EXPECT_EQ(mics[0]["endpoint_name"].String(), endpointSpec.microphoneName) << "paired";
    EXPECT_EQ((*result.json)["capture_devices"][0]["serial"].String(), serial) << result.run.out;
    EXPECT_NEAR((*result.json)["levels"]["capture_dbfs"].Number(), -6.0, 0.5) << "the paired endpoint was opened";
    const std::string log = ReadFile(folder.Path("zqmonitor.log"));
    EXPECT_NE(log.find("CoreAudio: KESTRAVON Mic [0]: SN: " + serial + ", Product: KV-1 USB Microphone"), std::string::npos)
        << log;
}

}  // namespace
}  // namespace zqhosttest
