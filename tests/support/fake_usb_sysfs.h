// A fake sysfs tree laid out as Linux lays out a USB device with the maker's bridge: the USB
// device folder with its attribute files, below it the bridge's HID interface and the HID
// device with its hidraw node, and the node's link in class/hidraw.
#pragma once

#include <filesystem>
#include <string>

namespace zqtest {

struct FakeUsbBridge {
    int port = 1;  // the USB device is usb1/1-<port>
    int node = 0;  // its hidraw node is hidraw<node>
    // The USB device's attribute files, in sysfs' lower-case hex; an empty text leaves the file out.
    std::string idVendor = "10c4";
    std::string idProduct = "eab0";
    std::string serial;
    std::string manufacturer = "KESTRAVON";
    std::string product = "KV-1 USB Microphone";
};

// Adds the device below sysRoot; returns its USB device folder.
std::filesystem::path AddFakeUsbBridge(const std::filesystem::path& sysRoot, const FakeUsbBridge& bridge);

// class/hidraw/hidraw<node>: removing it unplugs the node as far as a listing goes.
std::filesystem::path HidrawClassLink(const std::filesystem::path& sysRoot, int node);

}  // namespace zqtest
