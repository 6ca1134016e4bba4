// Control of the simulated HID-to-UART bridges behind the HidUart_* functions
// (zqplatform/win/hiduart.h).
//
// A simulated bridge is one of the maker's microphones as the machine sees it: the bridge's
// USB strings (each with the status its query returns), a UART whose firmware answers the
// version query, failure injection for the UART calls, and the registry value that names the
// container of its USB device. Bridges are listed in the order they were added; removing one
// moves the later ones down by one index, as unplugging does. All functions are thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zqplatform/win/hiduart.h"

namespace zqvm {

// One string as HidUart_GetString reports it. Up to HID_UART_DEVICE_STRLEN bytes of `bytes`
// are written to the caller's buffer, followed by a NUL when there are fewer; so 260 bytes or
// more leave the buffer without a NUL.
struct BridgeString {
    BridgeString() = default;
    BridgeString(const char* text) : bytes(text) {}  // NOLINT: a plain text is the usual case
    BridgeString(std::string text, int queryStatus, bool written)
        : bytes(std::move(text)), status(queryStatus), writtenOnFailure(written) {}

    std::string bytes;
    int status = HID_UART_SUCCESS;
    // With a status other than success: whether the buffer is written all the same (the
    // read time-out 0x12 does either on real bridges).
    bool writtenOnFailure = false;
};

struct BridgeDescription {
    WORD vid = 0x10C4;
    WORD pid = 0xEAB0;
    BridgeString manufacturer = "KESTRAVON";
    BridgeString product;
    BridgeString serial;

    // The microphone's firmware answers each version query byte 0x03 that it receives with
    // this reply, provided the UART runs at its speed with 8 data bits, no parity and 1 stop
    // bit; at other settings it cannot make out the query and stays silent.
    std::vector<uint8_t> versionReply = {0xAA, 0x05, 0x12};
    DWORD firmwareBaudRate = 57600;

    // Failure injection: a status other than success makes that call fail with it and do
    // nothing else (a failed open leaves the bridge closed).
    int openStatus = HID_UART_SUCCESS;
    int configStatus = HID_UART_SUCCESS;
    int getTimeoutsStatus = HID_UART_SUCCESS;
    int setTimeoutsStatus = HID_UART_SUCCESS;
    int writeStatus = HID_UART_SUCCESS;
    int readStatus = HID_UART_SUCCESS;

    // When set, the machine's registry holds the container identifier of the bridge's USB
    // device ("ContainerID", REG_SZ, in braces, upper case) under
    // HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Enum\USB\VID_vvvv&PID_pppp\<serial> for as long
    // as the bridge is present.
    std::optional<GUID> containerId;
};

using BridgeId = uint64_t;  // never 0, never reused

ZQPLATFORM_API BridgeId AddBridge(const BridgeDescription& description);
// False for an unknown bridge. An opened handle of a removed bridge fails every call with
// HID_UART_DEVICE_IO_FAILED but HidUart_Close, which frees it.
ZQPLATFORM_API bool RemoveBridge(BridgeId id);
ZQPLATFORM_API void RemoveAllBridges();
// The present bridges in listing order (as HidUart_GetNumDevices counts them), each with its
// identifier and its description as last added or changed.
struct PresentBridge {
    BridgeId id = 0;
    BridgeDescription description;
};
ZQPLATFORM_API std::vector<PresentBridge> PresentBridges();
// Replaces the description of a present bridge (strings, firmware, failures); an open handle
// stays open. False for an unknown bridge.
ZQPLATFORM_API bool ChangeBridge(BridgeId id, const BridgeDescription& description);

// How a read waits for its time-out: in real time (the default), or not at all, so that tests
// need not wait; the time a read would have waited is counted in BridgeState::waitedMs either
// way.
enum class BridgeTiming { RealTime, Instant };
ZQPLATFORM_API void SetBridgeTiming(BridgeTiming timing);
ZQPLATFORM_API BridgeTiming GetBridgeTiming();

// What has happened to a bridge since it was added.
struct BridgeState {
    bool present = false;
    bool open = false;
    int opens = 0;   // successful HidUart_Open calls
    int closes = 0;  // HidUart_Close calls that freed a handle of this bridge
    DWORD baudRate = 0;
    BYTE dataBits = 0;
    BYTE parity = 0;
    BYTE stopBits = 0;
    BYTE flowControl = 0;
    DWORD readTimeoutMs = 0;
    DWORD writeTimeoutMs = 0;
    std::vector<uint8_t> received;  // every byte written to the UART
    uint64_t waitedMs = 0;          // time-outs that reads ran into, summed
};
// Nothing for a bridge that was never added.
ZQPLATFORM_API std::optional<BridgeState> GetBridgeState(BridgeId id);

// Every HidUart_* call in order, e.g. "HidUart_Open(1, 0, 0) -> 0x00" or
// "HidUart_Write(03) -> 0x00", for checking the order and arguments of calls.
ZQPLATFORM_API std::vector<std::string> BridgeCalls();
ZQPLATFORM_API void ClearBridgeCalls();
// Handles from HidUart_Open not yet closed.
ZQPLATFORM_API size_t BridgeOpenHandleCount();

// Which bridges the HidUart_* functions stand for: the simulated ones above (the default), or
// the maker's bridges plugged into this machine, found through Linux hidraw and sysfs
// (ZQ_SYSFS_ROOT and ZQ_DEV_ROOT move both, for tests). Read from ZQ_BRIDGE_BACKEND ("simulated"
// or "hidraw") at the first HidUart_* call unless SelectBridgeBackend was called before;
// independent of the audio backend. While hidraw is chosen the simulated bridges take no part.
enum class BridgeBackend { Simulated, Hidraw };
// False (and the reason in *error) for a name other than "simulated" or "hidraw".
ZQPLATFORM_API bool SelectBridgeBackend(std::string_view name, std::string* error);
ZQPLATFORM_API BridgeBackend SelectedBridgeBackend();
ZQPLATFORM_API const char* BridgeBackendName(BridgeBackend backend);

}  // namespace zqvm
