// The monitoring path's rate control: a small libswresample stage of the render path's own, in
// the engine format, that the capture thread passes each packet through before the render
// device's conversion. The capture and render devices run on clocks of their own (a USB device
// may be 100 ppm off or more): with a fixed conversion the render queue slowly fills up (delay,
// then dropped audio) or runs dry (underruns). The stage produces a little more or fewer frames
// than come in (swr_set_compensation), as its depth controller decides from what the render
// thread finds at each refill (MonitorDepthControl.h: the filter, the target, the bounds). The
// render resampler is never touched, and the queue's rules (its bound, the newest audio dropped
// when full, the oldest played first) stay as they are.
//
// Threads: made and freed by the host's thread (CAudioCapture::InstallRenderConversion); used
// by the render thread (ObserveRefill) and the capture thread (Process), each under the
// capture engine's packet lock. Both read the performance counter, which waits on nothing.
// Allocates nothing after Create: its buffers and the resampler's are sized and warmed there.
//
// Off when the environment variable ZQ_MONITOR_RATE_CONTROL is "0" (or "off"): the capture
// thread then forwards packets exactly as converted, as before this stage existed.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "audio/MonitorDepthControl.h"
#include "audio/ResamplerSetup.h"
#include "zqPlatform.h"

class CMonitorRateControl {
public:
    // The name of the environment variable that turns the stage off.
    static constexpr const char* kDisableVariable = "ZQ_MONITOR_RATE_CONTROL";
    // Whether the environment leaves the stage on (the default).
    static bool Enabled();
    // A stage for queues of the render device with this mix format; null when it is off or its
    // resampler cannot be made (packets then pass as they are).
    static std::unique_ptr<CMonitorRateControl> Create(const WAVEFORMATEX& renderFormat);

    // Render thread, at each refill: devicePadding frames still in its device, queued frames
    // waiting for it. Says what to drop from the queue first, and whether to play at all.
    CMonitorDepthControl::Refill ObserveRefill(size_t devicePadding, size_t queued);
    // Capture thread: passes count engine-format frames through the stage; returns the frames
    // produced (in *output, valid until the next call), or -1 when the conversion failed.
    // recordedAt: the packet's stamp from IAudioCaptureClient::GetBuffer (performance counter
    // in 100-ns units, when its first frame was recorded; 0 or implausible: now is taken).
    int Process(const float* engineFrames, int count, UINT64 recordedAt, const float** output);

    // The controller's state (correction, cushion, target), for tests and benchmarks.
    const CMonitorDepthControl& Control() const { return m_control; }
    // The correction in force, in parts per million (positive: more frames than came in).
    double CorrectionPpm() const { return m_control.CorrectionPpm(); }

private:
    CMonitorRateControl(SwrContextPtr context, uint32_t renderRate);
    // The performance counter in seconds; its frequency, fixed at boot, is read once, at Create.
    static double CounterTicksPerSecond();
    double Now() const;
    // The stage's conversion alone, for at most kMaxPacketFrames frames.
    int Convert(const float* engineFrames, int frames, const float** output);

    SwrContextPtr m_pContext;
    std::vector<float> m_vecOutput;
    CMonitorDepthControl m_control;
    const double m_dCounterTicksPerSecond;
    int m_nCompensation = 0;  // the compensation set, in frames per kCompensationDistance
};
