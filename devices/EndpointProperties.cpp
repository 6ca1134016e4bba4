#include "devices/EndpointProperties.h"

#include "core/FailureReport.h"

HRESULT CreateDeviceEnumerator(CComPtr<IMMDeviceEnumerator>& enumerator) {
    enumerator.Release();
    const HRESULT hr = CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_INPROC_SERVER, IID_IMMDeviceEnumerator,
                                        reinterpret_cast<void**>(&enumerator));
    if (FAILED(hr)) {
        enumerator.Detach();  // nothing was handed over, whatever the out-parameter holds
        ReportQuietFailure(L"CoreAudio: no device enumerator (CoCreateInstance: %x)", hr);
    }
    return hr;
}

bool OpenEndpointProperties(IMMDeviceCollection* pCollection, UINT nIndex, CComPtr<IMMDevice>& endpoint,
                            CComPtr<IPropertyStore>& store) {
    HRESULT hr = pCollection->Item(nIndex, &endpoint);
    if (FAILED(hr) || !endpoint) {
        ReportQuietFailure(L"CoreAudio: an endpoint of a listing is skipped: IMMDeviceCollection::Item: %x", hr);
        return false;
    }
    hr = endpoint->OpenPropertyStore(STGM_READ, &store);
    if (FAILED(hr) || !store) {
        ReportQuietFailure(L"CoreAudio: an endpoint of a listing is skipped: IMMDevice::OpenPropertyStore: %x", hr);
        return false;
    }
    return true;
}

bool ReadEndpointContainerId(IPropertyStore* pStore, GUID& guid) {
    PROPVARIANT value;
    PropVariantInit(&value);
    const HRESULT hr = pStore->GetValue(PKEY_Device_ContainerId, &value);
    if (FAILED(hr)) {
        ReportQuietFailure(L"CoreAudio: an endpoint's container cannot be read (IPropertyStore::GetValue: %x)", hr);
        return false;
    }
    const bool bHasGuid = value.vt == VT_CLSID && value.puuid != nullptr;
    if (bHasGuid) guid = *value.puuid;
    PropVariantClear(&value);
    return bHasGuid;
}

bool ReadEndpointFriendlyName(IPropertyStore* pStore, CStringW& strName) {
    PROPVARIANT value;
    PropVariantInit(&value);
    const HRESULT hr = pStore->GetValue(PKEY_Device_FriendlyName, &value);
    if (FAILED(hr)) {
        ReportQuietFailure(L"CoreAudio: an endpoint's name cannot be read (IPropertyStore::GetValue: %x)", hr);
        return false;
    }
    const bool bHasText = value.vt == VT_LPWSTR;
    if (bHasText) strName = value.pwszVal != nullptr ? value.pwszVal : L"";
    PropVariantClear(&value);
    return bHasText;
}
