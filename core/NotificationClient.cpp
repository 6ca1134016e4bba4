#include "core/NotificationClient.h"

#include "core/FailureReport.h"

#include "zqCoreAudio.h"

CMMNotificationClient::CMMNotificationClient()
    : m_cRef(1), m_pEnumerator(nullptr), m_pClientSelf(nullptr), m_nCallbacks(0), m_bClosed(false) {}

CMMNotificationClient::~CMMNotificationClient() {
    if (m_pClientSelf != nullptr) m_pClientSelf->Release();
    if (m_pEnumerator != nullptr) m_pEnumerator->Release();
}

HRESULT CMMNotificationClient::QueryInterface(REFIID riid, void** ppvInterface) {
    if (ppvInterface == nullptr) return E_POINTER;
    if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_IMMNotificationClient)) {
        AddRef();
        *ppvInterface = static_cast<IMMNotificationClient*>(this);
        return S_OK;
    }
    *ppvInterface = nullptr;
    return E_NOINTERFACE;
}

ULONG CMMNotificationClient::AddRef() { return static_cast<ULONG>(InterlockedIncrement(&m_cRef)); }

ULONG CMMNotificationClient::Release() {
    const LONG cRef = InterlockedDecrement(&m_cRef);
    if (cRef == 0) delete this;
    return static_cast<ULONG>(cRef);
}

void CMMNotificationClient::Register() {
    if (FAILED(QueryInterface(IID_IMMNotificationClient, reinterpret_cast<void**>(&m_pClientSelf)))) return;
    HRESULT hr = CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                  reinterpret_cast<void**>(&m_pEnumerator));
    if (FAILED(hr)) {
        m_pEnumerator = nullptr;
        ReportQuietFailure(L"CoreAudio: no device notifications: no device enumerator (CoCreateInstance: %x)", hr);
        return;
    }
    hr = m_pEnumerator->RegisterEndpointNotificationCallback(m_pClientSelf);
    if (FAILED(hr)) {
        ReportQuietFailure(L"CoreAudio: no device notifications: IMMDeviceEnumerator::RegisterEndpointNotificationCallback: %x",
                           hr);
    }
}

void CMMNotificationClient::CloseCallbacks() {
    m_bClosed.store(true);
    // Shutdown may run inside the host's handling of the device message that a callback under
    // way sent: that callback cannot return before the host's handler does, and the handler
    // waits here. Replying now lets the callback return; the host has the message already.
    if (m_nCallbacks.load() > 0 && InSendMessage()) ReplyMessage(0);
    // A callback under way may wait in SendMessageW for this very thread's window: handle the
    // messages sent to it until the callback has returned.
    while (m_nCallbacks.load() > 0) {
        MSG msg;
        PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE);
        Sleep(1);
    }
}

void CMMNotificationClient::Unregister() {
    if (m_pClientSelf != nullptr && m_pEnumerator != nullptr) {
        m_pEnumerator->UnregisterEndpointNotificationCallback(m_pClientSelf);
    }
    if (m_pEnumerator != nullptr) {
        IMMDeviceEnumerator* pEnumerator = m_pEnumerator;
        m_pEnumerator = nullptr;
        pEnumerator->Release();
    }
    if (m_pClientSelf != nullptr) {
        IMMNotificationClient* pSelf = m_pClientSelf;
        m_pClientSelf = nullptr;
        pSelf->Release();
    }
}

bool CMMNotificationClient::EnterCallback() {
    m_nCallbacks.fetch_add(1);
    if (m_bClosed.load() || g_pCore == nullptr) {
        m_nCallbacks.fetch_sub(1);
        return false;
    }
    return true;
}

void CMMNotificationClient::LeaveCallback() { m_nCallbacks.fetch_sub(1); }

template <typename Call>
void CMMNotificationClient::Forward(Call call) {
    if (!EnterCallback()) return;
    call(*g_pCore);
    LeaveCallback();
}

HRESULT CMMNotificationClient::OnDeviceStateChanged(LPCWSTR pwstrDeviceId, DWORD dwNewState) {
    Forward([&](CZQCoreAudio& core) { core.DoDeviceChange(pwstrDeviceId, dwNewState); });
    return S_OK;
}

HRESULT CMMNotificationClient::OnDeviceAdded(LPCWSTR pwstrDeviceId) {
    Forward([&](CZQCoreAudio& core) { core.DoDeviceAdded(pwstrDeviceId); });
    return S_OK;
}

HRESULT CMMNotificationClient::OnDeviceRemoved(LPCWSTR pwstrDeviceId) {
    Forward([&](CZQCoreAudio& core) { core.RemoveDevice(pwstrDeviceId); });
    return S_OK;
}

// Every role of a render default change posts its own message, even without an identifier.
HRESULT CMMNotificationClient::OnDefaultDeviceChanged(EDataFlow flow, ERole /*role*/, LPCWSTR pwstrDefaultDeviceId) {
    if (flow == eRender) Forward([&](CZQCoreAudio& core) { core.DoRenderChanged(pwstrDefaultDeviceId); });
    return S_OK;
}

HRESULT CMMNotificationClient::OnPropertyValueChanged(LPCWSTR /*pwstrDeviceId*/, const PROPERTYKEY /*key*/) { return S_OK; }
