// The capture and render resampler set-up: the options taken from a mix format, the log
// block, the verdict on formats the resampler refuses, and real conversions.
#include <gtest/gtest.h>

#include <cctype>
#include <ostream>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include "audio/FormatNames.h"
#include "audio/ResamplerSetup.h"
#include "log_recorder.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/debug_output.h"

namespace {

using zqtest::LogRecorder;

WAVEFORMATEX MixFormat(WORD tag, WORD channels, DWORD rate, WORD bits) {
    WAVEFORMATEX f = {};
    f.wFormatTag = tag;
    f.nChannels = channels;
    f.nSamplesPerSec = rate;
    f.wBitsPerSample = bits;
    f.nBlockAlign = static_cast<WORD>(channels * bits / 8);
    f.nAvgBytesPerSec = rate * f.nBlockAlign;
    return f;
}

// The eight options as the context holds them, in the order of the log block.
struct Options {
    int64_t inChannels = -1, outChannels = -1, inLayout = -1, outLayout = -1, inRate = -1, outRate = -1;
    AVSampleFormat inFormat = AV_SAMPLE_FMT_NB, outFormat = AV_SAMPLE_FMT_NB;
    bool operator==(const Options&) const = default;
};

void PrintTo(const Options& o, std::ostream* os) {
    *os << "{channels " << o.inChannels << " -> " << o.outChannels << ", layouts 0x" << std::hex << o.inLayout
        << " -> 0x" << o.outLayout << std::dec << ", rates " << o.inRate << " -> " << o.outRate << ", formats "
        << o.inFormat << " -> " << o.outFormat << "}";
}

Options ReadOptions(SwrContext* context) {
    Options o;
#if ZQ_SWR_CHLAYOUT_OPTIONS
    AVChannelLayout in = {}, out = {};
    EXPECT_GE(av_opt_get_chlayout(context, "in_chlayout", 0, &in), 0);
    EXPECT_GE(av_opt_get_chlayout(context, "out_chlayout", 0, &out), 0);
    o.inChannels = in.nb_channels;
    o.outChannels = out.nb_channels;
    o.inLayout = in.order == AV_CHANNEL_ORDER_NATIVE ? static_cast<int64_t>(in.u.mask) : 0;
    o.outLayout = out.order == AV_CHANNEL_ORDER_NATIVE ? static_cast<int64_t>(out.u.mask) : 0;
    av_channel_layout_uninit(&in);
    av_channel_layout_uninit(&out);
#else
    EXPECT_GE(av_opt_get_int(context, "in_channel_count", 0, &o.inChannels), 0);
    EXPECT_GE(av_opt_get_int(context, "out_channel_count", 0, &o.outChannels), 0);
    EXPECT_GE(av_opt_get_int(context, "in_channel_layout", 0, &o.inLayout), 0);
    EXPECT_GE(av_opt_get_int(context, "out_channel_layout", 0, &o.outLayout), 0);
#endif
    EXPECT_GE(av_opt_get_int(context, "in_sample_rate", 0, &o.inRate), 0);
    EXPECT_GE(av_opt_get_int(context, "out_sample_rate", 0, &o.outRate), 0);
    EXPECT_GE(av_opt_get_sample_fmt(context, "in_sample_fmt", 0, &o.inFormat), 0);
    EXPECT_GE(av_opt_get_sample_fmt(context, "out_sample_fmt", 0, &o.outFormat), 0);
    return o;
}

class ResamplerSetup : public ::testing::Test {
protected:
    LogRecorder recorder;
    CZQCoreAudio core;
    zqvm::DebugOutputRecorder debugOutput;
    void SetUp() override { core.SetLog(&recorder.Log()); }
    void TearDown() override { core.SetLog(nullptr); }

