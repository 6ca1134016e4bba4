#include "devices/EndpointProperties.h"

HRESULT CreateDeviceEnumerator(CComPtr<IMMDeviceEnumerator>& enumerator) {
    enumerator.Release();
    const HRESULT hr = CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_INPROC_SERVER, IID_IMMDeviceEnumerator,
                                        reinterpret_cast<void**>(&enumerator));
    if (FAILED(hr)) enumerator.Detach();  // nothing was handed over, whatever the out-parameter holds
    return hr;
}

bool ReadEndpointContainerId(IPropertyStore* pStore, GUID& guid) {
    PROPVARIANT value;
    PropVariantInit(&value);
    if (FAILED(pStore->GetValue(PKEY_Device_ContainerId, &value))) return false;
    const bool bHasGuid = value.vt == VT_CLSID && value.puuid != nullptr;
    if (bHasGuid) guid = *value.puuid;
    PropVariantClear(&value);
    return bHasGuid;
}

bool ReadEndpointFriendlyName(IPropertyStore* pStore, CStringW& strName) {
    PROPVARIANT value;
    PropVariantInit(&value);
    if (FAILED(pStore->GetValue(PKEY_Device_FriendlyName, &value))) return false;
    const bool bHasText = value.vt == VT_LPWSTR;
    if (bHasText) strName = value.pwszVal != nullptr ? value.pwszVal : L"";
    PropVariantClear(&value);
    return bHasText;
}
