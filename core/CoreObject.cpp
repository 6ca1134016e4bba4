// The core object: construction, destruction, the four settings and the accessors.
#include <thread>

#include "analysis/AudioAnalyzer.h"
#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "core/NotificationClient.h"
#include "zqCoreAudio.h"

CZQCoreAudio* g_pCore = nullptr;

CZQCoreAudio::CZQCoreAudio()
    : m_bComponentsOpen(false),
      m_nComponentReaders(0),
      m_hWnd(nullptr),
      m_bBypass(true),
      m_nWaveScale(480),
      m_nWhichFunction(2),
      m_dwSpectrumView(1),
      m_pLog(nullptr),
      m_nLogEpoch(0),
      m_nLogCalls{} {
    // The lists and m_SA are built by now; everything else reaches the core through g_pCore.
    g_pCore = this;
    LogInfo(L"CoreAudio: constructor");  // no log is attached yet: dropped
    m_SA.Create();
}

CZQCoreAudio::~CZQCoreAudio() {
    LogInfo(L"CoreAudio: destructor");
    m_SA.Close();
    // The microphone records were deleted by Shutdown's ClearDeviceZQ, except one the host
    // marked as being edited, which stays the host's to keep using; only the storage goes here.
    // g_pCore is deliberately left as it is: the next core object takes it over.
}

bool CZQCoreAudio::IsInit() { return m_hWnd != nullptr; }

CAudioCapture* CZQCoreAudio::GetCaptureEngine() { return m_pCapture.get(); }
CAudioRender* CZQCoreAudio::GetRenderEngine() { return m_pRender.get(); }
CMMNotificationClient* CZQCoreAudio::GetNotifyClient() { return m_pNotifyClient.get(); }
HWND CZQCoreAudio::GetHwnd() { return m_hWnd; }
_SECURITY_ATTRIBUTES* CZQCoreAudio::GetSA() { return m_SA.GetSecurityAttributes(); }

bool CZQCoreAudio::IsBypass() { return m_bBypass.load(); }
void CZQCoreAudio::SetWaveScale(int nScale) { m_nWaveScale.exchange(nScale); }
int CZQCoreAudio::GetWaveScale() { return m_nWaveScale.load(); }
void CZQCoreAudio::SetWhichFunction(int nFunction) { m_nWhichFunction.exchange(nFunction); }
int CZQCoreAudio::GetWhichFunction() { return m_nWhichFunction.load(); }
void CZQCoreAudio::SetSpectrumView(DWORD dwView) { m_dwSpectrumView.exchange(dwView); }
int CZQCoreAudio::GetSpectrumView() { return static_cast<int>(m_dwSpectrumView.load()); }

void CZQCoreAudio::OpenComponents() { m_bComponentsOpen.store(true); }

void CZQCoreAudio::CloseComponents() {
    m_bComponentsOpen.store(false);
    // A getter inside holds no lock and calls nothing that waits long: yielding until the
    // last one has left is short.
    while (m_nComponentReaders.load() != 0) std::this_thread::yield();
}
