// The engine format: what the capture resampler produces and the render resampler takes.
// Captured audio is 48000 Hz, two channels (stereo layout), interleaved 32-bit float between
// the two resamplers, in the analyzer feed buffers (first channel only) and in the byte ring
// to the render thread.
#pragma once

#include <cstdint>

constexpr int ENGINE_SAMPLE_RATE = 48000;
constexpr int ENGINE_CHANNELS = 2;
constexpr int64_t ENGINE_CHANNEL_LAYOUT = 0x3;  // AV_CH_LAYOUT_STEREO
constexpr int ENGINE_SAMPLE_FMT = 3;            // AV_SAMPLE_FMT_FLT
constexpr int ENGINE_FRAME_BYTES = ENGINE_CHANNELS * 4;
