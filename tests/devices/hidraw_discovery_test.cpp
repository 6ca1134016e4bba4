// The maker's microphones on this machine through hidraw, against a sysfs tree of plain folders
// laid out as Linux lays out a USB HID interface: the listing, the strings, the container values
// published for pairing, and discovery through the core.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <cstring>
#include <future>
#include <map>
#include <mutex>
#include <thread>

#include "../../platform/src/usb/usb_container.h"
#include "bridge_chip.h"
#include "fake_usb_sysfs.h"
#include "fuse_hidraw_folder.h"
#include "microphone_machine.h"
#include "scoped_environment.h"
#include "scoped_locale.h"
#include "zqplatform/vm/call_faults.h"
#include "zqplatform/vm/hidraw_device.h"
#include "zqplatform/vm/registry.h"

namespace fs = std::filesystem;

namespace {

using zqtest::MicrophoneMachineTest;

constexpr char kUsbRoot[] = "devices/pci0000:00/0000:00:14.0/usb1";
const std::wstring kInstanceKeys = L"SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_10C4&PID_EAB0\\";

class HidrawBridges : public MicrophoneMachineTest {
protected:
    void SetUp() override {
        MicrophoneMachineTest::SetUp();
        std::string error;
        ASSERT_TRUE(zqvm::SelectBridgeBackend("hidraw", &error)) << error;
    }
    void TearDown() override {
        std::string error;
        EXPECT_TRUE(zqvm::SelectBridgeBackend("simulated", &error)) << error;
        MicrophoneMachineTest::TearDown();
    }

    // hidraw<node> of the bridge's HID interface of the USB device at port `port`, with its class
    // link; the USB device's attribute files as given (an empty text leaves the file out).
    fs::path AddNode(int node, int port, const char* vendor, const char* product, const char* serial,
                     const char* productString = "KV-1 USB Microphone") {
        return zqtest::AddFakeUsbBridge(Sys(), {port, node, vendor, product, serial, "KESTRAVON", productString});
    }
    fs::path ClassLink(int node) const { return zqtest::HidrawClassLink(Sys(), node); }
    fs::path Sys() const { return sysfs.Path(); }

    static std::string String(DWORD device, DWORD option, int* status) {
        char text[HID_UART_DEVICE_STRLEN + 1] = {};
        *status = HidUart_GetString(device, 0x10C4, 0xEAB0, text, option);
        return text;
    }
    // The "ContainerID" under the bridge's instance key, read as discovery reads it; GUID_NULL
    // when there is none.
    static GUID ContainerValue(const std::wstring& serial) {
        DWORD type = 0;
        std::vector<uint8_t> data;
        if (!zqvm::RegistryGetValue(HKEY_LOCAL_MACHINE, kInstanceKeys + serial, L"ContainerID", type, data) ||
            type != REG_SZ) {
            return GUID_NULL;
        }
        return Str2Guid(CStringW(reinterpret_cast<const wchar_t*>(data.data())));
    }

