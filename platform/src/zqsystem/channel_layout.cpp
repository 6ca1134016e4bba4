// CA2SWR_chlayout: a channel-layout mask for a channel count, as FFmpeg's resampler takes it.
#include "zqplatform/zqSystem.h"

__int64 CA2SWR_chlayout(int nChannels) {
    // FFmpeg's usual layouts for the counts endpoints commonly have: mono is front centre.
    switch (nChannels) {
        case 1: return 0x4;    // mono
        case 2: return 0x3;    // stereo
        case 4: return 0x33;   // quad
        case 6: return 0x137;  // hexagonal
        case 8: return 0x737;  // octagonal
        default: break;
    }
    // Any other count: the lowest speaker bits, so the mask still has exactly that many.
    if (nChannels < 1 || nChannels > 63) return 0;
    return static_cast<__int64>((uint64_t{1} << nChannels) - 1);
}
