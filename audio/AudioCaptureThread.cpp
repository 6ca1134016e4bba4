// The capture thread: one packet per samples-ready event. It duplicates the first channel of
// each frame, converts the packet to the engine format for the analyzer buffers, and converts it
// once more with the render engine's resampler into the queue the render thread plays from.
// Once streaming it allocates nothing: every buffer was sized when the device opened.
#include <algorithm>
#include <cstring>

extern "C" {
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

#include "audio/AudioCapture.h"
#include "audio/EngineFormat.h"
#include "audio/StreamFailureWatch.h"
#include "audio/StreamThread.h"
#include "zqCoreAudio.h"

namespace {

// Grows a scratch buffer; only a packet larger than any before gets here, never the steady state.
template <typename T>
T* Reserve(std::vector<T>& buffer, size_t elements) {
    if (buffer.size() < elements) buffer.resize(elements);
    return buffer.data();
}

bool IsUsable(SwrContext* context) { return context != nullptr && swr_is_initialized(context) > 0; }

}  // namespace

DWORD WINAPI CAudioCapture::WASAPICaptureThread(LPVOID pContext) {
    return RunStreamThread([](void* engine) { static_cast<CAudioCapture*>(engine)->CaptureLoop(); }, pContext,
                           L"AudioCapture: WASAPICaptureThread end of thread");
}

void CAudioCapture::CaptureLoop() {
    const HANDLE waits[2] = {m_CaptureShutdownEvent.get(), m_CaptureAudioSamplesReadyEvent.get()};
    CStreamFailureWatch watch(L"AudioCapture: the capture stream keeps failing (%s: %x); the host is told to rebuild it",
                              WM_AUDIO_DEVICE_CHANGED);
    for (;;) {
        const DWORD woken = WaitForMultipleObjects(2, waits, FALSE, INFINITE);
        if (woken == WAIT_OBJECT_0) return;
        if (woken != WAIT_OBJECT_0 + 1) continue;

        if (m_nUnreleasedFrames && SUCCEEDED(m_spCaptureClient->ReleaseBuffer(*m_nUnreleasedFrames))) {
            m_nUnreleasedFrames.reset();
        }
        BYTE* data = nullptr;
        UINT32 frames = 0;
        DWORD flags = 0;
        UINT64 recordedAt = 0;  // performance counter, 100-ns units: the packet's first frame
        // A device that was pulled fails here and signals no more: the thread then just waits
        // for its shutdown event.
        const HRESULT got = m_spCaptureClient->GetBuffer(&data, &frames, &flags, nullptr, &recordedAt);
        if (FAILED(got)) {
            watch.Failed(L"IAudioCaptureClient::GetBuffer", got);
            continue;
        }
        watch.Passed();

        const UINT32 usable = m_nFrameSize == 0 ? 0 : std::min<UINT32>(frames, m_nBufferFrames / static_cast<UINT32>(m_nFrameSize));
        if (usable != 0 && (flags & AUDCLNT_BUFFERFLAGS_SILENT) == 0 && data != nullptr) ProcessPacket(data, frames, recordedAt);
        const HRESULT hr = m_spCaptureClient->ReleaseBuffer(frames);
        if (FAILED(hr)) {
            g_pCore->LogError(L"Unable to release capture buffer: %x!\n", hr);
            m_nUnreleasedFrames = frames;
        }
    }
}

void CAudioCapture::ProcessPacket(const BYTE* data, UINT32 frames, UINT64 recordedAt) {
    COwnedCriticalSection::scoped_lock lock(m_csPacket);
    // Every channel of the copy carries the first channel of the frame, in the device's sample
    // format, so the capture resampler (configured from the mix format) reads it as it expects,
    // and never more than frames x frame size bytes of the packet are read.
    const WAVEFORMATEX* mix = m_pCaptureMixFormat.get();
    const size_t sampleBytes = mix->wBitsPerSample / 8;
    const size_t channels = mix->nChannels;
    BYTE* copy = Reserve(m_vecPacketCopy, static_cast<size_t>(frames) * channels * sampleBytes);
    for (UINT32 i = 0; i < frames; ++i) {
        const BYTE* first = data + static_cast<size_t>(i) * m_nFrameSize;
        for (size_t c = 0; c < channels; ++c) std::memcpy(copy + (i * channels + c) * sampleBytes, first, sampleBytes);
    }

    if (!g_pCore->IsBypass()) return;
    SwrContext* context = m_pResamplerContext.get();
    if (!IsUsable(context)) return;  // a refused format: every conversion is skipped

    const int64_t capacity =
        av_rescale_rnd(swr_get_delay(context, ENGINE_SAMPLE_RATE) + 480, ENGINE_SAMPLE_RATE, ENGINE_SAMPLE_RATE, AV_ROUND_UP);
    float* engineFrames = Reserve(m_vecEngineFrames, static_cast<size_t>(capacity) * ENGINE_CHANNELS);
    uint8_t* out[1] = {reinterpret_cast<uint8_t*>(engineFrames)};
    const uint8_t* in[1] = {copy};
    const int count = swr_convert(context, out, static_cast<int>(capacity), in, static_cast<int>(frames));
    if (count < 0) return;

    m_AudioSharedCapture.WritePacket(engineFrames, static_cast<uint32_t>(count));
    m_AudioSharedRender.WritePacket(engineFrames, static_cast<uint32_t>(count));
    ForwardToRender(engineFrames, count, recordedAt);
}

// With m_csPacket held: the render engine installs and withdraws its conversion under the same
// lock.
void CAudioCapture::ForwardToRender(const float* engineFrames, int count, UINT64 recordedAt) {
    ZQ_ASSERT_HELD(m_csPacket);
    const WAVEFORMATEX* mix = m_pRenderFormat;
    SwrContext* context = m_pRenderResampler;
    if (mix == nullptr || !IsUsable(context)) return;
    // The queue holds the render device's own frames, so its frame size is the device's.
    const size_t blockAlign = mix->nBlockAlign;
    if (m_pRateControl != nullptr) {  // keeps the queue near its steady depth (MonitorRateControl.h)
        count = m_pRateControl->Process(engineFrames, count, recordedAt, &engineFrames);
        if (count < 0) return;
    }
    const int64_t capacity = av_rescale_rnd(count + swr_get_delay(context, ENGINE_SAMPLE_RATE),
                                            static_cast<int64_t>(mix->nSamplesPerSec), ENGINE_SAMPLE_RATE, AV_ROUND_UP);
    BYTE* renderFrames = Reserve(m_vecRenderFrames, static_cast<size_t>(capacity) * blockAlign);
    uint8_t* out[1] = {renderFrames};
    const uint8_t* in[1] = {reinterpret_cast<const uint8_t*>(engineFrames)};
    const int converted = swr_convert(context, out, static_cast<int>(capacity), in, count);
    if (converted < 0) return;
    const size_t bytes = static_cast<size_t>(converted) * blockAlign;
    const size_t queued = m_pSyncHost->Write(renderFrames, bytes);
    if (queued < bytes) m_nQueueDroppedFrames.fetch_add((bytes - queued) / blockAlign, std::memory_order_relaxed);
}