    zqtest::ScratchFolder sysfs;
    zqtest::ScratchFolder dev;
    zqtest::ScopedEnvironment sysfsRoot{"ZQ_SYSFS_ROOT", sysfs.Path().c_str()};
    zqtest::ScopedEnvironment devRoot{"ZQ_DEV_ROOT", dev.Path().c_str()};
};

// The listing also publishes the container of each USB device under its instance key, for
// pairing, and withdraws the containers of the devices gone.
TEST_F(HidrawBridges, TheMakersNodesInNodeOrderWithTheirUsbDevicesStringsAndContainers) {
    const fs::path port5 = AddNode(4, 5, "10c4", "eab0", "KV1-PORT5");
    const fs::path port3 = AddNode(1, 3, "10c4", "eab0", "KV1-PORT3");
    AddNode(0, 7, "046d", "c52b", "OTHER-VENDOR");
    AddNode(2, 8, "10c4", "eab0", "KV1-NOPRODUCT", "");
    AddNode(5, 9, "10c4", "eab0", "");  // no serial: no key can name it

    DWORD count = 0;
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 4u);
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0, 0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 5u);  // 0 lists every vendor and product

    int status = -1;
    EXPECT_EQ(String(0, HID_UART_GET_SERIAL_STR, &status), "KV1-PORT3");  // hidraw1 before hidraw2 and hidraw4
    EXPECT_EQ(String(2, HID_UART_GET_SERIAL_STR, &status), "KV1-PORT5");
    EXPECT_EQ(status, HID_UART_SUCCESS);
    EXPECT_EQ(String(2, HID_UART_GET_MANUFACTURER_STR, &status), "KESTRAVON");
    EXPECT_EQ(String(2, HID_UART_GET_PRODUCT_STR, &status), "KV-1 USB Microphone");
    EXPECT_EQ(String(2, HID_UART_GET_VID_STR, &status), "10C4");
    EXPECT_EQ(String(2, HID_UART_GET_PATH_STR, &status), (dev.Path() / "hidraw4").string());
    String(1, HID_UART_GET_PRODUCT_STR, &status);
    EXPECT_EQ(status, HID_UART_DEVICE_ACCESS_ERROR) << "a missing attribute file";
    String(4, HID_UART_GET_SERIAL_STR, &status);
    EXPECT_EQ(status, HID_UART_DEVICE_NOT_FOUND);
    const GUID container3 = zqplatform::usb::ContainerIdOfUsbFolder(port3.string());
    EXPECT_NE(container3, GUID_NULL);
    EXPECT_EQ(ContainerValue(L"KV1-PORT3"), container3);
    EXPECT_EQ(ContainerValue(L"KV1-PORT5"), zqplatform::usb::ContainerIdOfUsbFolder(port5.string()));

    // Unplugged: its class link goes, it is no longer counted, and its container is withdrawn.
    fs::remove(ClassLink(1));
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(String(0, HID_UART_GET_SERIAL_STR, &status), "KV1-NOPRODUCT");
    EXPECT_EQ(ContainerValue(L"KV1-PORT3"), GUID_NULL);
    EXPECT_NE(ContainerValue(L"KV1-PORT5"), GUID_NULL);
}

