// Set-up of the two resamplers: the capture engine's (device mix format -> engine format) and
// the render engine's (engine format -> device mix format). Called by each engine's
// SetAudioDevice on the host's thread, under the engine's m_csDevices; each step is logged.
//
// Whatever the result, a context that was allocated is returned in *ppContext and is the
// caller's to free with swr_free (the engines do so in ReleaseResoursesAudio). A context that
// failed to initialise makes every swr_convert fail; the capture thread then skips the packet.
#pragma once

#include <memory>

#include "zqPlatform.h"

extern "C" {
#include <libswresample/version.h>
}

struct SwrContext;

// libswresample up to major version 4 takes channel counts and 64-bit layout masks
// ("in_channel_count", "in_channel_layout", ...); version 5 dropped those for AVChannelLayout
// options ("in_chlayout", "out_chlayout"), which carry count and mask together.
#ifndef ZQ_SWR_CHLAYOUT_OPTIONS
#  if LIBSWRESAMPLE_VERSION_MAJOR >= 5
#    define ZQ_SWR_CHLAYOUT_OPTIONS 1
#  else
#    define ZQ_SWR_CHLAYOUT_OPTIONS 0
#  endif
#endif

// S_OK when the context is initialised, E_FAIL when it is not (E_POINTER for a null argument,
// nothing logged then).
HRESULT CreateCaptureResampler(const WAVEFORMATEX* pMixFormat, SwrContext** ppContext);
// 0 when the context is initialised, -1 when it is not (or for a null argument).
int CreateRenderResampler(const WAVEFORMATEX* pMixFormat, SwrContext** ppContext);

// Owning pointer to a resampler context, freed with swr_free.
struct SwrContextFree {
    void operator()(SwrContext* pContext) const noexcept;
};
using SwrContextPtr = std::unique_ptr<SwrContext, SwrContextFree>;
