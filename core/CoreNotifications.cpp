// What the core does on the system's endpoint notifications, and the device messages to the
// host. Runs on the enumerator's notification thread (through CMMNotificationClient) or on the
// host's thread (the exported Do* members). Streams are never reopened here: the list of the
// maker's microphones is brought up to date and the host is told; the host decides.
#include <cstring>

#include "devices/EndpointProperties.h"
#include "zqCoreAudio.h"

void CZQCoreAudio::DoDeviceChange(const wchar_t* pwstrDeviceId, DWORD dwNewState) {
    LogInfo(L"CoreAudio: call DeviceChange, device id: %s, state = %d", pwstrDeviceId, static_cast<int>(dwNewState));
    // Compared for equality: a state with other bits set is none of these.
    if (dwNewState == DEVICE_STATE_ACTIVE) {
        DoDeviceAdded(pwstrDeviceId);
    } else if (dwNewState == DEVICE_STATE_NOTPRESENT) {
        RemoveDevice(pwstrDeviceId);
    }
}

// Sent, not posted: the notification thread waits until the host has handled it.
void CZQCoreAudio::DoDeviceAdded(const wchar_t* /*pwstrDeviceId*/) {
    FillDevicesZQ();
    SendMessageW(m_hWnd, WM_AUDIO_DEVICE_CHANGED, 0, 0);
}

void CZQCoreAudio::DoDeviceRemoved(const wchar_t* pwstrDeviceId) { RemoveDevice(pwstrDeviceId); }

void CZQCoreAudio::DoRenderChanged(const wchar_t* /*pwstrDeviceId*/) {
    PostMessageW(m_hWnd, WM_AUDIO_RENDER_CHANGED, 0, 0);
}

void CZQCoreAudio::DoCaptureChanged(const wchar_t* /*pwstrDeviceId*/) {}

namespace {

// The container identifier of an endpoint, or false when the endpoint or its value cannot be
// had (a COM failure, or a value without a GUID).
bool EndpointContainerId(const wchar_t* pwstrDeviceId, GUID& guid) {
    CComPtr<IMMDeviceEnumerator> enumerator;
    if (FAILED(CreateDeviceEnumerator(enumerator)) || !enumerator) return false;
    CComPtr<IMMDevice> endpoint;
    if (FAILED(enumerator->GetDevice(pwstrDeviceId, &endpoint)) || !endpoint) return false;
    CComPtr<IPropertyStore> store;
    if (FAILED(endpoint->OpenPropertyStore(STGM_READ, &store)) || !store) return false;
    return ReadEndpointContainerId(store, guid);
}

}  // namespace

// The removal message carries the serial number's text in lParam, and is posted: the host reads
// it later. The texts are kept by the core, one per serial number ever removed, until the core
// object is destroyed, so the pointer stays valid however late the host handles the message.
void CZQCoreAudio::RemoveDevice(const wchar_t* pwstrDeviceId) {
    LogInfo(L"CoreAudio: call RemoveDevice, device id: %s", pwstrDeviceId);
    GUID guidContainer = GUID_NULL;
    if (!EndpointContainerId(pwstrDeviceId, guidContainer)) return;

    const wchar_t* pszSerial = nullptr;
    {
        Concurrency::critical_section::scoped_lock lock(m_csHidDevices);
        for (auto it = m_vecHidDevices.begin(); it != m_vecHidDevices.end(); ++it) {
            if (*it == nullptr) continue;
            const GUID guid = (*it)->GetHidContainerID();
            if (std::memcmp(&guid, &guidContainer, sizeof(GUID)) != 0) continue;
            const CStringW strSerial = (*it)->GetSN();
            pszSerial = m_setRemovedSerials.insert(std::wstring(strSerial.GetString())).first->c_str();
            delete *it;
            m_vecHidDevices.erase(it);  // the later records keep their order
            break;
        }
    }
    if (pszSerial != nullptr) {
        PostMessageW(m_hWnd, WM_AUDIO_DEVICE_CHANGED, 1, reinterpret_cast<LPARAM>(pszSerial));
    }
}
