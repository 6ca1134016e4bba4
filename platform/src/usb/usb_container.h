// The container identifier of a USB device, derived from its folder in sysfs: a name-based
// GUID (SHA-1, RFC 4122 version 5) of its vendor id, product id and serial number. Everything
// that belongs to one USB device (its sound card's endpoints, its HID-to-UART bridge) finds the
// same folder above its own sysfs path, so it gets the same GUID: the system pairs a microphone
// with its capture endpoint by that GUID. Internal to the platform library; the pulse backend
// and the hidraw bridges use it (exported only for the platform's own tests).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "zqplatform/export.h"
#include "zqplatform/win/wintypes.h"

namespace zqplatform::usb {

// The first line of a sysfs attribute file, without trailing blanks; nothing when the file
// cannot be read.
ZQPLATFORM_API std::optional<std::string> ReadSysfsLine(const std::string& file);

// The root of the sysfs tree: ZQ_SYSFS_ROOT (a fake tree, for tests) or "/sys".
ZQPLATFORM_API std::string SysfsRoot();

// The USB device folder that holds devicePath: the path itself or its nearest parent with an
// idVendor file, not above root. devicePath is absolute under root or relative to it
// ("/devices/pci0000:00/.../sound/card1", as udev and PulseAudio name it). Empty when none.
ZQPLATFORM_API std::string FindUsbDeviceFolder(const std::string& root, std::string_view devicePath);

// The folder of a udev bus path ("pci-0000:00:14.0-usb-0:3:1.0": the USB port path 3 behind
// the controller 0000:00:14.0). Empty when it names no USB device present under root.
ZQPLATFORM_API std::string UsbFolderOfBusPath(const std::string& root, std::string_view busPath);

// The GUID of the USB device in folder, from idVendor, idProduct and serial (its port path
// when it has no serial); GUID_NULL when idVendor or idProduct cannot be read.
ZQPLATFORM_API GUID ContainerIdOfUsbFolder(const std::string& folder);

// RFC 4122 version 5 GUID of name in the namespace.
ZQPLATFORM_API GUID NameBasedGuid(const GUID& nameSpace, std::string_view name);

}  // namespace zqplatform::usb
