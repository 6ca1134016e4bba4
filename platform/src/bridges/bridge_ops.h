// Where a bridge backend plugs into the bridge library. The front end (the HidUart_* functions,
// bridge_front.cpp) takes a failure armed by zqvm::FailCall, checks every argument, keeps the
// call log and the table of handles it hands out, and only then calls the chosen backend through
// its table of functions. Internal to the platform library.
//
// What the front end has already done when a backend's function is called:
// - every pointer argument is non-null, an option is one of HID_UART_GET_*_STR, a UART setting
//   lies within its range (baud rate 300 to 1,000,000), a write or read count lies within 1 and
//   HID_UART_MAX_WRITE_SIZE or HID_UART_MAX_READ_SIZE;
// - a handle is one that this backend's open gave out and that has not been closed; the
//   caller's HID_UART_DEVICE never reaches a backend, so a handle of one backend can never
//   reach another, whichever backend is chosen meanwhile.
// What each backend still does: list and open its own bridges (a deviceNum beyond its listing
// is HID_UART_DEVICE_NOT_FOUND), tell a bridge gone since it was opened
// (HID_UART_DEVICE_IO_FAILED), and let calls on one handle take turns.
// Threads: any thread may call any function; calls on different handles may run side by side,
// and close may come while a read on the same handle waits: the read is to end soon after.
#pragma once

#include <cstdint>

#include "zqplatform/win/hiduart.h"

namespace zqplatform::bridges {

// A backend's own name for a bridge it opened.
using BackendHandle = uintptr_t;

struct UartConfig {
    DWORD baudRate;
    BYTE dataBits;
    BYTE parity;
    BYTE stopBits;
    BYTE flowControl;
};

struct BridgeOps {
    // How many bridges pass the filter (0 stands for any vendor or product).
    HID_UART_STATUS (*countDevices)(WORD vid, WORD pid, DWORD* count);
    // The string an option asks for, written to text's HID_UART_DEVICE_STRLEN bytes as
    // HidUart_GetString writes it (a NUL after it when shorter). Texts are UTF-8.
    HID_UART_STATUS (*getString)(DWORD deviceNum, WORD vid, WORD pid, DWORD option, char* text);
    HID_UART_STATUS (*open)(DWORD deviceNum, WORD vid, WORD pid, BackendHandle* handle);
    // Frees the handle; after it, no call is made with it.
    void (*close)(BackendHandle handle);
    HID_UART_STATUS (*setUartConfig)(BackendHandle handle, const UartConfig& config);
    HID_UART_STATUS (*getTimeouts)(BackendHandle handle, DWORD* readMs, DWORD* writeMs);
    HID_UART_STATUS (*setTimeouts)(BackendHandle handle, DWORD readMs, DWORD writeMs);
    HID_UART_STATUS (*write)(BackendHandle handle, const BYTE* buffer, DWORD count, DWORD* written);
    HID_UART_STATUS (*read)(BackendHandle handle, BYTE* buffer, DWORD count, DWORD* read);
};

// The two backends: the simulated bridges (zqplatform/vm/bridges.h), and the maker's bridges
// on this machine through Linux hidraw.
const BridgeOps& SimulatedBridgeOps();
const BridgeOps& HidrawBridgeOps();

}  // namespace zqplatform::bridges
