// The bridge vendor's HID-to-UART interface library: device listing, strings, and the UART of
// one opened bridge.
//
// Devices are addressed by their index among the HID devices that match the vendor and product
// filter (0 for either means any), in the order the library lists them; the index is only good
// while the set of devices stays as it was. On this platform the devices are the simulated
// bridges of zqplatform/vm/bridges.h. Every function may be called from any thread; one
// opened device should be used by one thread at a time, as with the vendor's library.
#pragma once

#include "zqplatform/win/wintypes.h"

typedef void* HID_UART_DEVICE;
typedef int HID_UART_STATUS;

// Status codes.
#define HID_UART_SUCCESS 0x00
#define HID_UART_DEVICE_NOT_FOUND 0x01
#define HID_UART_INVALID_HANDLE 0x02
#define HID_UART_INVALID_DEVICE_OBJECT 0x03
#define HID_UART_INVALID_PARAMETER 0x04
#define HID_UART_INVALID_REQUEST_LENGTH 0x05
#define HID_UART_READ_ERROR 0x10
#define HID_UART_WRITE_ERROR 0x11
#define HID_UART_READ_TIMED_OUT 0x12
#define HID_UART_WRITE_TIMED_OUT 0x13
#define HID_UART_DEVICE_IO_FAILED 0x14
#define HID_UART_DEVICE_ACCESS_ERROR 0x15
#define HID_UART_DEVICE_NOT_SUPPORTED 0x16
#define HID_UART_UNKNOWN_ERROR 0xFF

// HidUart_GetString options.
#define HID_UART_GET_VID_STR 0x01
#define HID_UART_GET_PID_STR 0x02
#define HID_UART_GET_PATH_STR 0x03
#define HID_UART_GET_SERIAL_STR 0x04
#define HID_UART_GET_MANUFACTURER_STR 0x05
#define HID_UART_GET_PRODUCT_STR 0x06

// Size of the buffer HidUart_GetString writes, NUL included.
#define HID_UART_DEVICE_STRLEN 260

// UART settings.
#define HID_UART_FIVE_DATA_BITS 0x00
#define HID_UART_SIX_DATA_BITS 0x01
#define HID_UART_SEVEN_DATA_BITS 0x02
#define HID_UART_EIGHT_DATA_BITS 0x03
#define HID_UART_NO_PARITY 0x00
#define HID_UART_ODD_PARITY 0x01
#define HID_UART_EVEN_PARITY 0x02
#define HID_UART_MARK_PARITY 0x03
#define HID_UART_SPACE_PARITY 0x04
#define HID_UART_SHORT_STOP_BIT 0x00
#define HID_UART_LONG_STOP_BIT 0x01
#define HID_UART_NO_FLOW_CONTROL 0x00
#define HID_UART_RTS_CTS_FLOW_CONTROL 0x01

// Limits of one transfer.
#define HID_UART_MAX_READ_SIZE 32768
#define HID_UART_MAX_WRITE_SIZE 4096

extern "C" {
ZQPLATFORM_API HID_UART_STATUS HidUart_GetNumDevices(DWORD* numDevices, WORD vid, WORD pid);
// Writes the string into a buffer of HID_UART_DEVICE_STRLEN bytes.
ZQPLATFORM_API HID_UART_STATUS HidUart_GetString(DWORD deviceNum, WORD vid, WORD pid, char* deviceString,
                                                 DWORD options);
ZQPLATFORM_API HID_UART_STATUS HidUart_Open(HID_UART_DEVICE* device, DWORD deviceNum, WORD vid, WORD pid);
ZQPLATFORM_API HID_UART_STATUS HidUart_Close(HID_UART_DEVICE device);
ZQPLATFORM_API HID_UART_STATUS HidUart_SetUartConfig(HID_UART_DEVICE device, DWORD baudRate, BYTE dataBits,
                                                     BYTE parity, BYTE stopBits, BYTE flowControl);
ZQPLATFORM_API HID_UART_STATUS HidUart_GetTimeouts(HID_UART_DEVICE device, DWORD* readTimeout,
                                                   DWORD* writeTimeout);
ZQPLATFORM_API HID_UART_STATUS HidUart_SetTimeouts(HID_UART_DEVICE device, DWORD readTimeout, DWORD writeTimeout);
// Writes 1 to HID_UART_MAX_WRITE_SIZE bytes.
ZQPLATFORM_API HID_UART_STATUS HidUart_Write(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToWrite,
                                             DWORD* numBytesWritten);
// Reads 1 to HID_UART_MAX_READ_SIZE bytes; returns HID_UART_READ_TIMED_OUT, with the bytes
// that did arrive, when fewer than asked for arrived within the read time-out.
ZQPLATFORM_API HID_UART_STATUS HidUart_Read(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToRead,
                                            DWORD* numBytesRead);
}
