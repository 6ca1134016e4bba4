// The maker's microphones on this machine through hidraw, against a sysfs tree of plain folders
// laid out as Linux lays out a USB HID interface: the listing, the strings, the container values
// published for pairing, and discovery through the core.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>

#include "microphone_machine.h"
#include "scoped_environment.h"
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

TEST_F(HidrawBridges, DiscoveryListsAndPairsTheMicrophoneWhileItsUartIsNotDrivenYet) {
    const fs::path usb = AddNode(0, 3, "10c4", "eab0", "KV1-HIDRAW");
    zqvm::EndpointSpec card;
    card.flow = eCapture;
    card.name = L"KV-1 USB Microphone (card)";
    card.container = zqplatform::usb::ContainerIdOfUsbFolder(usb.string());
    const std::wstring endpoint = zqvm::AddEndpoint(card);
    ASSERT_FALSE(endpoint.empty());
    core->Init(window->Handle());

    ASSERT_EQ(core->GetHidCaptureDeviceCount(), 1u);
    CWMAudioDevice* record = core->GetHidCaptureDevice(0);
    EXPECT_EQ(record->GetSN(), CStringW(L"KV1-HIDRAW"));
    EXPECT_EQ(record->GetName(), CStringW(L"KV-1 USB Microphone (card)"));
    EXPECT_TRUE(IsEqualGUID(record->GetHidContainerID(), card.container));
    EXPECT_EQ(record->GetVerAPI(), 0);
    EXPECT_EQ(record->GetVerFW(), 0);
    const auto told = debugOutput.Texts();
    EXPECT_NE(std::find(told.begin(), told.end(), L"hidraw: the bridges' UART is not driven over hidraw yet: versions stay 0\n"),
              told.end());
}

}  // namespace
