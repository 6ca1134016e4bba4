// Small helpers over the system's endpoint objects, shared by the engines, discovery and the
// notification handling: the device enumerator, and the two endpoint properties the library
// reads.
#pragma once

#include "zqCoreAudio.h"

// A new device enumerator (in-process), or the failing HRESULT with the pointer left empty.
HRESULT CreateDeviceEnumerator(CComPtr<IMMDeviceEnumerator>& enumerator);

// The endpoint's PKEY_Device_ContainerId; false when it cannot be read or holds no GUID.
bool ReadEndpointContainerId(IPropertyStore* pStore, GUID& guid);
// Endpoint nIndex of a listing with its property store open for reading; false (and told to
// the debug output) when either cannot be had.
bool OpenEndpointProperties(IMMDeviceCollection* pCollection, UINT nIndex, CComPtr<IMMDevice>& endpoint,
                            CComPtr<IPropertyStore>& store);
// The endpoint's PKEY_Device_FriendlyName; false when it cannot be read or is not text.
bool ReadEndpointFriendlyName(IPropertyStore* pStore, CStringW& strName);
