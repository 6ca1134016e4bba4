// The hidraw nodes of this machine as sysfs lists them: the class folder class/hidraw under the
// sysfs root (ZQ_SYSFS_ROOT, default /sys), each node's vendor and product from its HID
// device's uevent (HID_ID) or else from its USB device's idVendor and idProduct, and the node
// file under the device folder (ZQ_DEV_ROOT, default /dev). Internal to the platform library.
#pragma once

#include <string>
#include <vector>

#include "zqplatform/win/wintypes.h"

namespace zqplatform::hidraw {

struct HidrawNode {
    int number = 0;          // N of hidrawN: the listing order
    std::string devicePath;  // <device folder>/hidrawN
    std::string usbFolder;   // the USB device folder above the node in sysfs; empty when none
    WORD vid = 0;
    WORD pid = 0;
};

// ZQ_DEV_ROOT, or "/dev".
std::string DevRoot();

// The nodes of HID devices with that vendor and product (0: any), by node number. A node whose
// ids cannot be read is left out.
std::vector<HidrawNode> ListNodes(WORD vid, WORD pid);

}  // namespace zqplatform::hidraw
