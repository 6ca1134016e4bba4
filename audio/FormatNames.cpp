// The two name tables of the resampler log block. The texts are part of the log that the
// maker's support reads; they are kept exactly, odd spacing included.
#include "audio/FormatNames.h"

#include <iterator>

namespace {

// Indexed by the AVSampleFormat value + 1.
const wchar_t* const kSampleFormatNames[13] = {
    L"AV_SAMPLE_FMT_NONE",
    L"AV_SAMPLE_FMT_U8 - unsigned 8 bits",
    L"AV_SAMPLE_FMT_S16 - signed 16 bits ",
    L"AV_SAMPLE_FMT_S32 - signed 32 bits",
    L"AV_SAMPLE_FMT_FLT - float",
    L"AV_SAMPLE_FMT_DBL - double",
    L"AV_SAMPLE_FMT_U8P - unsigned 8 bits, planar",
    L"AV_SAMPLE_FMT_S16P - signed 16 bits, planar",
    L"AV_SAMPLE_FMT_S32P - signed 32 bits, planar",
    L"AV_SAMPLE_FMT_FLTP - float, planar",
    L"AV_SAMPLE_FMT_DBLP -double, planar",
    L"AV_SAMPLE_FMT_S64 - signed 64 bits",
    L"AV_SAMPLE_FMT_S64P - signed 64 bits, planar",
};

struct LayoutName {
    int64_t mask;
    const wchar_t* name;
};
const LayoutName kChannelLayoutNames[] = {
    {0x3, L"AV_CH_LAYOUT_STEREO - 2 channels"},
    {0x4, L"AV_CH_LAYOUT_MONO - 1 channel"},
    {0x33, L"AV_CH_LAYOUT_QUAD - 4 channels"},
    {0x137, L"AV_CH_LAYOUT_HEXAGONAL - 6 channels"},
    {0x737, L"AV_CH_LAYOUT_OCTAGONAL - 8 channels"},
};

}  // namespace

const wchar_t* SampleFormatName(int nFormat) {
    constexpr int kLast = static_cast<int>(std::size(kSampleFormatNames)) - 2;
    if (nFormat < -1 || nFormat > kLast) return L"";
    return kSampleFormatNames[nFormat + 1];
}

const wchar_t* ChannelLayoutName(int64_t nLayout) {
    for (const auto& entry : kChannelLayoutNames) {
        if (entry.mask == nLayout) return entry.name;
    }
    return L"";
}
