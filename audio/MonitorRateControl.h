// The monitoring path's rate control: a small libswresample stage of the render path's own, in
// the engine format, that the capture thread passes each packet through before the render
// device's conversion. It keeps the render queue near its steady depth: the capture and render
// devices run on clocks of their own (a USB device may be 100 ppm off or more), so with a fixed
// conversion the queue slowly fills up (delay, then dropped audio) or runs dry (underruns),
// and a backlog left by a held-up render thread would never drain.
//
// How: at each refill the render thread reports the depth it finds, the frames its device still
// holds plus those queued for it. Over every window of refills the smallest depth is compared
// with the depth the design's threads settle at (one device period: when the render thread
// wakes, the device has just taken the period it plays, and the next one waits) and a
// millisecond more, which a faster render clock eats into without running dry; the stage then produces proportionally more or fewer frames through
// swr_set_compensation, within a bound that keeps the pitch change small. The render
// resampler is never touched, the queue's rules (its bound, the newest audio dropped when
// full, the oldest played first) stay as they are, and nothing changes when the stream
// threads wake.
//
// Threads: made and freed by the host's thread (CAudioCapture::InstallRenderConversion); used
// by the render thread (ObserveDepth) and the capture thread (Process), each under the
// capture engine's packet lock. Allocates nothing after Create: its buffers and the
// resampler's are sized and warmed there.
//
// Off when the environment variable ZQ_MONITOR_RATE_CONTROL is "0" (or "off"): the capture
// thread then forwards packets exactly as converted, as before this stage existed.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

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

    // Render thread, at each refill: the frames its device holds plus the frames queued.
    void ObserveDepth(size_t depthFrames);
    // Capture thread: passes count engine-format frames through the stage; returns the frames
    // produced (in *output, valid until the next call), or -1 when the conversion failed.
    int Process(const float* engineFrames, int count, const float** output);

    // The correction in force, in parts per million (positive: more frames than came in).
    double CorrectionPpm() const { return m_dCorrectionPpm; }

    // Tuning, in render-device time. Public so that tests can reason about the bounds.
    static constexpr double kTargetDepthMs = 11.0;  // one 10 ms device period and a cushion
    static constexpr int kWindowRefills = 10;       // refills over which the smallest depth counts
    static constexpr double kGainPpmPerMs = 2000.0;        // correction per ms off the target
    static constexpr double kMaxCorrectionPpm = 20000.0;   // 2 %: a third of a semitone at most

private:
    CMonitorRateControl(SwrContextPtr context, uint32_t renderRate);
    void Correct(double depthMs);

    SwrContextPtr m_pContext;
    const double m_dRenderRate;
    std::vector<float> m_vecOutput;
    size_t m_nWindowMin = SIZE_MAX;
    int m_nWindowRefills = 0;
    double m_dWindowDepthMs = -1.0;  // a window's result the capture thread has yet to apply
    double m_dCorrectionPpm = 0.0;
};
