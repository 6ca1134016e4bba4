// CMMNotificationClient: the sink of the system's endpoint notifications. It keeps no state
// about devices; every callback goes to the core object through g_pCore, on the device
// enumerator's notification thread.
//
// Owned by the core object from Init to Shutdown, which destroys it outright whatever its
// reference count. Before Shutdown unregisters it, CloseCallbacks stops the callbacks from
// reaching the core: a callback already under way may be waiting in SendMessageW for the host's
// window, so CloseCallbacks handles the calling thread's sent messages until it has returned.
#pragma once

#include <atomic>

#include "zqPlatform.h"

class CMMNotificationClient : public IMMNotificationClient {
public:
    CMMNotificationClient();
    virtual ~CMMNotificationClient();
    CMMNotificationClient(const CMMNotificationClient&) = delete;
    CMMNotificationClient& operator=(const CMMNotificationClient&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvInterface) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR pwstrDeviceId, DWORD dwNewState) override;
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR pwstrDeviceId) override;
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR pwstrDeviceId) override;
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR pwstrDefaultDeviceId) override;
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR pwstrDeviceId, const PROPERTYKEY key) override;

    // Init: its own interface, a new device enumerator and the registration with it; each step
    // only when the one before succeeded. Nothing is reported: without it no callback arrives.
    void Register();
    // Shutdown: no callback reaches the core any more once this returns.
    void CloseCallbacks();
    // Shutdown: unregisters and gives back the enumerator and its own interface.
    void Unregister();

private:
    // Counts a callback in, unless the client is closed; the count and the flag are sequentially
    // consistent, so CloseCallbacks either sees the callback or the callback sees the flag.
    bool EnterCallback();
    void LeaveCallback();
    // Hands a callback to the core object unless the client is closed.
    template <typename Call>
    void Forward(Call call);

    LONG m_cRef;
    IMMDeviceEnumerator* m_pEnumerator;
    IMMNotificationClient* m_pClientSelf;
    std::atomic<int> m_nCallbacks;
    std::atomic<bool> m_bClosed;
};
