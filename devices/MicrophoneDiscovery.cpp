// Discovery of the maker's microphones: the HID-to-UART bridges among the machine's HID
// devices, their version query, their names from the product table, and their pairing with
// the capture endpoint of the same USB device through its container identifier.
//
// Runs on the host's thread (Init, RebuildCapture, Refresh) and on the notification thread
// (a device added or become active), one discovery at a time (m_csDiscovery): a bridge is
// opened by one version query at a time, so every microphone gets its versions and its name.
// The version queries of one discovery run side by side (VersionQueries.h).
// The microphone list's lock is held only around reads of the list and the product table and
// around the append, never across a version query (at least 150 ms) or a call into the audio
// engine, so the host's getters and a removal are not held up by a discovery.
#include <cstring>
#include <vector>

#include "core/FailureReport.h"
#include "devices/EndpointProperties.h"
#include "devices/MicrophoneIdentity.h"
#include "devices/VersionQueries.h"
#include "zqCoreAudio.h"

namespace {

bool ReadOrTimedOut(HID_UART_STATUS status) { return status == HID_UART_SUCCESS || status == HID_UART_READ_TIMED_OUT; }

bool IsMakersBridge(const CStringW& strManufacturer) {
    return strManufacturer.CompareNoCase(L"KESTRAVON") == 0 || strManufacturer.CompareNoCase(L"Silicon Laboratories") == 0;
}

bool IsListed(const std::vector<CWMAudioDevice*>& list, const CStringW& strSN) {
    for (CWMAudioDevice* device : list) {
        if (device != nullptr && device->GetSN().CompareNoCase(strSN) == 0) return true;
    }
    return false;
}

// What discovery learns of one bridge before its version query.
struct BridgeFound {
    HID_UART_STATUS stManufacturer = HID_UART_SUCCESS;
    HID_UART_STATUS stSN = HID_UART_SUCCESS;
    HID_UART_STATUS stProduct = HID_UART_SUCCESS;
    CStringW strManufacturer;
    CStringW strSN;
    CStringW strProduct;
    bool bLogitech = false;            // skipped before its other strings were read
    CWMAudioDevice* pDevice = nullptr;  // the new record, once the bridge is taken on
    size_t nQuery = 0;
};

// Reads the bridge's strings; true when it is one of the maker's microphones by its strings.
bool ReadBridge(DWORD dwIndex, BridgeFound& bridge) {
    bridge.stManufacturer = ReadBridgeString(dwIndex, HID_UART_GET_MANUFACTURER_STR, bridge.strManufacturer);
    if (bridge.stManufacturer == HID_UART_SUCCESS && bridge.strManufacturer.CompareNoCase(L"Logitech") == 0) {
        bridge.bLogitech = true;
        return false;
    }
    bridge.stSN = ReadBridgeString(dwIndex, HID_UART_GET_SERIAL_STR, bridge.strSN);
    bridge.stProduct = ReadBridgeString(dwIndex, HID_UART_GET_PRODUCT_STR, bridge.strProduct);
    // A read time-out does not exclude the device: its buffer counts as the bridge left it.
    if (!ReadOrTimedOut(bridge.stManufacturer) || !ReadOrTimedOut(bridge.stSN) || !ReadOrTimedOut(bridge.stProduct))
        return false;
    return IsMakersBridge(bridge.strManufacturer) && !bridge.strSN.IsEmpty() && !bridge.strProduct.IsEmpty();
}

// Whether an earlier bridge of this discovery was taken on with the same serial number: as
// when one bridge after the other was listed, the first one wins.
bool IsFoundBefore(const std::vector<BridgeFound>& bridges, DWORD dwIndex) {
    for (DWORD d = 0; d < dwIndex; ++d) {
        if (bridges[d].pDevice != nullptr && bridges[d].strSN.CompareNoCase(bridges[dwIndex].strSN) == 0) return true;
    }
    return false;
}

}  // namespace

