// Names of FFmpeg sample formats and channel layouts, as the resampler set-up logs them.
#pragma once

#include <cstdint>

// The name of an AVSampleFormat value (AV_SAMPLE_FMT_NONE through AV_SAMPLE_FMT_S64P); an
// empty text for any other value. Never null.
const wchar_t* SampleFormatName(int nFormat);
// The name of one of the layout masks CA2SWR_chlayout gives for 1, 2, 4, 6 and 8 channels; an
// empty text for any other mask. Never null.
const wchar_t* ChannelLayoutName(int64_t nLayout);
