// What discovery learns of one microphone besides its versions: the bridge's strings and the
// container identifier of its USB device, from the registry.
#pragma once

#include <cstddef>

#include "zqCoreAudio.h"

// A bridge string buffer as wide text: the bytes up to the first NUL, or all nSize of them
// when the bridge wrote none, read as UTF-8 (a byte that is not UTF-8 becomes U+FFFD), whatever
// the C runtime's locale.
CStringW BridgeTextToWide(const char* pBuffer, size_t nSize);

// Reads string `dwOption` of bridge `dwDevice` (vendor and product 0: any HID device) into
// strText and returns the bridge library's status. The buffer starts empty, so a query that
// fails without writing it, the read time-out included, gives an empty text.
HID_UART_STATUS ReadBridgeString(DWORD dwDevice, DWORD dwOption, CStringW& strText);

// The text of the value "ContainerID" of the USB device instance (vendor 0x10C4, product
// 0xEAB0) named by the serial number, read with HKEY_LOCAL_MACHINE and KEY_READ into 260 wide
// characters. It counts as read only when the query succeeds, its type is REG_SZ or
// REG_EXPAND_SZ, its length is a whole number of wide characters, and it is empty or ends in
// a NUL. False otherwise, and for a serial number that cannot name a key (empty, or holding a
// backslash); every key opened here is closed again.
bool ReadContainerIdText(const CStringW& strSerial, CStringW& strText);

// The container identifier that the text spells (either letter case, braces optional);
// GUID_NULL for a text that is not a GUID.
GUID ContainerIdFromText(const CStringW& strText);
