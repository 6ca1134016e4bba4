// One side of the analyzer (input or output): its feed and its arrays, so that the tick's
// steps are written once for both sides.
#pragma once

#include "analysis/AudioAnalyzer.h"
#include "audio/AudioCapture.h"

struct CAudioAnalyzer::Side {
    bool bOutput;                                    // the output side differs in the hold view
    CAudioCapture::Feed feed;                        // the capture engine's feed of this side
    std::span<float> samples;
    CPeakHistory& dataPeak;
    std::span<float> windowed;
    std::span<float> re;
    std::span<float> im;
    std::span<float> power;
    std::span<float> history;
    int& historyNewest;
    SharedArray& amp;                                // published displayed spectrum
    SharedArray& ampPeak;                            // published peaks
    std::span<float> shown;                          // working copy of amp
    std::span<float> shownPeak;                      // working copy of ampPeak
    int32_t& statTicks;
};
