#include "instance_key.h"

#include <algorithm>
#include <cstdio>

#include "../audio/text.h"
#include "../strings/utf8.h"
#include "zqplatform/vm/registry.h"
#include "zqplatform/win/hiduart.h"

namespace zqplatform::bridges {

std::wstring InstanceKeyPath(WORD vid, WORD pid, std::string_view serial) {
    const size_t end = std::min(serial.find('\0'), std::min<size_t>(serial.size(), HID_UART_DEVICE_STRLEN));
    if (end == 0) return std::wstring();
    char prefix[64];
    std::snprintf(prefix, sizeof(prefix), "SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_%04X&PID_%04X\\", vid, pid);
    // The serial as the system reads a bridge's string: UTF-8, by the platform's one conversion,
    // so that the key is named by the very text discovery looks it up with.
    return WideFromUtf8(prefix) + WideFromUtf8(serial.substr(0, end));
}

void PublishContainerId(const std::wstring& keyPath, const GUID& container) {
    zqvm::RegistrySetString(HKEY_LOCAL_MACHINE, keyPath, L"ContainerID", audio::GuidText(container));
}

}  // namespace zqplatform::bridges
