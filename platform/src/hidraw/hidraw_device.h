// The kernel's hidraw node behind zqvm::HidrawDevice, or a test's in its place. Internal to the
// platform library.
#pragma once

#include <memory>
#include <string>

#include "zqplatform/vm/hidraw_device.h"

namespace zqplatform::hidraw {

using zqvm::HidrawDevice;

std::unique_ptr<HidrawDevice> OpenHidraw(const std::string& path, std::string* why);

}  // namespace zqplatform::hidraw
