// The core's spectrum and waveform-peak getters: one element of the analyzer's shared arrays,
// read without a lock (atomic loads: the element's old or new value). Callable from any thread
// at any time of the core object's life: admitted by a components reader, they return 0.0
// while the analyzer is not there. The index is checked first, so an index outside the arrays
// throws std::out_of_range in every phase (before Init and after Shutdown too): a host's
// indexing fault shows the same way whenever it calls.
#include <stdexcept>

#include "analysis/AudioAnalyzer.h"
#include "core/ComponentsReader.h"
#include "zqCoreAudio.h"

namespace {

constexpr float kSpectrumFloor = 1.0e-12f;  // what a bin of exactly 0.0 reads as: -120 dB

void CheckBin(int nIndex) {
    if (nIndex < 0 || nIndex >= CAudioAnalyzer::kSpectrumLength) throw std::out_of_range("spectrum bin out of range");
}

int CheckedPlace(int nPlace) {
    if (nPlace < 0 || nPlace >= CAudioAnalyzer::kPeakHistory) throw std::out_of_range("waveform place out of range");
    return nPlace;
}

// Element access to a bin checked by CheckBin (the arrays are kSpectrumLength long).
float SpectrumValue(const CAudioAnalyzer::SharedArray& array, int nIndex) {
    const float value = array[static_cast<size_t>(nIndex)].load(std::memory_order_relaxed);
    return value == 0.0f ? kSpectrumFloor : value;
}

// The place of GetDataPeakIn/Out, in 32-bit signed arithmetic that wraps as it does on the
// host's platform: a positive shift past the end goes on at place 1 (4800 becomes 1), a
// negative shift counts by its size.
int DataPeakPlace(int nIndex, int nShift) {
    const auto wrap = [](uint32_t value) { return static_cast<int32_t>(value); };
    const uint32_t index = static_cast<uint32_t>(nIndex);
    const uint32_t shift = static_cast<uint32_t>(nShift);
    if (nShift == 0) return nIndex;
    if (nShift > 0) {
        const int place = wrap(index + shift);
        return place > CAudioAnalyzer::kPeakHistory - 1 ? wrap(index + shift - (CAudioAnalyzer::kPeakHistory - 1))
                                                       : place;
    }
    return wrap(index - shift);
}

}  // namespace

float CZQCoreAudio::GetSpectrumAmpIn(int nIndex) {
    CheckBin(nIndex);
    return CComponentsReader::Use(*this, 0.0f, [&](const CComponentsReader& components) {
        return SpectrumValue(components.Analyzer().m_vecSpectrumAmpIn, nIndex);
    });
}

// With bypass on, the output side shows what the input side shows.
float CZQCoreAudio::GetSpectrumAmpOut(int nIndex) {
    CheckBin(nIndex);
    return CComponentsReader::Use(*this, 0.0f, [&](const CComponentsReader& components) {
        const CAudioAnalyzer& analyzer = components.Analyzer();
        return SpectrumValue(m_bBypass.load() ? analyzer.m_vecSpectrumAmpIn : analyzer.m_vecSpectrumAmpOut, nIndex);
    });
}

float CZQCoreAudio::GetSpectrumAmpPeakIn(int nIndex) {
    CheckBin(nIndex);
    return CComponentsReader::Use(*this, 0.0f, [&](const CComponentsReader& components) {
        return SpectrumValue(components.Analyzer().m_vecSpectrumAmpPeakIn, nIndex);
    });
}

float CZQCoreAudio::GetSpectrumAmpPeakOut(int nIndex) {
    CheckBin(nIndex);
    return CComponentsReader::Use(*this, 0.0f, [&](const CComponentsReader& components) {
        const CAudioAnalyzer& analyzer = components.Analyzer();
        return SpectrumValue(m_bBypass.load() ? analyzer.m_vecSpectrumAmpPeakIn : analyzer.m_vecSpectrumAmpPeakOut,
                             nIndex);
    });
}

float CZQCoreAudio::GetDataPeakIn(int nIndex, int nShift) {
    const int nPlace = CheckedPlace(DataPeakPlace(nIndex, nShift));
    return CComponentsReader::Use(*this, 0.0f, [&](const CComponentsReader& components) {
        return components.Analyzer().m_vecDataPeakIn.At(nPlace);
    });
}

float CZQCoreAudio::GetDataPeakOut(int nIndex, int nShift) {
    const int nPlace = CheckedPlace(DataPeakPlace(nIndex, nShift));
    return CComponentsReader::Use(*this, 0.0f, [&](const CComponentsReader& components) {
        return components.Analyzer().m_vecDataPeakOut.At(nPlace);
    });
}
