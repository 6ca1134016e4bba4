// One HID interface opened for the bridge's reports, as the hidraw UART (../src/hidraw/
// hidraw_uart.h) speaks them: feature reports with HidD_GetFeature / HidD_SetFeature, interrupt
// reports with overlapped WriteFile / ReadFile. Internal to the platform library.
#pragma once

#include <memory>
#include <string>

#include "zqplatform/vm/hidraw_device.h"

namespace zqplatform::winhid {

// Null when the interface cannot be opened for reading and writing (the reason in *why).
std::unique_ptr<zqvm::HidrawDevice> OpenHidInterface(const std::wstring& path, std::wstring* why);

}  // namespace zqplatform::winhid
