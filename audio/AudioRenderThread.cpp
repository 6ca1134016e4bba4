// The render thread: on each samples-ready event it moves as many queued frames as the device
// has room for, straight from the capture engine's queue into the device buffer. It writes no
// silence of its own: with nothing queued it leaves the device alone until the next event.
#include <algorithm>

#include "AudioCapture.h"
#include "AudioRender.h"
#include "zqCoreAudio.h"

DWORD WINAPI CAudioRender::WASAPIRenderThread(LPVOID pContext) {
    auto* engine = static_cast<CAudioRender*>(pContext);
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    DWORD taskIndex = 0;
    HANDLE mmcss = AvSetMmThreadCharacteristicsW(L"Audio", &taskIndex);
    engine->RenderLoop(g_pCore->GetCaptureEngine());
    if (mmcss != nullptr) AvRevertMmThreadCharacteristics(mmcss);
    CoUninitialize();
    g_pCore->LogInfo(L"AudioRender: WASAPIRenderThread end of thread");
    return 0;
}

void CAudioRender::RenderLoop(CAudioCapture* capture) {
    const HANDLE waits[2] = {m_RenderShutdownEvent, m_RenderAudioSamplesReadyEvent};
    // The mix format does not change while the thread runs; the queue holds frames of its size.
    const size_t blockAlign = m_pRenderMixFormat != nullptr ? m_pRenderMixFormat->nBlockAlign : 8;
    for (;;) {
        const DWORD woken = WaitForMultipleObjects(2, waits, FALSE, INFINITE);
        if (woken == WAIT_OBJECT_0) return;
        if (woken != WAIT_OBJECT_0 + 1) continue;

        UINT32 queued = 0;
        UINT32 bufferFrames = 0;
        if (FAILED(m_spRenderAudioClient->GetCurrentPadding(&queued))) continue;
        if (FAILED(m_spRenderAudioClient->GetBufferSize(&bufferFrames))) continue;
        const UINT32 free = bufferFrames > queued ? bufferFrames - queued : 0;
        if (free == 0 || capture == nullptr || blockAlign == 0) continue;

        Concurrency::critical_section::scoped_lock lock(capture->m_csPacket);
        const UINT32 frames =
            std::min<UINT32>(free, static_cast<UINT32>(capture->m_pSyncHost->GetCount() / blockAlign));
        if (frames == 0) continue;
        BYTE* data = nullptr;
        if (FAILED(m_spRenderClient->GetBuffer(frames, &data)) || data == nullptr) continue;
        capture->m_pSyncHost->Read(data, static_cast<size_t>(frames) * blockAlign);
        m_spRenderClient->ReleaseBuffer(frames, m_bMute.load(std::memory_order_relaxed) ? AUDCLNT_BUFFERFLAGS_SILENT : 0);
    }
}
