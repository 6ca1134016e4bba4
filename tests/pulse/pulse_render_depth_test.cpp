// The depth a render stream reports is the time its audio still takes to be played: a frame
// written behind GetCurrentPadding frames of padding is heard padding / rate later, server and
// sink included, as on a desktop engine. Measured with clicks, written at known moments and
// found in the sink's monitor, whose frames are dated where the sink plays them.
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <thread>

#include "pulse_fixture.h"
#include "pulse_listening.h"
#include "zqplatform/vm/message_pump.h"

namespace zqtest::pulse {
namespace {

// Fills a stream with silence and, every `every` frames, a 1 ms click of 4 kHz; notes when each
// click was to be played by the padding it was written behind.
class ClickPlayer {
public:
    ClickPlayer(EventStream& stream, uint64_t every) : m_stream(stream), m_every(every) {
        m_render = m_stream.Get<IAudioRenderClient>();
        m_thread = std::thread([this] { Run(); });
    }
    ~ClickPlayer() {
        m_stop.store(true);
        m_thread.join();
    }
    std::vector<double> Due() const {
        std::lock_guard lock(m_lock);
        return m_due;
    }
    HRESULT LastError() const { return m_error.load(); }

private:
    void Run() {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        DWORD taskIndex = 0;
        HANDLE task = AvSetMmThreadCharacteristicsW(L"Audio", &taskIndex);
        const WAVEFORMATEX& format = *m_stream.format;
        const double rate = format.nSamplesPerSec;
        uint64_t frame = 0;
        while (!m_stop.load()) {
            if (WaitForSingleObject(m_stream.event, 100) != WAIT_OBJECT_0) continue;
            UINT32 padding = 0;
            HRESULT hr = m_stream.client->GetCurrentPadding(&padding);
            const double now = SteadySeconds();
            const UINT32 frames = SUCCEEDED(hr) ? m_stream.bufferFrames - padding : 0;
            BYTE* data = nullptr;
            if (SUCCEEDED(hr) && frames > 0) hr = m_render->GetBuffer(frames, &data);
            if (FAILED(hr)) {
                m_error.store(hr);
                continue;
            }
            if (frames == 0) continue;
            auto* samples = reinterpret_cast<float*>(data);
            std::memset(samples, 0, size_t{frames} * format.nBlockAlign);
            for (UINT32 i = 0; i < frames; ++i, ++frame) {
                const uint64_t at = frame % m_every;
                if (at == 0) {
                    std::lock_guard lock(m_lock);
                    m_due.push_back(now + (padding + i) / rate);
                }
                const float value = at < 48 ? 0.8f * static_cast<float>(std::sin(2.0 * M_PI * 4000.0 * at / rate)) : 0.0f;
                for (WORD c = 0; c < format.nChannels; ++c) samples[size_t{i} * format.nChannels + c] = value;
            }
            m_render->ReleaseBuffer(frames, 0);
        }
        if (task != nullptr) AvRevertMmThreadCharacteristics(task);
        CoUninitialize();
    }

    EventStream& m_stream;
    const uint64_t m_every;
    CComPtr<IAudioRenderClient> m_render;
    mutable std::mutex m_lock;
    std::vector<double> m_due;
    std::atomic<bool> m_stop{false};
    std::atomic<HRESULT> m_error{S_OK};
    std::thread m_thread;
};

class PulseRenderDepth : public PulseTest {};

TEST_F(PulseRenderDepth, AFrameIsPlayedAsLongAfterItsWritingAsThePaddingSaid) {
    CComPtr<IMMDevice> speaker = Device(L"speaker48");
    EventStream stream(speaker, 300000);
    ASSERT_EQ(S_OK, stream.opened);
    TimedRecorder listener("speaker48.monitor", 48000, 2, 4.0);
    ASSERT_TRUE(zqvm::PumpUntil([&] { return listener.Started(); }, 5000));
    ClickPlayer player(stream, 48000 / 4);
    ASSERT_EQ(S_OK, stream.client->Start());
    const TimedRecording heard = listener.Finish();
    EXPECT_EQ(S_OK, player.LastError());
    const std::vector<double> played = ClickOnsets(heard, 0, 0.1f, 4800);
    std::vector<double> errors;
    for (double due : player.Due()) {
        if (due < heard.TimeOf(48000)) continue;  // the first second is start-up
        const auto match = std::find_if(played.begin(), played.end(), [&](double t) { return t > due - 0.05; });
        if (match != played.end() && *match < due + 0.05) errors.push_back(*match - due);
    }
    ASSERT_GE(errors.size(), 8u) << player.Due().size() << " clicks written, " << played.size() << " heard";
    std::sort(errors.begin(), errors.end());
    std::printf("played minus due by the padding, over %zu clicks: %.1f to %.1f ms, median %.1f ms\n", errors.size(),
                errors.front() * 1e3, errors.back() * 1e3, errors[errors.size() / 2] * 1e3);
    RecordProperty("padding_error_median_ms", std::to_string(errors[errors.size() / 2] * 1e3));
    // Within a few milliseconds: the datings of the two clocks and the server's 5 ms blocks.
    EXPECT_NEAR(0.0, errors[errors.size() / 2], 0.004);
    stream.client->Stop();
}

}  // namespace
}  // namespace zqtest::pulse
