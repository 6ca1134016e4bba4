// The machine's HID interfaces as SetupAPI lists them, with each one's vendor and product
// (HidD_GetAttributes) and its strings (HidD_Get...String). Internal to the platform library.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace zqplatform::winhid {

struct HidInterface {
    std::wstring path;  // the interface's device path, for CreateFileW
    WORD vid = 0;
    WORD pid = 0;
};

// The present HID interfaces with that vendor and product (0: any), in SetupAPI's order.
// An interface whose attributes cannot be read is left out.
std::vector<HidInterface> ListHidInterfaces(WORD vid, WORD pid);

// The text a HidUart_GetString option asks for, as UTF-8; nothing when the device does not
// answer (or the option is unknown).
std::optional<std::string> HidInterfaceString(const HidInterface& hid, DWORD option);

}  // namespace zqplatform::winhid
