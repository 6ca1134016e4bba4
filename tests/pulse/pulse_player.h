// A render stream played from a thread of its own, as the render thread plays it: one refill per
// event, as much as the buffer has room for, each frame's sample (the same on every channel)
// from a function of its number.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

#include "endpoint_queries.h"
#include "zqPlatform.h"

namespace zqtest::pulse {

class StreamPlayer {
public:
    using Signal = std::function<float(uint64_t frame, double rate)>;
    // Told at each refill, before its frames are written: the first frame's number, the count,
    // the padding it goes behind and the steady-clock time the padding was read.
    using Refill = std::function<void(uint64_t firstFrame, UINT32 frames, UINT32 padding, double when)>;

    StreamPlayer(EventStream& stream, Signal signal, Refill refill = {});
    ~StreamPlayer();
    StreamPlayer(const StreamPlayer&) = delete;
    StreamPlayer& operator=(const StreamPlayer&) = delete;
    HRESULT LastError() const { return m_error.load(); }

    // A sine of this frequency and amplitude.
    static Signal Sine(double frequency, float amplitude);

private:
    void Run();

    EventStream& m_stream;
    const Signal m_signal;
    const Refill m_refill;
    CComPtr<IAudioRenderClient> m_render;
    std::atomic<bool> m_stop{false};
    std::atomic<HRESULT> m_error{S_OK};
    std::thread m_thread;
};

}  // namespace zqtest::pulse
