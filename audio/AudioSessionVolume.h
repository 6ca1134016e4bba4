// The render session's volume events: posts WM_SESSION_VOLUME_CHANGED to the host's window when
// another party changes the session volume or mute state, and holds the session's volume
// interface through which the core sets and reads the render volume. Changes the library makes
// carry g_guidVolumeEventContext and are not echoed to the host.
//
// The audio engine calls the event methods on threads of its own. OnSimpleVolumeChanged reads
// the fields set before registration and the notifications flag (an atomic: the host's thread
// sets it after registering and clears it after unregistering), and posts (never sends), so it
// takes no lock and cannot wait on the host's window thread.
#pragma once

#include <atomic>

#include "zqPlatform.h"

extern const GUID g_guidVolumeEventContext;

class CAudioSessionVolume final : public IAudioSessionEvents {
public:
    // The caller owns the one reference of the new object; out is written only on success.
    static HRESULT CreateInstance(HWND hwndNotify, IMMDevice* pDevice, CAudioSessionVolume** ppOut);

    void EnableNotifications(BOOL bEnable);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE OnDisplayNameChanged(LPCWSTR, LPCGUID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnIconPathChanged(LPCWSTR, LPCGUID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnSimpleVolumeChanged(float NewVolume, BOOL NewMute, LPCGUID EventContext) override;
    HRESULT STDMETHODCALLTYPE OnChannelVolumeChanged(DWORD, float[], DWORD, LPCGUID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnGroupingParamChanged(LPCGUID, LPCGUID) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnStateChanged(AudioSessionState) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnSessionDisconnected(AudioSessionDisconnectReason) override { return S_OK; }

    LONG m_nRefCount;
    UINT m_uNotifyMessage;
    HWND m_hWndNotify;
    std::atomic<BOOL> m_bNotificationsEnabled;
    IAudioSessionControl* m_pSessionControl;
    ISimpleAudioVolume* m_pSimpleVolume;

private:
    explicit CAudioSessionVolume(HWND hwndNotify);
    ~CAudioSessionVolume();
    HRESULT Initialize(IMMDevice* pDevice);
};