// The bridge library's front end serves hidraw as it serves the simulated bridges: an armed
// failure is taken before anything is listed, arguments are checked before the backend is asked,
// and every call goes into the call log.
TEST_F(HidrawBridges, CallsAreFailedCheckedAndLoggedAsForTheSimulatedBridges) {
    AddNode(1, 3, "10c4", "eab0", "KV1-LOGGED");
    zqvm::ClearBridgeCalls();
    ASSERT_TRUE(zqvm::FailCall("HidUart_GetNumDevices", 0, HID_UART_DEVICE_IO_FAILED));
    DWORD count = 7;
    EXPECT_EQ(HidUart_GetNumDevices(&count, 0x10C4, 0xEAB0), HID_UART_DEVICE_IO_FAILED);
    EXPECT_EQ(count, 7u) << "nothing was listed";
    EXPECT_EQ(HidUart_GetNumDevices(&count, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 1u);
    char text[HID_UART_DEVICE_STRLEN] = {};
    EXPECT_EQ(HidUart_GetString(0, 0x10C4, 0xEAB0, text, 0x77), HID_UART_INVALID_PARAMETER);
    EXPECT_EQ(HidUart_Open(nullptr, 0, 0x10C4, 0xEAB0), HID_UART_INVALID_PARAMETER);
    EXPECT_EQ(zqvm::BridgeCalls(), (std::vector<std::string>{"HidUart_GetNumDevices(injected) -> 0x14",
                                                              "HidUart_GetNumDevices(4292, 60080) -> 0x00",
                                                              "HidUart_GetString(0, 4292, 60080, 119) -> 0x04",
                                                              "HidUart_Open(0, 4292, 60080) -> 0x04"}));
}

// A node in the process, in place of the kernel's, in front of a chip. Wait does not sleep: it
// counts the time-outs it was asked to wait out, as the simulated bridges' instant timing does.
struct WaitLog {
    std::mutex mutex;
    int timeOuts = 0;
    int longestWaitMs = 0;
};

class InProcessNode final : public zqvm::HidrawDevice {
public:
    InProcessNode(std::shared_ptr<zqtest::BridgeChip> chip, std::shared_ptr<WaitLog> waits)
        : m_chip(std::move(chip)), m_waits(std::move(waits)) {}
    bool Info(uint16_t* vendor, uint16_t* product) override { return m_chip->Ids(vendor, product); }
    bool GetFeature(uint8_t* report, size_t size) override { return m_chip->GetFeature(report, size); }
    bool SetFeature(const uint8_t* report, size_t size) override { return m_chip->SetFeature(report, size); }
    bool Write(const uint8_t* report, size_t size) override { return m_chip->Write(report, size); }
    long Read(uint8_t* report, size_t size) override { return m_chip->Read(report, size); }
    Ready Wait(int timeoutMs) override {
        if (m_chip->Gone()) return Ready::Gone;
        if (m_chip->HasInput()) return Ready::Readable;
        std::lock_guard<std::mutex> lock(m_waits->mutex);
        ++m_waits->timeOuts;
        m_waits->longestWaitMs = std::max(m_waits->longestWaitMs, timeoutMs);
        return Ready::TimedOut;
    }

private:
    std::shared_ptr<zqtest::BridgeChip> m_chip;
    std::shared_ptr<WaitLog> m_waits;
};

// The same chips behind the in-process node and behind the kernel's node code on a FUSE file.
enum class NodeKind { InProcess, Fuse };

class HidrawUart : public HidrawBridges, public ::testing::WithParamInterface<NodeKind> {
protected:
    void SetUp() override {
        HidrawBridges::SetUp();
        if (GetParam() == NodeKind::Fuse) {
            fuse = std::make_unique<zqtest::FuseHidrawFolder>();
            ZQ_REQUIRE_FUSE(*fuse);
            fuseDevRoot = std::make_unique<zqtest::ScopedEnvironment>("ZQ_DEV_ROOT", fuse->Path().c_str());
            return;
        }
        zqvm::SetHidrawOpenerForTest([this](const std::string& path, std::string* why) -> std::unique_ptr<zqvm::HidrawDevice> {
            const std::string name = fs::path(path).filename().string();
            std::lock_guard<std::mutex> lock(nodesMutex);
            const auto found = chips.find(name);
            if (found == chips.end()) {
                *why = "No such file or directory";
                return nullptr;
            }
            return std::make_unique<InProcessNode>(found->second, waits[name]);
        });
    }
    void TearDown() override {
        zqvm::SetHidrawOpenerForTest(nullptr);
        HidrawBridges::TearDown();  // the core goes first: it may hold a node open
        fuseDevRoot.reset();
        fuse.reset();
    }
    fs::path DevFolder() const { return fuse ? fuse->Path() : dev.Path(); }
    // A microphone at USB port `port` behind node hidraw<node>, and a capture endpoint of its USB
    // device's container.
    std::shared_ptr<zqtest::BridgeChip> AddMicrophone(int node, int port, const char* serial,
                                                      const char* productString = "KV-1 USB Microphone") {
        const fs::path usb = AddNode(node, port, "10c4", "eab0", serial, productString);
        zqvm::EndpointSpec card;
        card.flow = eCapture;
        card.name = L"Microphone (" + zqtest::Wide(serial) + L")";  // sysfs strings are UTF-8
        card.container = zqplatform::usb::ContainerIdOfUsbFolder(usb.string());
        EXPECT_FALSE(zqvm::AddEndpoint(card).empty());
        auto chip = std::make_shared<zqtest::BridgeChip>();
        const std::string name = "hidraw" + std::to_string(node);
        if (fuse) {
            fuse->Add(name, chip);
        } else {
            std::lock_guard<std::mutex> lock(nodesMutex);
            chips[name] = chip;
            waits[name] = std::make_shared<WaitLog>();
        }
        return chip;
    }
    CWMAudioDevice* Listed(const wchar_t* serial) {
        for (size_t i = 0; i < core->GetHidCaptureDeviceCount(); ++i) {
            if (core->GetHidCaptureDevice(i)->GetSN() == CStringW(serial)) return core->GetHidCaptureDevice(i);
        }
        return nullptr;
    }
    bool Told(const std::wstring& line) {
        const auto told = debugOutput.Texts();
        return std::find(told.begin(), told.end(), line + L"\n") != told.end();
    }

    std::unique_ptr<zqtest::FuseHidrawFolder> fuse;
    std::unique_ptr<zqtest::ScopedEnvironment> fuseDevRoot;
    std::mutex nodesMutex;
    std::map<std::string, std::shared_ptr<zqtest::BridgeChip>> chips;  // the in-process nodes
    std::map<std::string, std::shared_ptr<WaitLog>> waits;
};

TEST_P(HidrawUart, DiscoveryAsksEachMicrophoneForItsVersionsAtItsUartSettingsAndNamesIt) {
    const auto answering = AddMicrophone(0, 3, "KV1-ANSWERS");
    const auto silent = AddMicrophone(1, 4, "KV1-SILENT");
    silent->SetReply({});
    const auto unknownPart = AddMicrophone(2, 5, "KV1-OTHERCHIP");
    unknownPart->SetPart(0x0F);
    AddNode(3, 6, "10c4", "eab0", "KV1-NONODE");  // listed in sysfs, no node to open
    core->Init(window->Handle());

    CWMAudioDevice* record = Listed(L"KV1-ANSWERS");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->GetVerAPI(), 0x05);
    EXPECT_EQ(record->GetVerFW(), 0x12);
    EXPECT_EQ(record->GetFriendlyName(), CStringW(L"KV-1 Studio"));
    EXPECT_EQ(record->GetName(), CStringW(L"Microphone (KV1-ANSWERS)")) << "paired with its card";
    EXPECT_TRUE(answering->Enabled());
    EXPECT_GE(answering->Purges(), 1);
    EXPECT_EQ(answering->Config(), (std::vector<uint8_t>{0x50, 0x00, 0x00, 0xE1, 0x00, 0x00, 0x00, 0x03, 0x00}))
        << "57600 baud, no parity, no flow control, 8 data bits, 1 stop bit";

    // The others stay listed, with versions 0: the silent one after one read time-out.
    for (const wchar_t* serial : {L"KV1-SILENT", L"KV1-OTHERCHIP", L"KV1-NONODE"}) {
        SCOPED_TRACE(std::wstring(serial));
        ASSERT_NE(Listed(serial), nullptr);
        EXPECT_EQ(Listed(serial)->GetVerFW(), 0);
    }
    if (!fuse) {
        const WaitLog& silentWaits = *waits["hidraw1"];
        EXPECT_EQ(silentWaits.timeOuts, 1);
        EXPECT_GT(silentWaits.longestWaitMs, 0);
        EXPECT_LE(silentWaits.longestWaitMs, 150) << "the read time-out discovery sets";
    }
    EXPECT_EQ(unknownPart->Config(), std::vector<uint8_t>()) << "a chip of another part is not configured";
    EXPECT_TRUE(Told(L"hidraw: " + (DevFolder() / "hidraw3").wstring() + L": cannot be opened: No such file or directory"));
}

