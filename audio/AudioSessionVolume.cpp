#include "audio/AudioSessionVolume.h"

#include "core/FailureReport.h"

#include <cstring>
#include <new>

#include "devices/EndpointProperties.h"
#include "zqCoreAudio.h"

// {2715279F-4139-4BA0-9CB1-B351F1B58A4A}
const GUID g_guidVolumeEventContext = {0x2715279F, 0x4139, 0x4BA0, {0x9C, 0xB1, 0xB3, 0x51, 0xF1, 0xB5, 0x8A, 0x4A}};

namespace {

template <typename T>
void ReleaseAndClear(T*& p) {
    if (p != nullptr) {
        p->Release();
        p = nullptr;
    }
}

}  // namespace

CAudioSessionVolume::CAudioSessionVolume(HWND hwndNotify)
    : m_nRefCount(1),
      m_uNotifyMessage(WM_SESSION_VOLUME_CHANGED),
      m_hWndNotify(hwndNotify),
      m_bNotificationsEnabled(FALSE),
      m_pSessionControl(nullptr),
      m_pSimpleVolume(nullptr) {}

CAudioSessionVolume::~CAudioSessionVolume() {
    EnableNotifications(FALSE);
    ReleaseAndClear(m_pSessionControl);
    ReleaseAndClear(m_pSimpleVolume);
}

HRESULT CAudioSessionVolume::CreateInstance(HWND hwndNotify, IMMDevice* pDevice, CAudioSessionVolume** ppOut) {
    auto* object = new (std::nothrow) CAudioSessionVolume(hwndNotify);
    if (object == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = object->Initialize(pDevice);
    if (FAILED(hr)) {
        object->Release();
        return hr;
    }
    if (ppOut == nullptr) {
        object->Release();
        return E_POINTER;
    }
    *ppOut = object;
    return S_OK;
}

HRESULT CAudioSessionVolume::Initialize(IMMDevice* pDevice) {
    ReleaseAndClear(m_pSessionControl);
    ReleaseAndClear(m_pSimpleVolume);
    CComPtr<IMMDeviceEnumerator> enumerator;
    CComPtr<IMMDevice> device = pDevice;
    HRESULT hr = S_OK;
    if (!device) {
        hr = CreateDeviceEnumerator(enumerator);
        if (SUCCEEDED(hr)) hr = enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &device);
    }
    CComPtr<IAudioSessionManager> manager;
    if (SUCCEEDED(hr)) {
        hr = device->Activate(IID_IAudioSessionManager, CLSCTX_INPROC_SERVER, nullptr,
                              reinterpret_cast<void**>(&manager));
    }
    // GUID_NULL with no stream flags: the process's default session on that endpoint.
    if (SUCCEEDED(hr)) hr = manager->GetAudioSessionControl(&GUID_NULL, 0, &m_pSessionControl);
    if (SUCCEEDED(hr)) hr = manager->GetSimpleAudioVolume(&GUID_NULL, 0, &m_pSimpleVolume);
    return hr;
}

void CAudioSessionVolume::EnableNotifications(BOOL bEnable) {
    // Relaxed: the flag is written on this thread only (the render engine's, or the destructor).
    if (m_hWndNotify == nullptr || m_pSessionControl == nullptr ||
        m_bNotificationsEnabled.load(std::memory_order_relaxed) == bEnable) {
        return;
    }
    const HRESULT hr = bEnable ? m_pSessionControl->RegisterAudioSessionNotification(this)
                               : m_pSessionControl->UnregisterAudioSessionNotification(this);
    if (FAILED(hr)) {
        ReportQuietFailure(bEnable ? L"AudioRender: no session volume events: RegisterAudioSessionNotification: %x"
                                   : L"AudioRender: UnregisterAudioSessionNotification failed: %x",
                           hr);
    }
    if (SUCCEEDED(hr)) m_bNotificationsEnabled.store(bEnable, std::memory_order_release);
}

HRESULT CAudioSessionVolume::OnSimpleVolumeChanged(float NewVolume, BOOL NewMute, LPCGUID EventContext) {
    if (!m_bNotificationsEnabled.load(std::memory_order_acquire)) return S_OK;
    if (EventContext != nullptr && *EventContext == g_guidVolumeEventContext) return S_OK;  // our own change
    if (m_hWndNotify == nullptr) return S_OK;
    uint32_t bits = 0;
    static_assert(sizeof bits == sizeof NewVolume);
    std::memcpy(&bits, &NewVolume, sizeof bits);
    PostMessageW(m_hWndNotify, m_uNotifyMessage, static_cast<WPARAM>(bits), static_cast<LPARAM>(NewMute ? 1 : 0));
    return S_OK;
}

HRESULT CAudioSessionVolume::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IAudioSessionEvents) {
        *ppv = static_cast<IAudioSessionEvents*>(this);
        AddRef();
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

ULONG CAudioSessionVolume::AddRef() { return static_cast<ULONG>(InterlockedIncrement(&m_nRefCount)); }

ULONG CAudioSessionVolume::Release() {
    const LONG count = InterlockedDecrement(&m_nRefCount);
    if (count == 0) delete this;
    return static_cast<ULONG>(count);
}
