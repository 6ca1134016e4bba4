// zqmonitor --bridges hidraw on the virtual audio engine: the machine description's bridge takes
// no part, and the microphone whose bridge node is served through FUSE below a fake sysfs tree is
// listed, asked for its versions, named from config.xml and paired with the description's capture
// endpoint of its USB device (usb_device="<its sysfs path>").
#include <gtest/gtest.h>

#include "bridge_chip.h"
#include "fake_usb_sysfs.h"
#include "fuse_hidraw_folder.h"
#include "host_process.h"
#include "scoped_environment.h"

namespace zqhosttest {
namespace {

// A plain serial number and endpoint names, and ones that are not ASCII (sysfs and the machine
// description give them in UTF-8; the host sets no locale): read back as they are, from the
// hidraw node and the virtual engine, in the summary and the log, and paired all the same.
struct Names {
    const char* serial;
    const char* microphone;
    const char* speaker;
};
class HostHidraw : public ::testing::TestWithParam<Names> {};

TEST_P(HostHidraw, ListsTheMicrophoneBehindItsHidrawNodeInsteadOfTheDescriptionsBridge) {
    zqtest::FuseHidrawFolder nodes;
    ZQ_REQUIRE_FUSE(nodes);
    nodes.Add("hidraw0", std::make_shared<zqtest::BridgeChip>());
    TestFolder folder;
    zqtest::FakeUsbBridge bridge;
    bridge.port = 2;
    bridge.serial = GetParam().serial;
    zqtest::AddFakeUsbBridge(folder.Path("sys"), bridge);
    zqtest::ScopedEnvironment sysfsRoot("ZQ_SYSFS_ROOT", folder.Path("sys").c_str());
    zqtest::ScopedEnvironment devRoot("ZQ_DEV_ROOT", nodes.Path().c_str());

    MachineSpec endpointSpec;
    endpointSpec.serial = "KV1-SIMULATED";
    endpointSpec.usbDevice = "/devices/pci0000:00/0000:00:14.0/usb1/1-2";  // the sound card of the same device
    endpointSpec.microphoneName = GetParam().microphone;
    endpointSpec.renderName = GetParam().speaker;
    const std::string serial = GetParam().serial;
    const SummaryRun result = RunSummary(folder, MachineXml(endpointSpec), 1.0, {"--bridges", "hidraw"});
    ASSERT_SUMMARY(result);
    const JsonValue& mics = (*result.json)["microphones"];
    ASSERT_EQ(mics.size(), 1u) << result.run.out;
    EXPECT_EQ(mics[0]["serial"].String(), serial);
    EXPECT_EQ((*result.json)["capture_devices"][0]["serial"].String(), serial);
    EXPECT_EQ((*result.json)["capture_devices"][0]["name"].String(), endpointSpec.microphoneName);
    const JsonValue& speakers = (*result.json)["render_devices"];
    ASSERT_EQ(speakers.size(), 2u) << result.run.out;
    EXPECT_EQ(speakers[1].String(), endpointSpec.renderName);
    EXPECT_EQ(mics[0]["api"].Number(), 5);
    EXPECT_EQ(mics[0]["fw"].Number(), 0x12);
    EXPECT_EQ(mics[0]["friendly_name"].String(), "KV-1");
    EXPECT_EQ(mics[0]["endpoint_name"].String(), endpointSpec.microphoneName);
    EXPECT_NEAR((*result.json)["levels"]["capture_dbfs"].Number(), -6.0, 0.5) << "the paired endpoint was opened";
    const std::string log = ReadFile(folder.Path("zqmonitor.log"));
    EXPECT_NE(log.find("CoreAudio: KESTRAVON Mic [0]: SN: " + serial + ", Product: KV-1 USB Microphone"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("AudioRender: [0]: " + endpointSpec.renderName + "\n"), std::string::npos) << log;
}

INSTANTIATE_TEST_SUITE_P(Serials, HostHidraw,
                         ::testing::Values(Names{"KV1-HIDRAW-0007", "Microphone (KV-1 USB Microphone)", "Speakers (Virtual Audio)"},
                                           Names{"KV1-ÜMLAUT-1", "Mikrofon Süd", "Lautsprecher (Küche) 🎧"}),
                         [](const ::testing::TestParamInfo<Names>& param) {
                             return param.index == 0 ? std::string("Ascii") : std::string("NonAscii");
                         });

}  // namespace
}  // namespace zqhosttest
