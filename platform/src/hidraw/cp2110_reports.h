// The HID reports of the maker's bridge chip family (CP2110 / CP2114): interrupt reports
// 0x01..0x3F carry that many UART bytes in either direction, after the report id; feature
// reports control the UART. Internal to the platform library.
#pragma once

#include <cstdint>

namespace zqplatform::hidraw::cp2110 {

constexpr uint8_t kMaxDataReport = 0x3F;  // and so the most UART bytes one report carries

constexpr uint8_t kUartEnable = 0x41;   // [id, 0 or 1]
constexpr uint8_t kPurgeFifos = 0x43;   // [id, 1 transmit | 2 receive]
constexpr uint8_t kVersion = 0x46;      // [id, part number, device version]
constexpr uint8_t kUartConfig = 0x50;   // [id, baud rate (4 bytes, big-endian), parity, flow
                                        //  control, data bits, stop bits]: the encodings of
                                        //  the bridge library's constants

constexpr uint8_t kPurgeBoth = 0x03;
constexpr uint8_t kPartCp2110 = 0x0A;
constexpr uint8_t kPartCp2114 = 0x0E;

constexpr int kUartConfigSize = 9;
constexpr int kVersionSize = 3;

}  // namespace zqplatform::hidraw::cp2110
