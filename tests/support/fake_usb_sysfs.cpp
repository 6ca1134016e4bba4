#include "fake_usb_sysfs.h"

#include <cctype>
#include <fstream>

namespace fs = std::filesystem;

namespace zqtest {
namespace {

void WriteLine(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text << "\n";
}

std::string Upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

fs::path AddFakeUsbBridge(const fs::path& sysRoot, const FakeUsbBridge& bridge) {
    const std::string port = "1-" + std::to_string(bridge.port);
    const fs::path usb = sysRoot / "devices/pci0000:00/0000:00:14.0/usb1" / port;
    const std::pair<const char*, const std::string*> files[] = {{"idVendor", &bridge.idVendor},
                                                                {"idProduct", &bridge.idProduct},
                                                                {"serial", &bridge.serial},
                                                                {"manufacturer", &bridge.manufacturer},
                                                                {"product", &bridge.product}};
    for (const auto& [name, text] : files) {
        if (!text->empty()) WriteLine(usb / name, *text);
    }
    const std::string vendor = Upper(bridge.idVendor);
    const std::string product = Upper(bridge.idProduct);
    const fs::path hid =
        usb / (port + ":1.3") / ("0003:" + vendor + ":" + product + ".000" + std::to_string(bridge.node));
    WriteLine(hid / "uevent", "DRIVER=hid-generic\nHID_ID=0003:0000" + vendor + ":0000" + product);
    const fs::path node = hid / "hidraw" / ("hidraw" + std::to_string(bridge.node));
    WriteLine(node / "uevent", "MAJOR=240\nMINOR=" + std::to_string(bridge.node));
    fs::create_directories(sysRoot / "class/hidraw");
    fs::create_directory_symlink(fs::relative(node, sysRoot / "class/hidraw"), HidrawClassLink(sysRoot, bridge.node));
    return usb;
}

fs::path HidrawClassLink(const fs::path& sysRoot, int node) {
    return sysRoot / "class/hidraw" / ("hidraw" + std::to_string(node));
}

}  // namespace zqtest
