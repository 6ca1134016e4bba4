#include "audio/StreamFailureWatch.h"

#include "zqCoreAudio.h"

void CStreamFailureWatch::Failed(const wchar_t* call, HRESULT hr) {
    if (++m_nFailedWakeUps != kPersistentWakeUps) return;
    g_pCore->LogError(m_reportFormat, call, static_cast<unsigned int>(hr));
    PostMessageW(g_pCore->GetHwnd(), m_message, 0, 0);
}
