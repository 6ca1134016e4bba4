// A hidraw node as the hidraw bridges use it: its device's ids and feature reports through ioctls, one report per
// read or write, and poll. The kernel's node stands behind it; tests may put a node of their own
// in its place (SetHidrawOpenerForTest), which the bridges then open for every path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "zqplatform/export.h"

namespace zqvm {

class HidrawDevice {
public:
    enum class Ready { Readable, TimedOut, Gone };

    virtual ~HidrawDevice() = default;
    // The vendor and product of the HID device behind the node; false when it cannot be asked.
    virtual bool Info(uint16_t* vendor, uint16_t* product) = 0;
    // report[0] is the report id; false when the device refuses it or is gone.
    virtual bool GetFeature(uint8_t* report, size_t size) = 0;
    virtual bool SetFeature(const uint8_t* report, size_t size) = 0;
    // One output report; false when it was not taken whole.
    virtual bool Write(const uint8_t* report, size_t size) = 0;
    // One input report into report (up to size bytes): its length; 0 when none is waiting;
    // -1 when the device is gone.
    virtual long Read(uint8_t* report, size_t size) = 0;
    // Waits for an input report, at most timeoutMs: TimedOut only when that time has passed.
    virtual Ready Wait(int timeoutMs) = 0;
};

// Opens the node at path; null when it cannot be opened (the reason in *why).
using HidrawOpener = std::function<std::unique_ptr<HidrawDevice>(const std::string& path, std::string* why)>;

// Tests: every node is opened through opener instead of the kernel; an empty opener restores
// the kernel's.
ZQPLATFORM_API void SetHidrawOpenerForTest(HidrawOpener opener);

}  // namespace zqvm
