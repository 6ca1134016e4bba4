// GetSampleFormat: the interleaved FFmpeg sample format of an endpoint's mix format.
#include <cstddef>
#include <cstring>

#include "zqplatform/zqSystem.h"

namespace {

// A WAVEFORMATEXTENSIBLE carries 22 bytes after its WAVEFORMATEX; with fewer, SubFormat is not
// there to read.
constexpr WORD kExtensibleExtraBytes = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);

AVSampleFormat FloatFormat(WORD bits) {
    switch (bits) {
        case 32: return AV_SAMPLE_FMT_FLT;
        case 64: return AV_SAMPLE_FMT_DBL;
        default: return AV_SAMPLE_FMT_NONE;
    }
}

// By container width: 24 valid bits in a 32-bit container are S32. Packed 24-bit samples
// have no interleaved FFmpeg format.
AVSampleFormat IntegerFormat(WORD bits) {
    switch (bits) {
        case 8: return AV_SAMPLE_FMT_U8;
        case 16: return AV_SAMPLE_FMT_S16;
        case 32: return AV_SAMPLE_FMT_S32;
        default: return AV_SAMPLE_FMT_NONE;
    }
}

}  // namespace

AVSampleFormat GetSampleFormat(const WAVEFORMATEX* pFormat) {
    if (pFormat == nullptr) return AV_SAMPLE_FMT_NONE;
    switch (pFormat->wFormatTag) {
        case WAVE_FORMAT_IEEE_FLOAT: return FloatFormat(pFormat->wBitsPerSample);
        case WAVE_FORMAT_PCM: return IntegerFormat(pFormat->wBitsPerSample);
        case WAVE_FORMAT_EXTENSIBLE: {
            if (pFormat->cbSize < kExtensibleExtraBytes) return AV_SAMPLE_FMT_NONE;
            // Copied out byte-wise: the caller's format need not be aligned for the GUID.
            GUID subFormat;
            std::memcpy(&subFormat, reinterpret_cast<const uint8_t*>(pFormat) + offsetof(WAVEFORMATEXTENSIBLE, SubFormat),
                        sizeof(GUID));
            if (subFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT) return FloatFormat(pFormat->wBitsPerSample);
            if (subFormat == KSDATAFORMAT_SUBTYPE_PCM) return IntegerFormat(pFormat->wBitsPerSample);
            return AV_SAMPLE_FMT_NONE;
        }
        default: return AV_SAMPLE_FMT_NONE;
    }
}
