// The bridge library's functions over Linux hidraw: the maker's bridges plugged into this
// machine, listed and named from sysfs (hidraw_nodes.h). Each listing also publishes, for every
// bridge with a USB device folder and a serial number, the "ContainerID" that discovery reads
// (instance_key.h): the GUID that the pulse backend derives for the sound card of the same USB
// device, so the two pair. Internal to the platform library; the HidUart_* entry points call
// these while the hidraw backend is chosen.
//
// Not yet driven: the UART behind the node (open, configuration, time-outs, reads and writes).
// Those calls answer HID_UART_DEVICE_NOT_SUPPORTED, and the first of them says so on the debug
// output, so a microphone found over hidraw is listed with versions 0.
#pragma once

#include "zqplatform/win/hiduart.h"

namespace zqplatform::hidraw {

HID_UART_STATUS GetNumDevices(DWORD* numDevices, WORD vid, WORD pid);
HID_UART_STATUS GetString(DWORD deviceNum, WORD vid, WORD pid, char* deviceString, DWORD options);
// The calls on an opened bridge.
HID_UART_STATUS UartNotDriven();

}  // namespace zqplatform::hidraw
