// The container identifier of a USB device from its sysfs folder: the one derivation the pulse
// backend's endpoints and the bridges' registry values share, so that discovery pairs them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "../../platform/src/usb/usb_container.h"

namespace {

namespace fs = std::filesystem;

class UsbContainer : public ::testing::Test {
protected:
    void SetUp() override {
        root = fs::temp_directory_path() / ("zq_sysfs_" + std::to_string(::getpid()) + "_" +
                                            ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(root);
    }
    void TearDown() override { fs::remove_all(root); }

    // A USB device behind port 1-<port> of the controller 0000:00:14.0, with one sound card.
    fs::path AddDevice(const std::string& port, const char* vendor, const char* product, const char* serial) {
        const fs::path device = root / "devices/pci0000:00/0000:00:14.0/usb1" / ("1-" + port);
        fs::create_directories(device / ("1-" + port + ":1.0/sound/card1"));
        if (vendor) std::ofstream(device / "idVendor") << vendor << "\n";
        if (product) std::ofstream(device / "idProduct") << product << "\n";
        if (serial) std::ofstream(device / "serial") << serial << "\n";
        return device;
    }
    static std::string CardOf(const std::string& port) {
        return "/devices/pci0000:00/0000:00:14.0/usb1/1-" + port + "/1-" + port + ":1.0/sound/card1";
    }

    fs::path root;
};

TEST_F(UsbContainer, NameBasedGuidIsRfc4122Version5) {
    // The RFC's DNS namespace and a name whose version-5 UUID is well known.
    const GUID dns = {0x6BA7B810, 0x9DAD, 0x11D1, {0x80, 0xB4, 0x00, 0xC0, 0x4F, 0xD4, 0x30, 0xC8}};
    const GUID expected = {0x2ED6657D, 0xE927, 0x568B, {0x95, 0xE1, 0x26, 0x65, 0xA8, 0xAE, 0xA6, 0xA2}};
    EXPECT_EQ(expected, zqplatform::usb::NameBasedGuid(dns, "www.example.com"));
}

TEST_F(UsbContainer, SoundCardFindsItsUsbDeviceFolderAboveIt) {
    const fs::path device = AddDevice("3", "10c4", "eab0", "KV1-2024-0001");
    EXPECT_EQ(device.string(), zqplatform::usb::FindUsbDeviceFolder(root.string(), CardOf("3")));
    EXPECT_EQ(device.string(), zqplatform::usb::FindUsbDeviceFolder(root.string(), (root.string() + CardOf("3"))));
    EXPECT_EQ("", zqplatform::usb::FindUsbDeviceFolder(root.string(), "/devices/platform/snd_dummy/sound/card0"));
    EXPECT_EQ("", zqplatform::usb::FindUsbDeviceFolder(root.string(), "/../../etc")) << "never outside the tree";
    EXPECT_EQ("", zqplatform::usb::FindUsbDeviceFolder(root.string(), ""));
}

TEST_F(UsbContainer, GuidComesFromVendorProductAndSerial) {
    const GUID first = zqplatform::usb::ContainerIdOfUsbFolder(AddDevice("3", "10c4", "eab0", "KV1-2024-0001").string());
    const GUID again = zqplatform::usb::ContainerIdOfUsbFolder(AddDevice("7", "10C4", "EAB0", "KV1-2024-0001").string());
    const GUID other = zqplatform::usb::ContainerIdOfUsbFolder(AddDevice("4", "10c4", "eab0", "KV1-2024-0002").string());
    EXPECT_NE(GUID_NULL, first);
    EXPECT_EQ(first, again) << "the same device on another port, ids in either case";
    EXPECT_NE(first, other);
    EXPECT_EQ(0x5000, first.Data3 & 0xF000) << "version 5";
    EXPECT_EQ(0x80, first.Data4[0] & 0xC0) << "RFC 4122 variant";
}

TEST_F(UsbContainer, DeviceWithoutSerialIsToldApartByItsPort) {
    const GUID left = zqplatform::usb::ContainerIdOfUsbFolder(AddDevice("1", "046d", "0a44", nullptr).string());
    const GUID right = zqplatform::usb::ContainerIdOfUsbFolder(AddDevice("2", "046d", "0a44", nullptr).string());
    EXPECT_NE(GUID_NULL, left);
    EXPECT_NE(left, right);
}

TEST_F(UsbContainer, NoIdsNoGuid) {
    EXPECT_EQ(GUID_NULL, zqplatform::usb::ContainerIdOfUsbFolder(AddDevice("5", "10c4", nullptr, "X").string()));
    EXPECT_EQ(GUID_NULL, zqplatform::usb::ContainerIdOfUsbFolder(""));
}

TEST_F(UsbContainer, BusPathNamesThePortBehindItsController) {
    const fs::path device = AddDevice("4", "10c4", "eab0", "KV2");
    fs::create_directories(root / "bus/pci/devices");
    fs::create_directory_symlink("../../../devices/pci0000:00/0000:00:14.0", root / "bus/pci/devices/0000:00:14.0");
    const std::string found = zqplatform::usb::UsbFolderOfBusPath(root.string(), "pci-0000:00:14.0-usb-0:4:1.0");
    ASSERT_NE("", found);
    EXPECT_EQ(zqplatform::usb::ContainerIdOfUsbFolder(device.string()), zqplatform::usb::ContainerIdOfUsbFolder(found));
    EXPECT_EQ("", zqplatform::usb::UsbFolderOfBusPath(root.string(), "pci-0000:00:14.0-usb-0:9:1.0")) << "no such port";
    EXPECT_EQ("", zqplatform::usb::UsbFolderOfBusPath(root.string(), "platform-snd_dummy"));
    EXPECT_EQ("", zqplatform::usb::UsbFolderOfBusPath(root.string(), "pci-0000:00:14.0-usb-"));
}

}  // namespace
