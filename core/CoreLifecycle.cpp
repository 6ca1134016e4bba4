// The core's lifecycle sequences. Each step is announced by a log line; a failing step is
// logged by the part that failed and the sequence goes on.
#include "analysis/AudioAnalyzer.h"
#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "core/NotificationClient.h"
#include "zqCoreAudio.h"

// Calls out of order are answered, not half-done: a member that needs the components does
// nothing without them (before Init, after Shutdown) and says so in the log, and a second Init
// leaves the running components alone. Run half, such a call would list microphones that no
// Shutdown clears any more, or replace engines whose streams still run.
bool CZQCoreAudio::HasComponents(const wchar_t* pszMember) {
    if (m_pCapture != nullptr && m_pRender != nullptr && m_pAnalyzer != nullptr) return true;
    LogWarning(L"CoreAudio: %s: not initialised (before Init or after Shutdown), nothing done", pszMember);
    return false;
}

void CZQCoreAudio::Init(HWND hWnd) {
    LogInfo(L"CoreAudio: Init ...");
    if (m_pCapture != nullptr || m_pRender != nullptr || m_pAnalyzer != nullptr || m_pNotifyClient != nullptr) {
        LogWarning(L"CoreAudio: Init: initialised already (Shutdown first), nothing done");
        return;
    }
    m_hWnd = hWnd;
    m_pCapture = std::make_unique<CAudioCapture>();
    m_pRender = std::make_unique<CAudioRender>();
    m_pAnalyzer = std::make_unique<CAudioAnalyzer>();
    m_pAnalyzer->StartThread();  // reports its own failure
    m_pNotifyClient = std::make_unique<CMMNotificationClient>();
    OpenComponents();
    m_pNotifyClient->Register();  // a failed registration only means no notifications
    LogInfo(L"CoreAudio: CMMNotificationClient Init");
    LoadConfig();
    LoadPlugins();
    RebuildRender();
    RebuildCapture();
}

void CZQCoreAudio::Shutdown() {
    LogInfo(L"CoreAudio: Shutdown");
    // From here on the getters on other threads leave the components alone.
    CloseComponents();
    // From here on no notification changes the microphone list or messages the host; one under
    // way finishes first (the host's window may be handling its message meanwhile).
    if (m_pNotifyClient) m_pNotifyClient->CloseCallbacks();
    ClearDeviceZQ();
    if (m_pAnalyzer) {
        // Its thread reads the capture engine's buffers every tick: gone before that engine.
        m_pAnalyzer->RequestStop();
        m_pAnalyzer->JoinThread();
    }
    Stop();
    if (m_pNotifyClient) m_pNotifyClient->Unregister();
    LogInfo(L"CoreAudio: DestroyCapture");
    if (m_pCapture) m_pCapture->ReleaseAudioDevices();
    LogInfo(L"CoreAudio: DestroyRender ...");
    if (m_pRender) m_pRender->ReleaseAudioDevices();
    m_pNotifyClient.reset();  // outright, whatever its reference count
    // The capture engine goes before the render engine; the render thread, which reads the
    // capture engine's queue, was joined by Stop above.
    m_pCapture.reset();
    m_pRender.reset();
    m_pAnalyzer.reset();
    m_hWnd = nullptr;
    LogInfo(L"CoreAudio: Shutdown OK");
}

void CZQCoreAudio::Start() {
    LogInfo(L"CoreAudio: Start");
    if (!HasComponents(L"Start")) return;
    if (IsStarted()) Stop();
    m_pRender->StartRender();
    m_pCapture->StartCapture();
}

void CZQCoreAudio::Stop() {
    LogInfo(L"CoreAudio: Stop");
    if (m_pCapture != nullptr && m_pRender != nullptr) {
        m_pRender->StopRender();
        m_pCapture->StopCapture();
    }
}

bool CZQCoreAudio::IsStarted() {
    return m_pCapture != nullptr && m_pRender != nullptr && m_pCapture->IsStarted() && m_pRender->IsStarted();
}

void CZQCoreAudio::Refresh() {
    LogInfo(L"CoreAudio: Refresh");
    if (!HasComponents(L"Refresh")) return;
    if (IsStarted()) Stop();
    RebuildCapture();
}

void CZQCoreAudio::DestroyRender() {
    LogInfo(L"CoreAudio: DestroyRender ...");
    if (HasComponents(L"DestroyRender")) m_pRender->ReleaseAudioDevices();
}

void CZQCoreAudio::RebuildRender() {
    LogInfo(L"CoreAudio: RebuildRender");
    if (!HasComponents(L"RebuildRender")) return;
    DestroyRender();
    m_pRender->EnumerateAudioDevices();
    IMMDevice* first = m_pRender->FirstDevice();
    // The record stays in the list while the device opens: nothing else rebuilds it meanwhile.
    if (first != nullptr) m_pRender->SetAudioDevice(first);
    LogInfo(L"CoreAudio: RenderEngine Set Default Audio Device");
}

void CZQCoreAudio::DestroyCapture() {
    LogInfo(L"CoreAudio: DestroyCapture");
    if (HasComponents(L"DestroyCapture")) m_pCapture->ReleaseAudioDevices();
}

void CZQCoreAudio::RebuildCapture() {
    LogInfo(L"CoreAudio: RebuildCapture");
    if (!HasComponents(L"RebuildCapture")) return;
    DestroyCapture();
    ClearDeviceZQ();
    FillDevicesZQ();  // before the capture engine copies the list
    m_pCapture->EnumerateAudioDevices();
    m_pCapture->SetFirstAudioDevice();
}

void CZQCoreAudio::SetBypass(bool bBypass) {
    if (m_pCapture == nullptr) {
        m_bBypass.exchange(bBypass);
        return;
    }
    m_pCapture->StoreBypass(m_bBypass, bBypass);
}

bool CZQCoreAudio::SetCaptureDevice(IMMDevice* pDevice) {
    if (m_pCapture == nullptr) return false;
    return SUCCEEDED(m_pCapture->SetAudioDevice(pDevice));
}

bool CZQCoreAudio::SetRenderDevice(IMMDevice* pDevice) {
    if (m_pRender == nullptr) return false;
    return SUCCEEDED(m_pRender->SetAudioDevice(pDevice));
}

unsigned int CZQCoreAudio::GetCaptureDeviceCount() { return m_pCapture ? m_pCapture->DeviceCount() : 0; }
CWMAudioDevice* CZQCoreAudio::GetCaptureDevice(int nIndex) { return m_pCapture ? m_pCapture->DeviceAt(nIndex) : nullptr; }
unsigned int CZQCoreAudio::GetRenderDeviceCount() { return m_pRender ? m_pRender->DeviceCount() : 0; }
CWMAudioDevice* CZQCoreAudio::GetRenderDevice(int nIndex) { return m_pRender ? m_pRender->DeviceAt(nIndex) : nullptr; }
