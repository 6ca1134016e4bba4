// Small helpers over the system's endpoint objects, shared by the engines, discovery and the
// notification handling: the device enumerator, and the two endpoint properties the library
// reads.
#pragma once

#include "zqCoreAudio.h"

// A new device enumerator (in-process), or the failing HRESULT with the pointer left empty.
HRESULT CreateDeviceEnumerator(CComPtr<IMMDeviceEnumerator>& enumerator);

// The endpoint's PKEY_Device_ContainerId; false when it cannot be read or holds no GUID.
bool ReadEndpointContainerId(IPropertyStore* pStore, GUID& guid);
// The endpoint's PKEY_Device_FriendlyName; false when it cannot be read or is not text.
bool ReadEndpointFriendlyName(IPropertyStore* pStore, CStringW& strName);
