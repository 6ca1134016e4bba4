// The monitoring path's rate control: see MonitorRateControl.h.
#include "audio/MonitorRateControl.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include "audio/EngineFormat.h"

namespace {

// The largest packet the stage takes in one call, in engine frames: a second, far beyond the
// capture device's 20 ms buffer. Its buffers are sized for it once, in Create.
constexpr int kMaxPacketFrames = ENGINE_SAMPLE_RATE;
// Compensation is spread over this many output frames; the step is 1 / distance, so this sets
// the resolution of the correction (0.1 ppm). It is set again long before it runs out.
constexpr int kCompensationDistance = ENGINE_SAMPLE_RATE * 200;
// Room for what the stage's filter holds back and the correction adds on top of a packet.
constexpr int kOutputSlackFrames = 256;

SwrContext* NewEngineFormatStage() {
    SwrContext* context = nullptr;
#if LIBSWRESAMPLE_VERSION_INT >= AV_VERSION_INT(4, 5, 100)
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    if (swr_alloc_set_opts2(&context, &stereo, AV_SAMPLE_FMT_FLT, ENGINE_SAMPLE_RATE, &stereo, AV_SAMPLE_FMT_FLT,
                            ENGINE_SAMPLE_RATE, 0, nullptr) < 0)
        return nullptr;
#else
    context = swr_alloc_set_opts(nullptr, ENGINE_CHANNEL_LAYOUT, AV_SAMPLE_FMT_FLT, ENGINE_SAMPLE_RATE,
                                 ENGINE_CHANNEL_LAYOUT, AV_SAMPLE_FMT_FLT, ENGINE_SAMPLE_RATE, 0, nullptr);
    if (context == nullptr) return nullptr;
#endif
    // Equal rates would make libswresample copy; compensation needs its resampler from the
    // start, or swr_set_compensation would build one on the capture thread.
    av_opt_set_int(context, "flags", SWR_FLAG_RESAMPLE, 0);
    if (swr_init(context) < 0) {
        swr_free(&context);
        return nullptr;
    }
    return context;
}

}  // namespace

bool CMonitorRateControl::Enabled() {
    const char* value = std::getenv(kDisableVariable);
    return value == nullptr || (std::strcmp(value, "0") != 0 && std::strcmp(value, "off") != 0);
}

std::unique_ptr<CMonitorRateControl> CMonitorRateControl::Create(const WAVEFORMATEX& renderFormat) {
    if (!Enabled() || renderFormat.nSamplesPerSec == 0) return nullptr;
    SwrContextPtr context(NewEngineFormatStage());
    if (!context) return nullptr;
    std::unique_ptr<CMonitorRateControl> stage(new CMonitorRateControl(std::move(context), renderFormat.nSamplesPerSec));
    // Let the resampler size its own buffers now, on the host's thread: a largest packet of
    // silence through it, and the compensation set once. What comes out is dropped; the
    // filter then holds a few frames of silence, which is what precedes the first packet anyway.
    std::vector<float> silence(static_cast<size_t>(kMaxPacketFrames) * ENGINE_CHANNELS, 0.0f);
    const float* out = nullptr;
    if (swr_set_compensation(stage->m_pContext.get(), 0, kCompensationDistance) < 0 ||
        stage->Convert(silence.data(), kMaxPacketFrames, &out) < 0)
        return nullptr;
    return stage;
}

CMonitorRateControl::CMonitorRateControl(SwrContextPtr context, uint32_t renderRate)
    : m_pContext(std::move(context)),
      m_vecOutput(static_cast<size_t>(kMaxPacketFrames + kOutputSlackFrames) * ENGINE_CHANNELS),
      m_control(renderRate, renderRate / 100),  // the device period: the streams' 10 ms
      m_dCounterTicksPerSecond(CounterTicksPerSecond()) {}

double CMonitorRateControl::CounterTicksPerSecond() {
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart > 0 ? static_cast<double>(frequency.QuadPart) : 0.0;
}

double CMonitorRateControl::Now() const {
    LARGE_INTEGER counter{};
    QueryPerformanceCounter(&counter);
    return m_dCounterTicksPerSecond > 0.0 ? static_cast<double>(counter.QuadPart) / m_dCounterTicksPerSecond : 0.0;
}

CMonitorDepthControl::Refill CMonitorRateControl::ObserveRefill(size_t devicePadding, size_t queued) {
    return m_control.OnRefill(Now(), devicePadding, queued);
}

int CMonitorRateControl::Process(const float* engineFrames, int count, UINT64 recordedAt, const float** output) {
    const int frames = std::min(count, kMaxPacketFrames);  // beyond the sizing: the rest is left out
    const double packetSeconds = static_cast<double>(frames) / ENGINE_SAMPLE_RATE;
    // The packet came in when the device had recorded it, however late this thread woke: that
    // time keeps the capture thread's wake-ups out of what the controller measures.
    const double now = Now();
    const double complete = static_cast<double>(recordedAt) * 1e-7 + packetSeconds;
    const bool plausible = recordedAt != 0 && complete <= now + 0.001 && complete >= now - 1.0;
    const double ppm = m_control.OnPacket(plausible ? complete : now, packetSeconds);
    const int compensation = static_cast<int>(std::lround(ppm * 1e-6 * kCompensationDistance));
    if (compensation != m_nCompensation && swr_set_compensation(m_pContext.get(), compensation, kCompensationDistance) == 0)
        m_nCompensation = compensation;
    return Convert(engineFrames, frames, output);
}

int CMonitorRateControl::Convert(const float* engineFrames, int frames, const float** output) {
    uint8_t* out[1] = {reinterpret_cast<uint8_t*>(m_vecOutput.data())};
    const uint8_t* in[1] = {reinterpret_cast<const uint8_t*>(engineFrames)};
    const int produced =
        swr_convert(m_pContext.get(), out, static_cast<int>(m_vecOutput.size() / ENGINE_CHANNELS), in, frames);
    *output = m_vecOutput.data();
    return produced;
}
