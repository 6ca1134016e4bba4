#include "hidraw_nodes.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include "../usb/usb_container.h"

namespace zqplatform::hidraw {
namespace {

namespace fs = std::filesystem;

std::optional<WORD> HexWord(const std::string& text) {
    if (text.empty() || text.size() > 8) return std::nullopt;
    char* end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, 16);
    if (end == nullptr || *end != '\0' || value > 0xFFFF) return std::nullopt;
    return static_cast<WORD>(value);
}

// HID_ID=<bus>:<vendor>:<product>, each in hex, from the HID device's uevent.
bool IdsFromUevent(const fs::path& hidDevice, WORD& vid, WORD& pid) {
    std::ifstream in(hidDevice / "uevent");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("HID_ID=", 0) != 0) continue;
        const std::string ids = line.substr(7);
        const size_t first = ids.find(':');
        const size_t second = ids.find(':', first == std::string::npos ? first : first + 1);
        if (first == std::string::npos || second == std::string::npos) return false;
        const auto vendor = HexWord(ids.substr(first + 1, second - first - 1));
        const auto product = HexWord(ids.substr(second + 1));
        if (!vendor || !product) return false;
        vid = *vendor;
        pid = *product;
        return true;
    }
    return false;
}

bool IdsFromUsbFolder(const std::string& usbFolder, WORD& vid, WORD& pid) {
    if (usbFolder.empty()) return false;
    const auto vendor = HexWord(usb::ReadSysfsLine(usbFolder + "/idVendor").value_or(""));
    const auto product = HexWord(usb::ReadSysfsLine(usbFolder + "/idProduct").value_or(""));
    if (!vendor || !product) return false;
    vid = *vendor;
    pid = *product;
    return true;
}

// N of "hidrawN"; nothing for other names.
std::optional<int> NodeNumber(const std::string& name) {
    constexpr std::string_view kPrefix = "hidraw";
    if (name.size() <= kPrefix.size() || name.compare(0, kPrefix.size(), kPrefix) != 0) return std::nullopt;
    int number = 0;
    for (size_t i = kPrefix.size(); i < name.size(); ++i) {
        if (name[i] < '0' || name[i] > '9' || number > 100000) return std::nullopt;
        number = number * 10 + (name[i] - '0');
    }
    return number;
}

}  // namespace

std::string DevRoot() {
    const char* root = std::getenv("ZQ_DEV_ROOT");
    return root != nullptr && root[0] != '\0' ? std::string(root) : std::string("/dev");
}

std::vector<HidrawNode> ListNodes(WORD vid, WORD pid) {
    std::vector<HidrawNode> nodes;
    std::error_code error;
    const fs::path root = fs::weakly_canonical(usb::SysfsRoot(), error);
    for (const fs::directory_entry& entry : fs::directory_iterator(root / "class" / "hidraw", error)) {
        const std::optional<int> number = NodeNumber(entry.path().filename().string());
        if (!number) continue;
        // class/hidraw/hidrawN links to <HID device>/hidraw/hidrawN, below its USB device.
        std::error_code resolved;
        const fs::path node = fs::canonical(entry.path(), resolved);
        if (resolved) continue;
        HidrawNode found;
        found.number = *number;
        found.devicePath = DevRoot() + "/hidraw" + std::to_string(*number);
        found.usbFolder = usb::FindUsbDeviceFolder(root.string(), node.string());
        if (!IdsFromUevent(node.parent_path().parent_path(), found.vid, found.pid) &&
            !IdsFromUsbFolder(found.usbFolder, found.vid, found.pid)) {
            continue;
        }
        if ((vid != 0 && found.vid != vid) || (pid != 0 && found.pid != pid)) continue;
        nodes.push_back(std::move(found));
    }
    std::sort(nodes.begin(), nodes.end(), [](const HidrawNode& a, const HidrawNode& b) { return a.number < b.number; });
    return nodes;
}

}  // namespace zqplatform::hidraw
