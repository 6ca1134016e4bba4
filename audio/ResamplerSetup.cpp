// The resampler set-up: option values from the mix format, the log block that records them,
// initialisation and its verdict.
#include "audio/ResamplerSetup.h"

#include <array>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include "audio/AudioLog.h"
#include "audio/EngineFormat.h"
#include "audio/FormatNames.h"

namespace {

struct StreamSide {
    int channels;
    int64_t layout;
    int rate;
    AVSampleFormat format;
};

// libswresample 4.5 brought the AVChannelLayout options ("in_chlayout", "out_chlayout"); from
// then on swr_set_matrix takes the size of the matrix from them, even while the count and mask
// options are the ones in use.
#define ZQ_SWR_HAS_CHLAYOUT (LIBSWRESAMPLE_VERSION_INT >= AV_VERSION_INT(4, 5, 100))

#if ZQ_SWR_HAS_CHLAYOUT
// The layout that a count and a mask mean together to the older options: the mask when it
// has that many channels; the bare count when there is no mask. A count and a mask that
// disagree give an empty layout, which swr_init refuses, as it refuses the disagreement.
AVChannelLayout MakeLayout(int channels, int64_t mask) {
    AVChannelLayout layout = {};
    if (mask != 0) {
        if (av_popcount64(static_cast<uint64_t>(mask)) == channels) {
            av_channel_layout_from_mask(&layout, static_cast<uint64_t>(mask));
        }
    } else if (channels > 0) {
        layout.order = AV_CHANNEL_ORDER_UNSPEC;
        layout.nb_channels = channels;
    }
    return layout;
}

// The two layouts through the AVChannelLayout options.
void SetLayoutOptions(SwrContext* context, const StreamSide& in, const StreamSide& out) {
    AVChannelLayout inLayout = MakeLayout(in.channels, in.layout);
    AVChannelLayout outLayout = MakeLayout(out.channels, out.layout);
    av_opt_set_chlayout(context, "in_chlayout", &inLayout, 0);
    av_opt_set_chlayout(context, "out_chlayout", &outLayout, 0);
    av_channel_layout_uninit(&inLayout);
    av_channel_layout_uninit(&outLayout);
}
#endif

// The eight options in their fixed order: counts, layouts, rates, formats; in before out.
void SetOptions(SwrContext* context, const StreamSide& in, const StreamSide& out) {
#if ZQ_SWR_CHLAYOUT_OPTIONS
    SetLayoutOptions(context, in, out);
#else
    av_opt_set_int(context, "in_channel_count", in.channels, 0);
    av_opt_set_int(context, "out_channel_count", out.channels, 0);
    av_opt_set_int(context, "in_channel_layout", in.layout, 0);
    av_opt_set_int(context, "out_channel_layout", out.layout, 0);
#endif
    av_opt_set_int(context, "in_sample_rate", in.rate, 0);
    av_opt_set_int(context, "out_sample_rate", out.rate, 0);
    av_opt_set_sample_fmt(context, "in_sample_fmt", in.format, 0);
    av_opt_set_sample_fmt(context, "out_sample_fmt", out.format, 0);
}

// The device's side of a resampler, read from its mix format.
StreamSide DeviceSide(const WAVEFORMATEX* pMixFormat) {
    return {pMixFormat->nChannels, CA2SWR_chlayout(pMixFormat->nChannels),
            static_cast<int>(pMixFormat->nSamplesPerSec), GetSampleFormat(pMixFormat)};
}

constexpr StreamSide kEngineSide = {ENGINE_CHANNELS, ENGINE_CHANNEL_LAYOUT, ENGINE_SAMPLE_RATE,
                                    static_cast<AVSampleFormat>(ENGINE_SAMPLE_FMT)};
static_assert(ENGINE_CHANNEL_LAYOUT == AV_CH_LAYOUT_STEREO && ENGINE_SAMPLE_FMT == AV_SAMPLE_FMT_FLT);

// A microphone with more than two channels: its first channel goes to the engine's left and
// right at unit gain, as a stereo microphone's does, and the others to nowhere. The capture
// thread carries the first channel in every channel of the packet, and the resampler's own
// down-mix would add those copies up (+4.6 dB from four channels, +11 dB from eight), so such a
// microphone would read louder than a stereo one and clip. Mono and stereo keep the resampler's
// own matrix. Set before swr_init, which then takes the matrix as it is.
void RouteFirstChannelOnly(SwrContext* context, const StreamSide& device) {
    constexpr int kMostChannels = 64;  // libswresample's own limit; swr_init refuses more
    if (device.channels <= ENGINE_CHANNELS || device.channels > kMostChannels) return;
#if ZQ_SWR_HAS_CHLAYOUT && !ZQ_SWR_CHLAYOUT_OPTIONS
    SetLayoutOptions(context, device, kEngineSide);  // the same layouts, where the matrix looks
#endif
    std::array<double, ENGINE_CHANNELS * kMostChannels> matrix = {};  // [out][in], stride = in count
    for (int out = 0; out < ENGINE_CHANNELS; ++out) matrix[static_cast<size_t>(out * device.channels)] = 1.0;
    const int result = swr_set_matrix(context, matrix.data(), device.channels);
    if (result < 0) {
        audiolog::Error(L"AudioCapture: Unable to take the first of %d channels alone: %d", device.channels, result);
    }
}

// swr_init, unless the device's sample format is none: libswresample (5.1 at least) accepts
// AV_SAMPLE_FMT_NONE and then divides by zero in the first swr_convert. Such a context is left
// uninitialised, as a refusing swr_init leaves it, so every conversion fails cleanly instead.
void Initialise(SwrContext* context, AVSampleFormat deviceFormat) {
    if (deviceFormat == AV_SAMPLE_FMT_NONE) return;
    swr_init(context);  // swr_is_initialized gives the verdict
}

}  // namespace

