// The render thread: on each samples-ready event it moves as many queued frames as the device
// has room for, straight from the capture engine's queue into the device buffer. It writes no
// silence of its own: with nothing queued it leaves the device alone until the next event.
#include <algorithm>
#include <cstring>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio/StreamFailureWatch.h"
#include "audio/StreamThread.h"
#include "zqCoreAudio.h"

DWORD WINAPI CAudioRender::WASAPIRenderThread(LPVOID pContext) {
    return RunStreamThread(
        [](void* engine) { static_cast<CAudioRender*>(engine)->RenderLoop(g_pCore->GetCaptureEngine()); }, pContext,
        L"AudioRender: WASAPIRenderThread end of thread");
}

void CAudioRender::RenderLoop(CAudioCapture* capture) {
    const HANDLE waits[2] = {m_RenderShutdownEvent.get(), m_RenderAudioSamplesReadyEvent.get()};
    // The mix format does not change while the thread runs; the queue holds frames of its size.
    const size_t blockAlign = m_pRenderMixFormat ? m_pRenderMixFormat->nBlockAlign : 8;
    CStreamFailureWatch watch(L"AudioRender: the render stream keeps failing (%s: %x); the host is told to rebuild it",
                              WM_AUDIO_RENDER_CHANGED);
    for (;;) {
        const DWORD woken = WaitForMultipleObjects(2, waits, FALSE, INFINITE);
        if (woken == WAIT_OBJECT_0) return;
        if (woken != WAIT_OBJECT_0 + 1) continue;

        if (m_unreleased && SUCCEEDED(m_spRenderClient->ReleaseBuffer(m_unreleased->frames, m_unreleased->flags))) {
            m_unreleased.reset();
        }
        UINT32 queued = 0;
        UINT32 bufferFrames = 0;
        HRESULT hr = m_spRenderAudioClient->GetCurrentPadding(&queued);
        if (FAILED(hr)) {
            watch.Failed(L"IAudioClient::GetCurrentPadding", hr);
            continue;
        }
        hr = m_spRenderAudioClient->GetBufferSize(&bufferFrames);
        if (FAILED(hr)) {
            watch.Failed(L"IAudioClient::GetBufferSize", hr);
            continue;
        }
        const UINT32 free = bufferFrames > queued ? bufferFrames - queued : 0;
        if (free == 0 || capture == nullptr || blockAlign == 0) {
            watch.Passed();
            continue;
        }
        // Whether the device gave no buffer, and what GetBuffer said then.
        bool noBuffer = false;
        HRESULT got = S_OK;

        // One refill under the capture engine's packet lock: the capture thread queues more
        // only between refills.
        capture->WithQueue([&](CCircularBuffer& queue) {
            const CMonitorDepthControl::Refill refill = capture->NoteRefill(queue, queued, blockAlign);
            if (refill.hold) return;
            // Silence the rate control asks for goes ahead of the queued frames (zero bytes are
            // silence in every mix format the engine gives: float and signed integers).
            const UINT32 lead = static_cast<UINT32>(std::min<size_t>(free, refill.silenceFrames));
            const UINT32 frames =
                lead + std::min<UINT32>(free - lead, static_cast<UINT32>(queue.GetCount() / blockAlign));
            if (frames == 0) return;
            BYTE* data = nullptr;
            got = m_spRenderClient->GetBuffer(frames, &data);
            noBuffer = FAILED(got) || data == nullptr;
            if (noBuffer) return;
            std::memset(data, 0, static_cast<size_t>(lead) * blockAlign);
            queue.Read(data + static_cast<size_t>(lead) * blockAlign, static_cast<size_t>(frames - lead) * blockAlign);
            const DWORD flags = m_bMute.load(std::memory_order_relaxed) ? AUDCLNT_BUFFERFLAGS_SILENT : 0;
            if (FAILED(m_spRenderClient->ReleaseBuffer(frames, flags))) m_unreleased = Unreleased{frames, flags};
        });
        if (noBuffer) {
            watch.Failed(L"IAudioRenderClient::GetBuffer", got);
        } else {
            watch.Passed();
        }
    }
}