TEST_P(HidrawUart, AReplyInMalformedReportsIsDroppedAndToldAndANodeGoneMidReadFailsTheRead) {
    AddMicrophone(0, 3, "KV1-MALFORMED")->SetMalformedReplies(true);
    const auto going = AddMicrophone(1, 4, "KV1-GONE");
    core->Init(window->Handle());
    ASSERT_NE(Listed(L"KV1-MALFORMED"), nullptr);
    EXPECT_EQ(Listed(L"KV1-MALFORMED")->GetVerFW(), 0);
    EXPECT_TRUE(Told(L"hidraw: " + (DevFolder() / "hidraw0").wstring() +
                     L": dropped 2 input report(s) that carried no UART data"));

    // Straight through the bridge library: unplugged while a read waits for the reply. Through
    // the kernel's node the read is woken by the unplug, long before its time-out.
    HID_UART_DEVICE device = nullptr;
    ASSERT_EQ(HidUart_Open(&device, 1, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    ASSERT_EQ(HidUart_SetTimeouts(device, 30000, 1000), HID_UART_SUCCESS);
    BYTE buffer[16];
    DWORD read = 7;
    std::future<HID_UART_STATUS> reading;
    if (fuse) {
        reading = std::async(std::launch::async, [&] { return HidUart_Read(device, buffer, sizeof(buffer), &read); });
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (fuse->WaitingPolls() == 0 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
        ASSERT_EQ(fuse->WaitingPolls(), 1) << "the read never waited in poll";
        going->Unplug();
        fuse->Remove("hidraw1");
        ASSERT_EQ(reading.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "poll was not woken";
    } else {
        going->Unplug();
        reading = std::async(std::launch::deferred, [&] { return HidUart_Read(device, buffer, sizeof(buffer), &read); });
    }
    EXPECT_EQ(reading.get(), HID_UART_DEVICE_IO_FAILED);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(HidUart_Close(device), HID_UART_SUCCESS);
    EXPECT_EQ(HidUart_Close(device), HID_UART_INVALID_DEVICE_OBJECT);
}

TEST_P(HidrawUart, ANodeThatNowAnswersForAnotherDeviceIsNotOpened) {
    // Node numbers are reused: sysfs still lists the bridge, the node is a keyboard's by now.
    AddMicrophone(0, 3, "KV1-RENUMBERED")->SetIds(0x046D, 0xC31C);
    HID_UART_DEVICE device = nullptr;
    EXPECT_EQ(HidUart_Open(&device, 0, 0x10C4, 0xEAB0), HID_UART_DEVICE_NOT_FOUND);
    EXPECT_TRUE(Told(L"hidraw: " + (DevFolder() / "hidraw0").wstring() + L": is no longer the device that was listed"));
}

// sysfs gives the USB strings in UTF-8: read so in any locale, the serial naming the instance key
// its container is published under, so that the microphone pairs with its card.
TEST_P(HidrawUart, ANonAsciiMicrophoneIsListedNamedAndPairedInEitherLocale) {
    folder.Write("config.xml", R"(<config>
  <product device_name="KV-1 Mikrofon Süd" friendly_name="KV-1 Grüß 🎤" api="5" fw="0x12" editor="kv1edit"/>
</config>)");
    AddMicrophone(0, 3, "KV1-ÜMLAUT-1", "KV-1 Mikrofon Süd");
    for (const char* name : zqtest::kHostLocales) {
        SCOPED_TRACE(name);
        const zqtest::ScopedLocale locale(name);
        if (!locale.Set()) GTEST_SKIP() << "this system has no locale " << name;  // "C" is always there
        recorder->Clear();
        core->Init(window->Handle());
        CWMAudioDevice* record = Listed(L"KV1-ÜMLAUT-1");
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->GetProduct(), CStringW(L"KV-1 Mikrofon Süd"));
        EXPECT_EQ(record->GetFriendlyName(), CStringW(L"KV-1 Grüß 🎤")) << "named from config.xml";
        EXPECT_EQ(record->GetName(), CStringW(L"Microphone (KV1-ÜMLAUT-1)")) << "paired with its card";
        ASSERT_EQ(core->GetCaptureDeviceCount(), 1u);
        EXPECT_EQ(core->GetCaptureDevice(0)->GetSN(), CStringW(L"KV1-ÜMLAUT-1"));
        EXPECT_NE(core->GetCaptureDevice(0)->GetDevice(), nullptr);
        EXPECT_TRUE(recorder->Contains(L"CoreAudio: KESTRAVON Mic [0]: SN: KV1-ÜMLAUT-1, Product: KV-1 Mikrofon Süd, "
                                       L"Manufacturer: KESTRAVON, FriendlyName: KV-1 Grüß 🎤, API:5, FW:12"));
        core->Shutdown();
    }
}

// A handle names the backend that opened it: choosing the other backend meanwhile sends none of
// its calls there, and the two backends' handles are never the same value.
TEST_P(HidrawUart, AHandleReachesOnlyTheBackendThatOpenedIt) {
    const auto chip = AddMicrophone(0, 3, "KV1-HIDRAW");
    std::string error;
    ASSERT_TRUE(zqvm::SelectBridgeBackend("simulated", &error)) << error;
    zqvm::BridgeDescription simulated;
    simulated.product = "KV-1 USB";
    simulated.serial = "KV1-SIMULATED";
    const zqvm::BridgeId id = zqvm::AddBridge(simulated);
    HID_UART_DEVICE fromSimulated = nullptr;
    ASSERT_EQ(HidUart_Open(&fromSimulated, 0, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    ASSERT_TRUE(zqvm::SelectBridgeBackend("hidraw", &error)) << error;
    HID_UART_DEVICE fromHidraw = nullptr;
    ASSERT_EQ(HidUart_Open(&fromHidraw, 0, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    EXPECT_NE(fromSimulated, fromHidraw);
    EXPECT_EQ(zqvm::BridgeOpenHandleCount(), 2u);

    // With hidraw chosen, the simulated handle still drives the simulated bridge.
    ASSERT_EQ(HidUart_SetUartConfig(fromSimulated, 9600, HID_UART_SEVEN_DATA_BITS, HID_UART_NO_PARITY,
                                    HID_UART_SHORT_STOP_BIT, HID_UART_NO_FLOW_CONTROL),
              HID_UART_SUCCESS);
    EXPECT_EQ(zqvm::GetBridgeState(id)->baudRate, 9600u);
    EXPECT_TRUE(chip->Config().empty()) << "the chip was configured through the other backend's handle";
    ASSERT_EQ(HidUart_SetTimeouts(fromSimulated, 11, 22), HID_UART_SUCCESS);
    DWORD readMs = 0;
    DWORD writeMs = 0;
    ASSERT_EQ(HidUart_GetTimeouts(fromHidraw, &readMs, &writeMs), HID_UART_SUCCESS);
    EXPECT_NE(readMs, 11u);

    // With the simulated bridges chosen again, the hidraw handle still drives the chip.
    ASSERT_TRUE(zqvm::SelectBridgeBackend("simulated", &error)) << error;
    EXPECT_EQ(HidUart_SetUartConfig(fromHidraw, 100, HID_UART_EIGHT_DATA_BITS, HID_UART_NO_PARITY,
                                    HID_UART_SHORT_STOP_BIT, HID_UART_NO_FLOW_CONTROL),
              HID_UART_INVALID_PARAMETER)
        << "the same argument checks for either backend";
    EXPECT_TRUE(chip->Config().empty());
    ASSERT_EQ(HidUart_SetUartConfig(fromHidraw, 57600, HID_UART_EIGHT_DATA_BITS, HID_UART_NO_PARITY,
                                    HID_UART_SHORT_STOP_BIT, HID_UART_NO_FLOW_CONTROL),
              HID_UART_SUCCESS);
    EXPECT_EQ(chip->Config().size(), 9u);
    EXPECT_EQ(zqvm::GetBridgeState(id)->baudRate, 9600u);
    ASSERT_EQ(HidUart_GetTimeouts(fromSimulated, &readMs, &writeMs), HID_UART_SUCCESS);
    EXPECT_EQ(readMs, 11u);
    EXPECT_EQ(writeMs, 22u);

    EXPECT_EQ(HidUart_Close(fromHidraw), HID_UART_SUCCESS);
    EXPECT_TRUE(zqvm::GetBridgeState(id)->open) << "closing the hidraw handle closed the simulated bridge";
    EXPECT_EQ(HidUart_Close(fromSimulated), HID_UART_SUCCESS);
    EXPECT_EQ(zqvm::GetBridgeState(id)->closes, 1);
    EXPECT_EQ(zqvm::BridgeOpenHandleCount(), 0u);
    ASSERT_TRUE(zqvm::SelectBridgeBackend("hidraw", &error)) << error;
}

INSTANTIATE_TEST_SUITE_P(Nodes, HidrawUart, ::testing::Values(NodeKind::InProcess, NodeKind::Fuse),
                         [](const ::testing::TestParamInfo<NodeKind>& kind) {
                             return kind.param == NodeKind::InProcess ? "InProcess" : "ThroughTheKernel";
                         });

}  // namespace