HRESULT CreateCaptureResampler(const WAVEFORMATEX* pMixFormat, SwrContext** ppContext) {
    if (ppContext == nullptr) return E_POINTER;
    *ppContext = nullptr;
    if (pMixFormat == nullptr) return E_POINTER;

    audiolog::Info(L"AudioCapture: Initialize capture resampler...");
    const StreamSide device = DeviceSide(pMixFormat);
    audiolog::Info(L">>   in_channel_count: %d", device.channels);
    audiolog::Info(L">>  out_channel_count: 2");
    audiolog::Info(L">>  in_channel_layout: %s", ChannelLayoutName(device.layout));
    audiolog::Info(L">> out_channel_layout: AV_CH_LAYOUT_STEREO");
    audiolog::Info(L">>     in_sample_rate: %d", device.rate);
    audiolog::Info(L">>    out_sample_rate: %d", ENGINE_SAMPLE_RATE);
    audiolog::Info(L">>      in_sample_fmt: %s", SampleFormatName(device.format));
    audiolog::Info(L">>     out_sample_fmt: AV_SAMPLE_FMT_FLT");

    SwrContext* context = swr_alloc();
    if (context != nullptr) {
        SetOptions(context, device, kEngineSide);
        RouteFirstChannelOnly(context, device);
        Initialise(context, device.format);
        audiolog::Info(L"Initialize CAPTURE resampler context swr_init ...");
    }
    *ppContext = context;
    if (context != nullptr && swr_is_initialized(context) > 0) {
        audiolog::Info(L"swr_is_initialized - OK");
        return S_OK;
    }
    OutputDebugStringW(L"Resampler CAPTURE has not been properly initialized\n");
    audiolog::Error(L"Resampler CAPTURE has not been properly initialized");
    return E_FAIL;
}

int CreateRenderResampler(const WAVEFORMATEX* pMixFormat, SwrContext** ppContext) {
    if (ppContext == nullptr) return -1;
    *ppContext = nullptr;
    if (pMixFormat == nullptr) return -1;

    audiolog::Info(L"Initialize render resampler...");
    const StreamSide device = DeviceSide(pMixFormat);
    audiolog::Info(L">>   in_channel_count: 2");
    audiolog::Info(L">>  out_channel_count: %d", device.channels);
    audiolog::Info(L">>  in_channel_layout: AV_CH_LAYOUT_STEREO");
    audiolog::Info(L">> out_channel_layout: %s", ChannelLayoutName(device.layout));
    audiolog::Info(L">>     in_sample_rate: 48000");
    audiolog::Info(L">>    out_sample_rate: %d", device.rate);
    audiolog::Info(L">>      in_sample_fmt: AV_SAMPLE_FMT_FLT");
    audiolog::Info(L">>     out_sample_fmt: %s", SampleFormatName(device.format));

    SwrContext* context = swr_alloc();
    if (context != nullptr) {
        SetOptions(context, kEngineSide, device);
        audiolog::Info(L"AudioRender: Initialize RENDER resampler context swr_init ...");
        Initialise(context, device.format);
    }
    *ppContext = context;
    if (context != nullptr && swr_is_initialized(context) > 0) return 0;
    OutputDebugStringW(L"Resampler RENDER has not been properly initialized\n");
    audiolog::Error(L"Resampler RENDER has not been properly initialized");
    return -1;
}

void SwrContextFree::operator()(SwrContext* pContext) const noexcept { swr_free(&pContext); }
