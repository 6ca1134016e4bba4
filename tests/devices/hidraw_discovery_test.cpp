// The maker's microphones on this machine through hidraw, against a sysfs tree of plain folders
// laid out as Linux lays out a USB HID interface: the listing, the strings, the container values
// published for pairing, and discovery through the core.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>

#include "microphone_machine.h"
#include "scoped_environment.h"
#include "zqplatform/vm/hidraw_device.h"
#include "zqplatform/vm/registry.h"

namespace fs = std::filesystem;

namespace zqplatform::usb {
GUID ContainerIdOfUsbFolder(const std::string& folder);  // exported for the platform's tests
}

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

    // hidrawN of a HID interface of the USB device at port `port`, with its class link; the USB
    // device's attribute files as given (an empty text leaves the file out).
    fs::path AddNode(int node, int port, const char* vendor, const char* product, const char* serial,
                     const char* productString = "KV-1 USB Microphone") {
        const fs::path usb = Sys() / kUsbRoot / ("1-" + std::to_string(port));
        const std::pair<const char*, const char*> files[] = {{"idVendor", vendor},        {"idProduct", product},
                                                             {"serial", serial},          {"manufacturer", "KESTRAVON"},
                                                             {"product", productString}};
        for (const auto& [name, text] : files) {
            if (text[0] != '\0') Write(usb / name, std::string(text) + "\n");
        }
        const std::string hidName = "0003:" + Upper(vendor) + ":" + Upper(product) + ".000" + std::to_string(node);
        const fs::path hid = usb / ("1-" + std::to_string(port) + ":1.0") / hidName;
        Write(hid / "uevent", "DRIVER=hid-generic\nHID_ID=0003:0000" + Upper(vendor) + ":0000" + Upper(product) + "\n");
        const fs::path nodeFolder = hid / "hidraw" / ("hidraw" + std::to_string(node));
        Write(nodeFolder / "uevent", "MAJOR=240\nMINOR=" + std::to_string(node) + "\n");
        fs::create_directories(Sys() / "class" / "hidraw");
        fs::create_directory_symlink(fs::relative(nodeFolder, Sys() / "class" / "hidraw"), ClassLink(node));
        return usb;
    }
    fs::path ClassLink(int node) const { return Sys() / "class" / "hidraw" / ("hidraw" + std::to_string(node)); }
    fs::path Sys() const { return sysfs.Path(); }

    static std::string Upper(std::string text) {
        for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return text;
    }
    static void Write(const fs::path& file, const std::string& text) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }
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

TEST_F(HidrawBridges, TheMakersNodesInNodeOrderWithTheirUsbDevicesStrings) {
    AddNode(4, 5, "10c4", "eab0", "KV1-PORT5");
    AddNode(1, 3, "10c4", "eab0", "KV1-PORT3");
    AddNode(0, 7, "046d", "c52b", "OTHER-VENDOR");
    AddNode(2, 8, "10c4", "eab0", "KV1-NOPRODUCT", "");

    DWORD count = 0;
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 3u);
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0, 0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 4u);  // 0 lists every vendor and product

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
    String(3, HID_UART_GET_SERIAL_STR, &status);
    EXPECT_EQ(status, HID_UART_DEVICE_NOT_FOUND);

    // Unplugged: its class link goes, and it is no longer counted.
    fs::remove(ClassLink(1));
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(String(0, HID_UART_GET_SERIAL_STR, &status), "KV1-NOPRODUCT");
}

