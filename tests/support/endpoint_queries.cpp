#include "endpoint_queries.h"

namespace zqtest {

std::wstring AddTestEndpoint(EDataFlow flow, const wchar_t* name, uint32_t rate, uint16_t channels,
                             zqvm::SampleFormat format, const zqvm::CaptureSource& source, bool extensible) {
    zqvm::EndpointSpec endpointSpec;
    endpointSpec.flow = flow;
    endpointSpec.name = name;
    endpointSpec.rate = rate;
    endpointSpec.channels = channels;
    endpointSpec.format = format;
    endpointSpec.source = source;
    endpointSpec.extensible = extensible;
    std::string error;
    std::wstring id = zqvm::AddEndpoint(endpointSpec, &error);
    EXPECT_FALSE(id.empty()) << error;
    return id;
}

std::wstring IdOf(IMMDevice* device) {
    LPWSTR id = nullptr;
    if (device == nullptr || FAILED(device->GetId(&id)) || id == nullptr) return {};
    std::wstring text = id;
    CoTaskMemFree(id);
    return text;
}

std::vector<std::wstring> EndpointIds(IMMDeviceEnumerator* enumerator, EDataFlow flow, DWORD stateMask) {
    std::vector<std::wstring> ids;
    CComPtr<IMMDeviceCollection> collection;
    UINT count = 0;
    if (FAILED(enumerator->EnumAudioEndpoints(flow, stateMask, &collection)) || FAILED(collection->GetCount(&count)))
        return ids;
    for (UINT i = 0; i < count; ++i) {
        CComPtr<IMMDevice> device;
        if (SUCCEEDED(collection->Item(i, &device))) ids.push_back(IdOf(device));
    }
    return ids;
}

std::wstring FriendlyNameOf(IMMDevice* device) {
    CComPtr<IPropertyStore> store;
    PROPVARIANT value;
    PropVariantInit(&value);
    if (device == nullptr || FAILED(device->OpenPropertyStore(STGM_READ, &store)) ||
        FAILED(store->GetValue(PKEY_Device_FriendlyName, &value)))
        return {};
    std::wstring name = value.vt == VT_LPWSTR && value.pwszVal != nullptr ? value.pwszVal : L"";
    PropVariantClear(&value);
    return name;
}

GUID ContainerOf(IMMDevice* device) {
    CComPtr<IPropertyStore> store;
    PROPVARIANT value;
    PropVariantInit(&value);
    if (device == nullptr || FAILED(device->OpenPropertyStore(STGM_READ, &store)) ||
        FAILED(store->GetValue(PKEY_Device_ContainerId, &value)))
        return GUID_NULL;
    const GUID container = value.vt == VT_CLSID && value.puuid != nullptr ? *value.puuid : GUID_NULL;
    PropVariantClear(&value);
    return container;
}

EventStream::EventStream(IMMDevice* device, REFERENCE_TIME duration) {
    event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    opened = device != nullptr ? S_OK : E_POINTER;
    if (SUCCEEDED(opened))
        opened = device->Activate(IID_IAudioClient, CLSCTX_INPROC_SERVER, nullptr, reinterpret_cast<void**>(&client));
    if (SUCCEEDED(opened)) opened = client->GetMixFormat(&format);
    if (SUCCEEDED(opened))
        opened = client->Initialize(AUDCLNT_SHAREMODE_SHARED,
                                    AUDCLNT_STREAMFLAGS_EVENTCALLBACK | AUDCLNT_STREAMFLAGS_NOPERSIST, duration, 0,
                                    format, nullptr);
    if (SUCCEEDED(opened)) opened = client->GetBufferSize(&bufferFrames);
    if (SUCCEEDED(opened)) opened = client->SetEventHandle(event);
}

EventStream::~EventStream() {
    if (client) client->Stop();
    client.Release();
    CoTaskMemFree(format);
    if (event != nullptr) CloseHandle(event);
}

UINT32 EventStream::Padding() const {
    UINT32 padding = 0;
    EXPECT_EQ(client->GetCurrentPadding(&padding), S_OK);
    return padding;
}

}  // namespace zqtest
