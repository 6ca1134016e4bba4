// The registry key under which Windows keeps the instance of a bridge's USB device
// (HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Enum\USB\VID_vvvv&PID_pppp\<serial>), where
// discovery reads the "ContainerID" that pairs a microphone with its capture endpoint. Both
// bridge implementations publish that value there. Internal to the platform library.
#pragma once

#include <string>
#include <string_view>

#include "zqplatform/win/wintypes.h"

namespace zqplatform::bridges {

// The key's path, the serial taken up to its first NUL and HID_UART_DEVICE_STRLEN bytes at most
// and read as UTF-8 (as the system reads the bridge's strings); empty for an empty serial (no key can name the device).
std::wstring InstanceKeyPath(WORD vid, WORD pid, std::string_view serial);

// Writes the container as "ContainerID" (REG_SZ, "{...}" upper case) under the key's path.
void PublishContainerId(const std::wstring& keyPath, const GUID& container);

}  // namespace zqplatform::bridges