bool CZQCoreAudio::FillDevicesZQ() {
    Concurrency::critical_section::scoped_lock discovery(m_csDiscovery);
    LogInfo(L"CoreAudio: call FillDevicesZQ");
    // Without the components no Shutdown would clear what it lists: false, nothing listed.
    if (!HasComponents(L"FillDevicesZQ")) return false;
    DWORD dwCount = 0;
    const HID_UART_STATUS counted = HidUart_GetNumDevices(&dwCount, 0, 0);
    if (counted != HID_UART_SUCCESS) {
        ReportQuietFailure(L"CoreAudio: the bridges cannot be counted (HidUart_GetNumDevices: 0x%02x)", counted);
        return true;
    }
    LogInfo(L"CoreAudio: HidUart_GetNumDevices: %d", static_cast<int>(dwCount));

    // First every bridge's strings and the tests that decide whether it is a new microphone of
    // ours, so that the version queries of all of them run side by side; then, in list order,
    // the log lines, the versions, the names and the pairing, as one bridge after the other.
    std::vector<BridgeFound> bridges(dwCount);
    CVersionQueries queries;
    for (DWORD dwIndex = 0; dwIndex < dwCount; ++dwIndex) {
        BridgeFound& bridge = bridges[dwIndex];
        if (!ReadBridge(dwIndex, bridge)) continue;
        Concurrency::critical_section::scoped_lock lock(m_csHidDevices);
        if (!IsDeviceInConfig(bridge.strProduct) || IsListed(m_vecHidDevices, bridge.strSN) ||
            IsFoundBefore(bridges, dwIndex))
            continue;
        bridge.pDevice = new CWMAudioDevice;
        bridge.nQuery = queries.Start(bridge.pDevice, static_cast<int>(dwIndex));
    }

    for (DWORD dwIndex = 0; dwIndex < dwCount; ++dwIndex) {
        const int i = static_cast<int>(dwIndex);
        const BridgeFound& bridge = bridges[dwIndex];
        const CStringW& strManufacturer = bridge.strManufacturer;
        const CStringW& strSN = bridge.strSN;
        const CStringW& strProduct = bridge.strProduct;
        if (bridge.stManufacturer == HID_UART_SUCCESS) {
            LogInfo(L"CoreAudio: HID_UART_GET_MANUFACTURER_STR [%i]: %s", i, strManufacturer.GetString());
            if (bridge.bLogitech) continue;
        }
        if (bridge.stSN == HID_UART_SUCCESS) LogInfo(L"CoreAudio: HID_UART_GET_SERIAL_STR [%i]: %s", i, strSN.GetString());
        if (bridge.stProduct == HID_UART_SUCCESS) {
            LogInfo(L"CoreAudio: HID_UART_GET_PRODUCT_STR [%i]: %s", i, strProduct.GetString());
        }
        if (bridge.pDevice == nullptr) continue;

        CWMAudioDevice* pDevice = bridge.pDevice;
        queries.Wait(bridge.nQuery);
        {
            Concurrency::critical_section::scoped_lock lock(m_csHidDevices);
            pDevice->SetFriendlyName(FindFriendlyNameDevice(pDevice->GetVerAPI(), pDevice->GetVerFW(), strProduct));
        }
        pDevice->SetSN(strSN);
        pDevice->SetProduct(strProduct);
        pDevice->SetManufacturer(strManufacturer);
        LogInfo(L"CoreAudio: KESTRAVON Mic [%i]: SN: %s, Product: %s, Manufacturer: %s, FriendlyName: %s, API:%x, FW:%x", i,
                strSN.GetString(), strProduct.GetString(), strManufacturer.GetString(),
                pDevice->GetFriendlyName().GetString(), static_cast<int>(pDevice->GetVerAPI()),
                static_cast<int>(pDevice->GetVerFW()));

        // Without a readable "ContainerID" the record is listed unpaired: GUID_NULL, no endpoint.
        CStringW strContainer;
        if (ReadContainerIdText(strSN, strContainer)) {
            strContainer.MakeUpper();
            const GUID guidContainer = ContainerIdFromText(strContainer);
            pDevice->SetHidContainerID(guidContainer);
            LogInfo(L"CoreAudio: KESTRAVON Mic [%i]: ContainerID: %s", i, strContainer.GetString());
            CStringW strName;
            if (IMMDevice* pEndpoint = FindHidDevice(guidContainer, strName)) {
                pDevice->SetDevice(pEndpoint);  // takes its own reference
                pDevice->SetName(strName);
                pEndpoint->Release();
            }
        }

        // Only a discovery appends, and discoveries run one at a time: the test above holds.
        Concurrency::critical_section::scoped_lock lock(m_csHidDevices);
        m_vecHidDevices.push_back(pDevice);
    }
    return true;
}

IMMDevice* CZQCoreAudio::FindHidDevice(_GUID guidContainer, CStringW& strName) {
    LogInfo(L"CoreAudio: call FindHidDevice");
    CComPtr<IMMDeviceEnumerator> enumerator;
    if (FAILED(CreateDeviceEnumerator(enumerator)) || !enumerator) return nullptr;
    CComPtr<IMMDeviceCollection> collection;
    HRESULT hr = enumerator->EnumAudioEndpoints(eCapture, DEVICE_STATE_ACTIVE, &collection);
    if (FAILED(hr) || !collection) {
        ReportQuietFailure(L"CoreAudio: no microphone can be paired: IMMDeviceEnumerator::EnumAudioEndpoints: %x", hr);
        return nullptr;
    }
    UINT nCount = 0;
    hr = collection->GetCount(&nCount);
    if (FAILED(hr)) {
        ReportQuietFailure(L"CoreAudio: no microphone can be paired: IMMDeviceCollection::GetCount: %x", hr);
        return nullptr;
    }

    for (UINT i = 0; i < nCount; ++i) {
        CComPtr<IMMDevice> endpoint;
        CComPtr<IPropertyStore> store;
        if (!OpenEndpointProperties(collection, i, endpoint, store)) continue;
        GUID guid = GUID_NULL;
        if (!ReadEndpointContainerId(store, guid) || std::memcmp(&guid, &guidContainer, sizeof(GUID)) != 0) continue;
        CStringW strFound;
        if (!ReadEndpointFriendlyName(store, strFound)) continue;
        strName = strFound;
        return endpoint.Detach();  // the caller owns the reference Item gave
    }
    return nullptr;
}
