// Container identifiers of USB devices from sysfs.
#include "usb_container.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/sha.h>
}

namespace zqplatform::usb {
namespace {

namespace fs = std::filesystem;

// The namespace of our USB container names; any fixed value would do, but it must never change:
// the GUIDs derived from it are what pairs a microphone with its endpoint.
constexpr GUID kUsbContainerNamespace = {0x6F1D7A3C, 0x52E8, 0x4B0A, {0x9C, 0x41, 0x3D, 0x8E, 0x27, 0xB5, 0x60, 0xF9}};

bool IsUnder(const fs::path& path, const fs::path& root) {
    auto p = path.begin();
    for (auto r = root.begin(); r != root.end(); ++r, ++p) {
        if (r->empty()) continue;  // a trailing separator of the root
        if (p == path.end() || *p != *r) return false;
    }
    return true;
}

void PutBigEndian(uint8_t* out, uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) {
        out[i] = static_cast<uint8_t>(value & 0xFF);
        value >>= 8;
    }
}

uint64_t GetBigEndian(const uint8_t* in, int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = (value << 8) | in[i];
    return value;
}

}  // namespace

std::optional<std::string> ReadSysfsLine(const std::string& file) {
    std::ifstream in(file);
    if (!in) return std::nullopt;
    std::string line;
    if (!std::getline(in, line)) return std::string();
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.pop_back();
    return line;
}

std::string SysfsRoot() {
    const char* root = std::getenv("ZQ_SYSFS_ROOT");
    return root != nullptr && root[0] != '\0' ? std::string(root) : std::string("/sys");
}

std::string FindUsbDeviceFolder(const std::string& root, std::string_view devicePath) {
    if (devicePath.empty()) return {};
    const fs::path rootPath = fs::path(root).lexically_normal();
    fs::path path(devicePath);
    // PulseAudio and udev name sysfs paths from the root down ("/devices/..."); accept a full
    // path under the root too.
    if (!IsUnder(path.lexically_normal(), rootPath)) path = rootPath / path.relative_path();
    path = path.lexically_normal();
    if (!IsUnder(path, rootPath)) return {};  // ".." must not leave the tree
    std::error_code error;
    for (fs::path folder = path; IsUnder(folder, rootPath) && folder != rootPath; folder = folder.parent_path()) {
        if (fs::is_regular_file(folder / "idVendor", error)) return folder.string();
        if (!folder.has_relative_path() || folder == folder.parent_path()) break;
    }
    return {};
}

std::string UsbFolderOfBusPath(const std::string& root, std::string_view busPath) {
    // "pci-<controller>-usb-<n>:<ports>:<configuration>.<interface>"
    constexpr std::string_view kPci = "pci-";
    constexpr std::string_view kUsb = "-usb-";
    if (busPath.substr(0, kPci.size()) != kPci) return {};
    const size_t usbAt = busPath.find(kUsb);
    if (usbAt == std::string_view::npos) return {};
    const std::string controller(busPath.substr(kPci.size(), usbAt - kPci.size()));
    const std::string_view usb = busPath.substr(usbAt + kUsb.size());
    const size_t firstColon = usb.find(':');
    if (firstColon == std::string_view::npos) return {};
    const size_t secondColon = usb.find(':', firstColon + 1);
    const std::string ports(usb.substr(firstColon + 1, secondColon == std::string_view::npos
                                                            ? std::string_view::npos
                                                            : secondColon - firstColon - 1));
    if (ports.empty() || controller.empty()) return {};

    // The controller's root hubs are its "usbN" children; the device is "N-<ports>" below one.
    std::error_code error;
    const fs::path controllerFolder = fs::path(root) / "bus" / "pci" / "devices" / controller;
    for (const fs::directory_entry& entry : fs::directory_iterator(controllerFolder, error)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("usb", 0) != 0 || name.size() == 3) continue;
        const fs::path device = entry.path() / (name.substr(3) + "-" + ports);
        if (fs::is_regular_file(device / "idVendor", error)) return device.string();
    }
    return {};
}

GUID ContainerIdOfUsbFolder(const std::string& folder) {
    if (folder.empty()) return GUID_NULL;
    const fs::path path(folder);
    const std::string vendor = ReadSysfsLine(path / "idVendor").value_or("");
    const std::string product = ReadSysfsLine(path / "idProduct").value_or("");
    if (vendor.empty() || product.empty()) return GUID_NULL;
    std::string serial = ReadSysfsLine(path / "serial").value_or("");
    // Without a serial the port path (the folder's name) tells two devices of a kind apart.
    if (serial.empty()) serial = "port:" + path.filename().string();
    // sysfs writes the ids in lower case; the name uses Windows' upper-case spelling.
    const auto upper = [](std::string text) {
        for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return text;
    };
    const std::string name = "USB\\VID_" + upper(vendor) + "&PID_" + upper(product) + "\\" + serial;
    return NameBasedGuid(kUsbContainerNamespace, name);
}

GUID NameBasedGuid(const GUID& nameSpace, std::string_view name) {
    uint8_t bytes[16];
    PutBigEndian(bytes, nameSpace.Data1, 4);
    PutBigEndian(bytes + 4, nameSpace.Data2, 2);
    PutBigEndian(bytes + 6, nameSpace.Data3, 2);
    for (int i = 0; i < 8; ++i) bytes[8 + i] = nameSpace.Data4[i];

    uint8_t digest[20];
    AVSHA* sha = av_sha_alloc();
    if (sha == nullptr) return GUID_NULL;
    av_sha_init(sha, 160);
    av_sha_update(sha, bytes, sizeof(bytes));
    av_sha_update(sha, reinterpret_cast<const uint8_t*>(name.data()), static_cast<unsigned>(name.size()));
    av_sha_final(sha, digest);
    av_free(sha);

    digest[6] = static_cast<uint8_t>((digest[6] & 0x0F) | 0x50);  // version 5
    digest[8] = static_cast<uint8_t>((digest[8] & 0x3F) | 0x80);  // RFC 4122 variant
    GUID guid;
    guid.Data1 = static_cast<uint32_t>(GetBigEndian(digest, 4));
    guid.Data2 = static_cast<uint16_t>(GetBigEndian(digest + 4, 2));
    guid.Data3 = static_cast<uint16_t>(GetBigEndian(digest + 6, 2));
    for (int i = 0; i < 8; ++i) guid.Data4[i] = digest[8 + i];
    return guid;
}

}  // namespace zqplatform::usb