    SwrContextPtr Capture(const WAVEFORMATEX& mix, HRESULT expected) {
        SwrContext* raw = nullptr;
        EXPECT_EQ(CreateCaptureResampler(&mix, &raw), expected);
        return SwrContextPtr(raw);
    }
    SwrContextPtr Render(const WAVEFORMATEX& mix, int expected) {
        SwrContext* raw = nullptr;
        EXPECT_EQ(CreateRenderResampler(&mix, &raw), expected);
        return SwrContextPtr(raw);
    }
};

TEST_F(ResamplerSetup, A44100HzStereoFloatCaptureDeviceIsConvertedToTheEngineFormat) {
    const SwrContextPtr context = Capture(MixFormat(WAVE_FORMAT_IEEE_FLOAT, 2, 44100, 32), S_OK);
    ASSERT_NE(context, nullptr);
    EXPECT_GT(swr_is_initialized(context.get()), 0);
    EXPECT_EQ(ReadOptions(context.get()), (Options{2, 2, 3, 3, 44100, 48000, AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_FLT}));

    EXPECT_EQ(recorder.Texts(), (std::vector<std::wstring>{
                                    L"AudioCapture: Initialize capture resampler...",
                                    L">>   in_channel_count: 2",
                                    L">>  out_channel_count: 2",
                                    L">>  in_channel_layout: AV_CH_LAYOUT_STEREO - 2 channels",
                                    L">> out_channel_layout: AV_CH_LAYOUT_STEREO",
                                    L">>     in_sample_rate: 44100",
                                    L">>    out_sample_rate: 48000",
                                    L">>      in_sample_fmt: AV_SAMPLE_FMT_FLT - float",
                                    L">>     out_sample_fmt: AV_SAMPLE_FMT_FLT",
                                    L"Initialize CAPTURE resampler context swr_init ...",
                                    L"swr_is_initialized - OK",
                                }));
    for (const auto& e : recorder.Events()) EXPECT_EQ(e.type, zqLogEventInfo);
    EXPECT_TRUE(debugOutput.Texts().empty());
}

TEST_F(ResamplerSetup, ARenderDeviceTakesTheEngineFormatAndLogsItsOwnBlock) {
    const SwrContextPtr context = Render(MixFormat(WAVE_FORMAT_PCM, 6, 44100, 16), 0);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(ReadOptions(context.get()),
              (Options{2, 6, 3, CA2SWR_chlayout(6), 48000, 44100, AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_S16}));

    EXPECT_EQ(recorder.Texts(), (std::vector<std::wstring>{
                                    L"Initialize render resampler...",
                                    L">>   in_channel_count: 2",
                                    L">>  out_channel_count: 6",
                                    L">>  in_channel_layout: AV_CH_LAYOUT_STEREO",
                                    L">> out_channel_layout: AV_CH_LAYOUT_HEXAGONAL - 6 channels",
                                    L">>     in_sample_rate: 48000",
                                    L">>    out_sample_rate: 44100",
                                    L">>      in_sample_fmt: AV_SAMPLE_FMT_FLT",
                                    L">>     out_sample_fmt: AV_SAMPLE_FMT_S16 - signed 16 bits ",
                                    L"AudioRender: Initialize RENDER resampler context swr_init ...",
                                }));
}

// Packed 24-bit samples have no interleaved FFmpeg format; a rate or a channel count of 0 is
// refused by swr_init itself. Each ends the same way.
TEST_F(ResamplerSetup, FormatsTheResamplerRefusesAreReportedAndTheContextIsStillHandedOver) {
    for (const WAVEFORMATEX& mix : {MixFormat(WAVE_FORMAT_IEEE_FLOAT, 2, 0, 32),
                                    MixFormat(WAVE_FORMAT_IEEE_FLOAT, 0, 48000, 32),
                                    MixFormat(WAVE_FORMAT_PCM, 2, 48000, 24)}) {
        // Copies: the format's fields are packed, too loosely aligned to be bound by reference.
        const unsigned channels = mix.nChannels, rate = mix.nSamplesPerSec, bits = mix.wBitsPerSample;
        SCOPED_TRACE(testing::Message() << channels << " channels, " << rate << " Hz, " << bits << " bits");
        recorder.Clear();
        debugOutput.Clear();
        const SwrContextPtr capture = Capture(mix, E_FAIL);
        const SwrContextPtr render = Render(mix, -1);
        ASSERT_NE(capture, nullptr);
        ASSERT_NE(render, nullptr);
        EXPECT_EQ(swr_is_initialized(capture.get()), 0);
        EXPECT_EQ(swr_is_initialized(render.get()), 0);

        EXPECT_FALSE(recorder.Contains(L"swr_is_initialized - OK"));
        std::vector<std::wstring> errors;
        for (const auto& e : recorder.Events()) {
            if (e.type == zqLogEventError) errors.push_back(e.text);
        }
        EXPECT_EQ(errors, (std::vector<std::wstring>{L"Resampler CAPTURE has not been properly initialized",
                                                     L"Resampler RENDER has not been properly initialized"}));
        EXPECT_EQ(debugOutput.Texts(),
                  (std::vector<std::wstring>{L"Resampler CAPTURE has not been properly initialized\n",
                                             L"Resampler RENDER has not been properly initialized\n"}));

        // Such a context converts nothing: the capture thread skips the packet.
        float frame[2] = {};
        float out[16] = {};
        const uint8_t* in[1] = {reinterpret_cast<const uint8_t*>(frame)};
        uint8_t* dst[1] = {reinterpret_cast<uint8_t*>(out)};
        EXPECT_LT(swr_convert(capture.get(), dst, 8, in, 1), 0);
    }
    // The last, packed 24 bits, is logged as no format at all.
    EXPECT_TRUE(recorder.Contains(L">>      in_sample_fmt: AV_SAMPLE_FMT_NONE"));
    EXPECT_TRUE(recorder.Contains(L">>     out_sample_fmt: AV_SAMPLE_FMT_NONE"));
}

TEST_F(ResamplerSetup, NullArgumentsAreRefusedWithoutLogging) {
    SwrContext* raw = reinterpret_cast<SwrContext*>(uintptr_t{1});
    EXPECT_EQ(CreateCaptureResampler(nullptr, &raw), E_POINTER);
    EXPECT_EQ(raw, nullptr);
    const WAVEFORMATEX mix = MixFormat(WAVE_FORMAT_IEEE_FLOAT, 2, 48000, 32);
    EXPECT_EQ(CreateCaptureResampler(&mix, nullptr), E_POINTER);
    EXPECT_EQ(CreateRenderResampler(nullptr, &raw), -1);
    EXPECT_EQ(CreateRenderResampler(&mix, nullptr), -1);
    EXPECT_TRUE(recorder.Texts().empty());
}

// Devices of 1 to 8 channels, 5 and 7 included, open in both directions. (What the capture side
// makes of each channel count is checked through the capture engine.)
TEST_F(ResamplerSetup, OneToEightChannelsOpenBothWays) {
    for (WORD channels = 1; channels <= 8; ++channels) {
        SCOPED_TRACE(testing::Message() << channels << " channels");
        const WAVEFORMATEX mix = MixFormat(WAVE_FORMAT_IEEE_FLOAT, channels, 48000, 32);
        EXPECT_NE(Render(mix, 0), nullptr);
        EXPECT_NE(Capture(mix, S_OK), nullptr);
    }
    EXPECT_TRUE(recorder.TextsContaining(L"has not been properly initialized").empty());
}

TEST(ResamplerSetupWithoutCore, WorksWithoutACoreObject) {
    CZQCoreAudio* const saved = g_pCore;
    g_pCore = nullptr;
    const WAVEFORMATEX mix = MixFormat(WAVE_FORMAT_PCM, 1, 16000, 16);
    SwrContext* raw = nullptr;
    EXPECT_EQ(CreateCaptureResampler(&mix, &raw), S_OK);
    SwrContextPtr capture(raw);
    EXPECT_EQ(CreateRenderResampler(&mix, &raw), 0);
    SwrContextPtr render(raw);
    g_pCore = saved;
}

// The name tables, checked against FFmpeg's own names and channel counts.
TEST(FormatNames, SampleFormatNamesFollowFFmpegsFormatsAndOthersAreEmpty) {
    for (int f = AV_SAMPLE_FMT_U8; f <= AV_SAMPLE_FMT_S64P; ++f) {
        std::wstring expected = L"AV_SAMPLE_FMT_";
        for (const char* c = av_get_sample_fmt_name(static_cast<AVSampleFormat>(f)); *c; ++c) {
            expected += static_cast<wchar_t>(std::toupper(static_cast<unsigned char>(*c)));
        }
        const std::wstring name = SampleFormatName(f);
        EXPECT_EQ(name.substr(0, expected.size() + 1), expected + L" ") << name;
    }
    EXPECT_STREQ(SampleFormatName(AV_SAMPLE_FMT_DBLP), L"AV_SAMPLE_FMT_DBLP -double, planar");
    EXPECT_STREQ(SampleFormatName(-2), L"");
    EXPECT_STREQ(SampleFormatName(12), L"");
}

TEST(FormatNames, LayoutNamesStateTheChannelCountOfTheirMask) {
    for (int channels : {1, 2, 4, 6, 8}) {
        const int64_t mask = CA2SWR_chlayout(channels);
        const std::wstring name = ChannelLayoutName(mask);
        ASSERT_FALSE(name.empty()) << channels;
        EXPECT_NE(name.find(L" - " + std::to_wstring(channels) + L" channel"), std::wstring::npos) << name;
        AVChannelLayout layout = {};
        ASSERT_EQ(av_channel_layout_from_mask(&layout, static_cast<uint64_t>(mask)), 0);
        EXPECT_EQ(layout.nb_channels, channels);
        char described[64] = {};
        ASSERT_GT(av_channel_layout_describe(&layout, described, sizeof(described)), 0);
        std::wstring expected = L"AV_CH_LAYOUT_";
        for (const char* c = described; *c; ++c) expected += static_cast<wchar_t>(std::toupper(static_cast<unsigned char>(*c)));
        EXPECT_EQ(name.substr(0, expected.size() + 1), expected + L" ") << name;
    }
    EXPECT_STREQ(ChannelLayoutName(0x7), L"");
    EXPECT_STREQ(ChannelLayoutName(0), L"");
}

}  // namespace
