// The bridge library's functions over Linux hidraw: the maker's bridges plugged into this
// machine, listed and named from sysfs (hidraw_nodes.h). Each listing also publishes, for every
// bridge with a USB device folder and a serial number, the "ContainerID" that discovery reads
// (instance_key.h): the GUID that the pulse backend derives for the sound card of the same USB
// device, so the two pair. Internal to the platform library; the HidUart_* entry points call
// these while the hidraw backend is chosen.
// An opened bridge is its node's UART (hidraw_uart.h); calls on one handle take turns, calls on
// different handles run side by side. A handle that dropped input reports says so on the debug
// output when it is closed. Every call can be failed by zqvm::FailCall, as the simulated
// bridges' can.
#pragma once

#include "zqplatform/win/hiduart.h"

namespace zqplatform::hidraw {

HID_UART_STATUS GetNumDevices(DWORD* numDevices, WORD vid, WORD pid);
HID_UART_STATUS GetString(DWORD deviceNum, WORD vid, WORD pid, char* deviceString, DWORD options);
HID_UART_STATUS Open(HID_UART_DEVICE* device, DWORD deviceNum, WORD vid, WORD pid);
HID_UART_STATUS Close(HID_UART_DEVICE device);
HID_UART_STATUS SetUartConfig(HID_UART_DEVICE device, DWORD baudRate, BYTE dataBits, BYTE parity, BYTE stopBits,
                              BYTE flowControl);
HID_UART_STATUS GetTimeouts(HID_UART_DEVICE device, DWORD* readTimeout, DWORD* writeTimeout);
HID_UART_STATUS SetTimeouts(HID_UART_DEVICE device, DWORD readTimeout, DWORD writeTimeout);
HID_UART_STATUS Write(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToWrite, DWORD* numBytesWritten);
HID_UART_STATUS Read(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToRead, DWORD* numBytesRead);

}  // namespace zqplatform::hidraw
