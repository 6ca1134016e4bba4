// The maker's conversions for the resampler: the interleaved FFmpeg sample format of a mix
// format, and a channel-layout mask for a channel count.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>

extern "C" {
#include <libavutil/channel_layout.h>
}

#include "zqPlatform.h"

namespace {

WAVEFORMATEXTENSIBLE Extensible(const GUID& subFormat, WORD container, WORD valid) {
    WAVEFORMATEXTENSIBLE f = {};
    f.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    f.Format.nChannels = 2;
    f.Format.nSamplesPerSec = 48000;
    f.Format.wBitsPerSample = container;
    f.Format.nBlockAlign = static_cast<WORD>(2 * container / 8);
    f.Format.nAvgBytesPerSec = 48000u * f.Format.nBlockAlign;
    f.Format.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
    f.Samples.wValidBitsPerSample = valid;
    f.dwChannelMask = SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT;
    f.SubFormat = subFormat;
    return f;
}

AVSampleFormat Plain(WORD tag, WORD bits) {
    WAVEFORMATEX f = {};
    f.wFormatTag = tag;
    f.nChannels = 2;
    f.nSamplesPerSec = 44100;
    f.wBitsPerSample = bits;
    return GetSampleFormat(&f);
}

TEST(GetSampleFormat, PlainFormatsByTypeAndWidth) {
    EXPECT_EQ(Plain(WAVE_FORMAT_IEEE_FLOAT, 32), AV_SAMPLE_FMT_FLT);
    EXPECT_EQ(Plain(WAVE_FORMAT_IEEE_FLOAT, 64), AV_SAMPLE_FMT_DBL);
    EXPECT_EQ(Plain(WAVE_FORMAT_IEEE_FLOAT, 16), AV_SAMPLE_FMT_NONE);
    EXPECT_EQ(Plain(WAVE_FORMAT_PCM, 8), AV_SAMPLE_FMT_U8);
    EXPECT_EQ(Plain(WAVE_FORMAT_PCM, 16), AV_SAMPLE_FMT_S16);
    EXPECT_EQ(Plain(WAVE_FORMAT_PCM, 32), AV_SAMPLE_FMT_S32);
    EXPECT_EQ(Plain(WAVE_FORMAT_PCM, 24), AV_SAMPLE_FMT_NONE);  // packed 24: no FFmpeg format
    EXPECT_EQ(Plain(WAVE_FORMAT_PCM, 64), AV_SAMPLE_FMT_NONE);
    EXPECT_EQ(Plain(0x0002 /* ADPCM */, 16), AV_SAMPLE_FMT_NONE);
    EXPECT_EQ(GetSampleFormat(nullptr), AV_SAMPLE_FMT_NONE);
}

TEST(GetSampleFormat, ExtensibleFormatsBySubFormatAndContainerWidth) {
    auto of = [](const WAVEFORMATEXTENSIBLE& f) { return GetSampleFormat(&f.Format); };
    EXPECT_EQ(of(Extensible(KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, 32, 32)), AV_SAMPLE_FMT_FLT);
    EXPECT_EQ(of(Extensible(KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, 64, 64)), AV_SAMPLE_FMT_DBL);
    EXPECT_EQ(of(Extensible(KSDATAFORMAT_SUBTYPE_PCM, 16, 16)), AV_SAMPLE_FMT_S16);
    EXPECT_EQ(of(Extensible(KSDATAFORMAT_SUBTYPE_PCM, 32, 24)), AV_SAMPLE_FMT_S32);  // 24 in 32
    EXPECT_EQ(of(Extensible(KSDATAFORMAT_SUBTYPE_PCM, 32, 32)), AV_SAMPLE_FMT_S32);
    EXPECT_EQ(of(Extensible(KSDATAFORMAT_SUBTYPE_PCM, 24, 24)), AV_SAMPLE_FMT_NONE);
    EXPECT_EQ(of(Extensible(KSDATAFORMAT_SUBTYPE_PCM, 8, 8)), AV_SAMPLE_FMT_U8);

    GUID unknown = KSDATAFORMAT_SUBTYPE_PCM;
    unknown.Data1 = 0x0092;  // Dolby AC-3 over S/PDIF
    EXPECT_EQ(of(Extensible(unknown, 16, 16)), AV_SAMPLE_FMT_NONE);

    // A tag that claims the extension without the bytes of it is not read beyond its end.
    auto truncated = Extensible(KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, 32, 32);
    truncated.Format.cbSize = 0;
    EXPECT_EQ(of(truncated), AV_SAMPLE_FMT_NONE);
}

TEST(GetSampleFormat, AnUnalignedExtensibleFormatIsRead) {
    alignas(8) unsigned char storage[sizeof(WAVEFORMATEXTENSIBLE) + 1];
    const auto f = Extensible(KSDATAFORMAT_SUBTYPE_PCM, 16, 16);
    std::memcpy(storage + 1, &f, sizeof(f));
    EXPECT_EQ(GetSampleFormat(reinterpret_cast<const WAVEFORMATEX*>(storage + 1)), AV_SAMPLE_FMT_S16);
}

TEST(CA2SWR_chlayout, EveryCountGetsAMaskWithThatManyChannels) {
    EXPECT_EQ(CA2SWR_chlayout(1), AV_CH_LAYOUT_MONO);
    EXPECT_EQ(CA2SWR_chlayout(2), AV_CH_LAYOUT_STEREO);
    EXPECT_EQ(CA2SWR_chlayout(4), AV_CH_LAYOUT_QUAD);
    EXPECT_EQ(CA2SWR_chlayout(5), AV_CH_LAYOUT_5POINT0_BACK);  // left and right in pairs
    EXPECT_EQ(CA2SWR_chlayout(6), AV_CH_LAYOUT_HEXAGONAL);
    EXPECT_EQ(CA2SWR_chlayout(7), AV_CH_LAYOUT_7POINT0);
    EXPECT_EQ(CA2SWR_chlayout(8), AV_CH_LAYOUT_OCTAGONAL);
    for (int n = 1; n <= 63; ++n) {
        EXPECT_EQ(std::popcount(static_cast<uint64_t>(CA2SWR_chlayout(n))), n) << n;
    }
    EXPECT_EQ(CA2SWR_chlayout(0), 0);
    EXPECT_EQ(CA2SWR_chlayout(-1), 0);
    EXPECT_EQ(CA2SWR_chlayout(64), 0);
}

}  // namespace
