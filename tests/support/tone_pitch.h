// The pitch of a steady tone in recorded samples, robust to a few gaps: the median distance
// between its upward zero crossings (interpolated between samples). A stream thread that a
// loaded machine wakes late leaves silence or a jump in the recording; the crossings around it
// are a handful among thousands, so they move the median by nothing, where a count of
// crossings over the whole recording would read a lower pitch.
#pragma once

#include <cstddef>

namespace zqtest {

// Samples [begin, end) of one channel of interleaved frames (stride: the channel count); 0 when
// fewer than two upward crossings.
double TonePitchHz(const float* frames, size_t stride, size_t begin, size_t end, double rate);

}  // namespace zqtest