TEST_F(HidrawBridges, EachListingPublishesTheContainersOfItsUsbDevicesAndWithdrawsTheGoneOnes) {
    const fs::path port3 = AddNode(1, 3, "10c4", "eab0", "KV1-PORT3");
    const fs::path port5 = AddNode(4, 5, "10c4", "eab0", "KV1-PORT5");
    AddNode(2, 8, "10c4", "eab0", "");  // no serial: no key can name it
    DWORD count = 0;
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    ASSERT_EQ(count, 3u);
    const GUID container3 = zqplatform::usb::ContainerIdOfUsbFolder(port3.string());
    EXPECT_NE(container3, GUID_NULL);
    EXPECT_EQ(ContainerValue(L"KV1-PORT3"), container3);
    EXPECT_EQ(ContainerValue(L"KV1-PORT5"), zqplatform::usb::ContainerIdOfUsbFolder(port5.string()));

    fs::remove(ClassLink(1));
    ASSERT_EQ(HidUart_GetNumDevices(&count, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    EXPECT_EQ(ContainerValue(L"KV1-PORT3"), GUID_NULL) << "withdrawn with its bridge";
    EXPECT_NE(ContainerValue(L"KV1-PORT5"), GUID_NULL);
}

// The maker's bridge behind a node as the kernel would hand it over: feature reports, one report
// per read and write, the microphone's firmware behind the UART. Wait does not sleep: it counts
// the time-outs it was asked to wait out, as the simulated bridges' instant timing does.
struct FakeBridge {
    std::mutex mutex;
    uint8_t part = 0x0A;
    bool enabled = false;
    int purges = 0;
    std::vector<uint8_t> config;                   // the last UART configuration report
    std::vector<uint8_t> reply = {0xAA, 0x05, 0x12};  // the firmware's answer to 0x03; empty: silent
    bool malformed = false;  // the answer comes in reports that carry no UART data
    bool gone = false;       // unplugged while the node is open
    std::deque<std::vector<uint8_t>> input;
    int timeOuts = 0;      // waits that ran into their time-out
    int longestWaitMs = 0;
};

class FakeNode final : public zqvm::HidrawDevice {
public:
    explicit FakeNode(std::shared_ptr<FakeBridge> bridge) : m_bridge(std::move(bridge)) {}
    bool GetFeature(uint8_t* report, size_t size) override {
        std::lock_guard<std::mutex> lock(m_bridge->mutex);
        if (m_bridge->gone || report[0] != 0x46 || size < 3) return false;
        report[1] = m_bridge->part;
        report[2] = 1;
        return true;
    }
    bool SetFeature(const uint8_t* report, size_t size) override {
        std::lock_guard<std::mutex> lock(m_bridge->mutex);
        if (m_bridge->gone) return false;
        if (report[0] == 0x41 && size == 2) m_bridge->enabled = report[1] == 1;
        else if (report[0] == 0x43 && size == 2) ++m_bridge->purges;
        else if (report[0] == 0x50 && size == 9) m_bridge->config.assign(report, report + size);
        else return false;
        return true;
    }
    bool Write(const uint8_t* report, size_t size) override {
        std::lock_guard<std::mutex> lock(m_bridge->mutex);
        if (m_bridge->gone || size < 1 || report[0] + 1u != size) return false;
        // The firmware makes out the query only at 57600 8N1 without flow control.
        const std::vector<uint8_t> understood = {0x50, 0x00, 0x00, 0xE1, 0x00, 0x00, 0x00, 0x03, 0x00};
        for (size_t i = 1; i < size; ++i) {
            if (report[i] != 0x03 || !m_bridge->enabled || m_bridge->config != understood || m_bridge->reply.empty()) {
                continue;
            }
            const std::vector<uint8_t>& r = m_bridge->reply;
            if (m_bridge->malformed) {
                m_bridge->input.push_back({0x00, r[0], r[1], r[2]});    // report id 0
                m_bridge->input.push_back({0x09, r[0]});                // longer than the report
            } else {
                m_bridge->input.push_back({static_cast<uint8_t>(1), r[0]});  // split over two reports
                m_bridge->input.push_back({static_cast<uint8_t>(r.size() - 1), r[1], r[2]});
            }
        }
        return true;
    }
    long Read(uint8_t* report, size_t size) override {
        std::lock_guard<std::mutex> lock(m_bridge->mutex);
        if (m_bridge->gone) return -1;
        if (m_bridge->input.empty()) return 0;
        const std::vector<uint8_t> next = std::move(m_bridge->input.front());
        m_bridge->input.pop_front();
        const size_t n = std::min(size, next.size());
        std::copy_n(next.begin(), n, report);
        return static_cast<long>(n);
    }
    Ready Wait(int timeoutMs) override {
        std::lock_guard<std::mutex> lock(m_bridge->mutex);
        if (m_bridge->gone) return Ready::Gone;
        if (!m_bridge->input.empty()) return Ready::Readable;
        ++m_bridge->timeOuts;
        m_bridge->longestWaitMs = std::max(m_bridge->longestWaitMs, timeoutMs);
        return Ready::TimedOut;
    }

private:
    std::shared_ptr<FakeBridge> m_bridge;
};

class HidrawUart : public HidrawBridges {
protected:
    void SetUp() override {
        HidrawBridges::SetUp();
        zqvm::SetHidrawOpenerForTest([this](const std::string& path, std::string* why) -> std::unique_ptr<zqvm::HidrawDevice> {
            const auto found = bridges.find(fs::path(path).filename().string());
            if (found == bridges.end()) {
                *why = "No such file or directory";
                return nullptr;
            }
            return std::make_unique<FakeNode>(found->second);
        });
    }
    void TearDown() override {
        zqvm::SetHidrawOpenerForTest(nullptr);
        HidrawBridges::TearDown();
    }
    // A microphone at USB port `port` behind node hidraw<node>, and a capture endpoint of its USB
    // device's container.
    std::shared_ptr<FakeBridge> AddMicrophone(int node, int port, const char* serial) {
        const fs::path usb = AddNode(node, port, "10c4", "eab0", serial);
        zqvm::EndpointSpec card;
        card.flow = eCapture;
        card.name = std::wstring(L"Microphone (") + std::wstring(serial, serial + std::strlen(serial)) + L")";
        card.container = zqplatform::usb::ContainerIdOfUsbFolder(usb.string());
        EXPECT_FALSE(zqvm::AddEndpoint(card).empty());
        auto bridge = std::make_shared<FakeBridge>();
        bridges["hidraw" + std::to_string(node)] = bridge;
        return bridge;
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

    std::map<std::string, std::shared_ptr<FakeBridge>> bridges;
};

TEST_F(HidrawUart, DiscoveryAsksEachMicrophoneForItsVersionsAtItsUartSettingsAndNamesIt) {
    const auto answering = AddMicrophone(0, 3, "KV1-ANSWERS");
    const auto silent = AddMicrophone(1, 4, "KV1-SILENT");
    silent->reply.clear();
    const auto unknownPart = AddMicrophone(2, 5, "KV1-OTHERCHIP");
    unknownPart->part = 0x0F;
    AddNode(3, 6, "10c4", "eab0", "KV1-NONODE");  // listed in sysfs, no node to open
    core->Init(window->Handle());

    CWMAudioDevice* record = Listed(L"KV1-ANSWERS");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->GetVerAPI(), 0x05);
    EXPECT_EQ(record->GetVerFW(), 0x12);
    EXPECT_EQ(record->GetFriendlyName(), CStringW(L"KV-1 Studio"));
    EXPECT_EQ(record->GetName(), CStringW(L"Microphone (KV1-ANSWERS)")) << "paired with its card";
    EXPECT_TRUE(answering->enabled);
    EXPECT_GE(answering->purges, 1);
    EXPECT_EQ(answering->config, (std::vector<uint8_t>{0x50, 0x00, 0x00, 0xE1, 0x00, 0x00, 0x00, 0x03, 0x00}))
        << "57600 baud, no parity, no flow control, 8 data bits, 1 stop bit";

    // The others stay listed, with versions 0: the silent one after one read time-out.
    for (const wchar_t* serial : {L"KV1-SILENT", L"KV1-OTHERCHIP", L"KV1-NONODE"}) {
        SCOPED_TRACE(std::wstring(serial));
        ASSERT_NE(Listed(serial), nullptr);
        EXPECT_EQ(Listed(serial)->GetVerFW(), 0);
    }
    EXPECT_EQ(silent->timeOuts, 1);
    EXPECT_GT(silent->longestWaitMs, 0);
    EXPECT_LE(silent->longestWaitMs, 150) << "the read time-out discovery sets";
    EXPECT_EQ(unknownPart->config, std::vector<uint8_t>()) << "a chip of another part is not configured";
    EXPECT_TRUE(Told(L"hidraw: " + (dev.Path() / "hidraw3").wstring() + L": cannot be opened: No such file or directory"));
}

TEST_F(HidrawUart, AReplyInMalformedReportsIsDroppedAndToldAndANodeGoneMidReadFailsTheRead) {
    const auto malformed = AddMicrophone(0, 3, "KV1-MALFORMED");
    malformed->malformed = true;
    AddMicrophone(1, 4, "KV1-GONE");
    core->Init(window->Handle());
    ASSERT_NE(Listed(L"KV1-MALFORMED"), nullptr);
    EXPECT_EQ(Listed(L"KV1-MALFORMED")->GetVerFW(), 0);
    EXPECT_TRUE(Told(L"hidraw: " + (dev.Path() / "hidraw0").wstring() +
                     L": dropped 2 input report(s) that carried no UART data"));

    // Straight through the bridge library: unplugged between the query and the read.
    HID_UART_DEVICE device = nullptr;
    ASSERT_EQ(HidUart_Open(&device, 1, 0x10C4, 0xEAB0), HID_UART_SUCCESS);
    bridges["hidraw1"]->gone = true;
    BYTE buffer[16];
    DWORD read = 7;
    EXPECT_EQ(HidUart_Read(device, buffer, sizeof(buffer), &read), HID_UART_DEVICE_IO_FAILED);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(HidUart_Close(device), HID_UART_SUCCESS);
    EXPECT_EQ(HidUart_Close(device), HID_UART_INVALID_DEVICE_OBJECT);
}

}  // namespace
