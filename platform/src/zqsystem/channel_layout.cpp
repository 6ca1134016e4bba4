// CA2SWR_chlayout: a channel-layout mask for a channel count, as FFmpeg's resampler takes it.
#include "zqplatform/zqSystem.h"

__int64 CA2SWR_chlayout(int nChannels) {
    // FFmpeg's usual layouts for the counts endpoints commonly have: mono is front centre. The
    // resampler builds its matrices only for layouts whose left and right speakers come in pairs,
    // so 5 and 7 channels get the 5.0 (back) and 7.0 layouts, not the lowest five or seven bits
    // (those end on a lone back left or front left-of-centre, and swr_init refuses them).
    switch (nChannels) {
        case 1: return 0x4;    // mono
        case 2: return 0x3;    // stereo
        case 4: return 0x33;   // quad
        case 5: return 0x37;   // 5.0 (back)
        case 6: return 0x137;  // hexagonal
        case 7: return 0x637;  // 7.0
        case 8: return 0x737;  // octagonal
        default: break;
    }
    // Any other count: the lowest speaker bits, so the mask still has exactly that many.
    if (nChannels < 1 || nChannels > 63) return 0;
    return static_cast<__int64>((uint64_t{1} << nChannels) - 1);
}
