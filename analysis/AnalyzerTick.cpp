// The 10 ms tick of each side: the block from the feed, the sample and waveform-peak
// histories, then window, transform, power and spectrum history. The display step that ends
// the tick is in AnalyzerDisplay.cpp.
#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "analysis/AnalyzerSide.h"
#include "analysis/SpectrumMath.h"
#include "audio/AudioCapture.h"
#include "zqCoreAudio.h"

namespace {
static_assert(CAudioAnalyzer::kSpectrumLength == spectrum::kLength, "one transform length");
static_assert(std::atomic<float>::is_always_lock_free, "the shared arrays must be lock-free");
}  // namespace

CAudioAnalyzer::Side CAudioAnalyzer::InputSide() {
    return Side{false,           CAudioCapture::Feed::Input,
                m_vecSamplesIn,  m_vecDataPeakIn,
                m_vecWindowedIn, m_vecReIn,
                m_vecImIn,       m_vecPowerIn,
                m_vecHistoryIn,  m_nHistoryNewestIn,
                m_vecSpectrumAmpIn, m_vecSpectrumAmpPeakIn,
                m_vecShownIn,    m_vecShownPeakIn,
                m_nStatTicksIn};
}

CAudioAnalyzer::Side CAudioAnalyzer::OutputSide() {
    return Side{true,             CAudioCapture::Feed::Output,
                m_vecSamplesOut,  m_vecDataPeakOut,
                m_vecWindowedOut, m_vecReOut,
                m_vecImOut,       m_vecPowerOut,
                m_vecHistoryOut,  m_nHistoryNewestOut,
                m_vecSpectrumAmpOut, m_vecSpectrumAmpPeakOut,
                m_vecShownOut,    m_vecShownPeakOut,
                m_nStatTicksOut};
}

void CAudioAnalyzer::AnalyzeInput() { AnalyzeSide(InputSide()); }
void CAudioAnalyzer::AnalyzeOutput() { AnalyzeSide(OutputSide()); }

void CAudioAnalyzer::AnalyzeSide(const Side& side) {
    CAudioCapture* capture = g_pCore->GetCaptureEngine();
    if (capture == nullptr) return;  // nothing at all this tick

    // The read buffer: zeros stand for whatever the ring could not give.
    alignas(64) float block[kBlockSamples] = {};
    capture->ReadFeed(side.feed, block, sizeof block);

    // Sample history: the oldest block drops out at the end, the new one goes first.
    float* samples = side.samples.data();
    std::memmove(samples + kBlockSamples, samples, (kSampleHistory - kBlockSamples) * sizeof(float));
    std::memcpy(samples, block, sizeof block);

    UpdateWaveformPeaks(side, block);

    // Spectrum of the newest 4096 samples, newest block first.
    std::memcpy(side.windowed.data(), samples, kSpectrumLength * sizeof(float));
    ApplyWindow(g_pCore->GetWhichFunction(), side.windowed.data());
    ComputeFFT(side.windowed.data(), side.re.data(), side.im.data());
    ComputePower(side.re.data(), side.im.data(), side.power.data());
    UpdateHistory(side);
    UpdateDisplay(side, static_cast<uint32_t>(g_pCore->GetSpectrumView()));
}

void CAudioAnalyzer::UpdateWaveformPeaks(const Side& side, const float* block) {
    const int scale = g_pCore->GetWaveScale();
    float* scratch = m_vecWaveScratch.data();
    std::fill(scratch, scratch + kBlockSamples, 0.0f);
    // A scale of 0 or below has no groups: nothing is appended (the tick has no count of
    // places to shift by).
    int appended = 0;
    if (scale > 0) {
        // The largest positive sample of each group of scale samples; the samples of an
        // incomplete group at the end of the block are dropped.
        int count = 0;
        float peak = 0.0f;
        for (int i = 0; i < kBlockSamples; ++i) {
            ++count;
            if (block[i] > peak) peak = block[i];
            if (count >= scale) {
                scratch[appended++] = peak;
                peak = 0.0f;
                count = 0;
            }
        }
    }
    side.dataPeak.Push(scratch, appended);  // toward the end by appended places, new values first
}

void CAudioAnalyzer::UpdateHistory(const Side& side) {
    // The oldest row becomes the newest and takes this tick's power. Only the spectrum's bins
    // are copied: the power above them is never written, so those parts of every row stay 0.0
    // as created.
    side.historyNewest = (side.historyNewest + kHistoryRows - 1) % kHistoryRows;
    float* row = side.history.data() + static_cast<size_t>(side.historyNewest) * kSpectrumLength;
    std::memcpy(row, side.power.data(), spectrum::kBins * sizeof(float));
}

void CAudioAnalyzer::ApplyWindow(int nFunction, float* pData) {
    if (pData == nullptr) return;
    const float* window = spectrum::WindowTable(nFunction);
    if (window != nullptr) spectrum::MultiplyByWindow(window, pData);
}

void CAudioAnalyzer::ComputeFFT(const float* pIn, float* pRe, float* pIm) {
    if (pIn == nullptr || pRe == nullptr || pIm == nullptr) throw std::invalid_argument("Invalid argument");
    spectrum::Transform(pIn, pRe, pIm);
}

void CAudioAnalyzer::ComputePower(const float* pRe, const float* pIm, float* pPower) {
    if (pRe == nullptr || pIm == nullptr || pPower == nullptr) throw std::invalid_argument("Invalid argument");
    spectrum::Power(pRe, pIm, pPower);
}
