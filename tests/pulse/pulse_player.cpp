#include "pulse_player.h"

#include <chrono>
#include <cmath>

namespace zqtest::pulse {

StreamPlayer::StreamPlayer(EventStream& stream, Signal signal, Refill refill)
    : m_stream(stream), m_signal(std::move(signal)), m_refill(std::move(refill)) {
    m_render = m_stream.Get<IAudioRenderClient>();
    m_thread = std::thread([this] { Run(); });
}

StreamPlayer::~StreamPlayer() {
    m_stop.store(true);
    m_thread.join();
}

StreamPlayer::Signal StreamPlayer::Sine(double frequency, float amplitude) {
    return [frequency, amplitude](uint64_t frame, double rate) {
        return amplitude * static_cast<float>(std::sin(2.0 * M_PI * frequency * static_cast<double>(frame) / rate));
    };
}

void StreamPlayer::Run() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    DWORD taskIndex = 0;
    HANDLE task = AvSetMmThreadCharacteristicsW(L"Audio", &taskIndex);  // as the render thread
    const WAVEFORMATEX& format = *m_stream.format;
    const UINT32 bufferFrames = m_stream.bufferFrames;
    uint64_t frame = 0;
    while (!m_stop.load()) {
        if (WaitForSingleObject(m_stream.event, 100) != WAIT_OBJECT_0) continue;
        UINT32 padding = 0;
        HRESULT hr = m_stream.client->GetCurrentPadding(&padding);
        const double when = std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
        const UINT32 frames = SUCCEEDED(hr) ? bufferFrames - padding : 0;
        BYTE* data = nullptr;
        if (SUCCEEDED(hr) && frames > 0) hr = m_render->GetBuffer(frames, &data);
        if (FAILED(hr)) {
            m_error.store(hr);
            continue;
        }
        if (frames == 0) continue;
        if (m_refill) m_refill(frame, frames, padding, when);
        auto* samples = reinterpret_cast<float*>(data);
        for (UINT32 i = 0; i < frames; ++i, ++frame) {
            const float value = m_signal(frame, format.nSamplesPerSec);
            for (WORD c = 0; c < format.nChannels; ++c) samples[size_t{i} * format.nChannels + c] = value;
        }
        m_render->ReleaseBuffer(frames, 0);
    }
    if (task != nullptr) AvRevertMmThreadCharacteristics(task);
    CoUninitialize();
}

}  // namespace zqtest::pulse
