// Whole analyzer ticks on every instruction set this processor runs: both sides' windowed
// samples, transform, power, displayed spectrum and peaks, through every window function,
// the decay and the peak reset, bit for bit against the plain arithmetic run beside them.
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "analyzer_test_support.h"
#include "kernel_targets.h"
#include "spectrum_reference.h"

namespace {

using zqtest::kInputFeed;
using zqtest::kOutputFeed;
using zqtest::KernelTargets;
using zqtest::SameBits;
using zqtest::TargetName;
using zqtest::Values;

constexpr int kBlock = CAudioAnalyzer::kBlockSamples;
constexpr int kLength = CAudioAnalyzer::kSpectrumLength;
using Samples = std::vector<float>;

// One side as the analyzer's documentation describes it, in the hold view, with the plain
// arithmetic.
struct ReferenceSide {
    bool bOutput;
    Samples history = Samples(CAudioAnalyzer::kSampleHistory, 0.0f);
    Samples windowed = Samples(kLength, 0.0f);
    Samples re = Samples(kLength, 0.0f);
    Samples im = Samples(kLength, 0.0f);
    Samples power = Samples(kLength, 0.0f);
    Samples shown = Samples(kLength, 0.0f);
    Samples peak = Samples(kLength, 0.0f);

    void Tick(const Samples& block, int function) {
        std::copy_backward(history.begin(), history.end() - kBlock, history.end());
        std::copy(block.begin(), block.end(), history.begin());
        std::copy(history.begin(), history.begin() + kLength, windowed.begin());
        reference::ApplyWindow(function, windowed.data());
        reference::ComputeFFT(windowed.data(), re.data(), im.data());
        reference::ComputePower(re.data(), im.data(), power.data());
        reference::Hold(power.data(), shown.data(), peak.data());
        if (bOutput) std::copy(power.begin(), power.begin() + kLength / 2, shown.begin());
    }
};

// Blocks of every kind in turn: silence, full scale, tones, noise; then NaNs and infinities,
// which stay in the transform's input for nine ticks.
Samples Block(int tick, std::mt19937& generator) {
    std::uniform_real_distribution<float> noise(-1.0f, 1.0f);
    Samples block(kBlock, 0.0f);
    switch (tick < 24 ? tick % 6 : tick < 30 ? 6 : 7) {
        case 0: break;  // silence
        case 1: std::fill(block.begin(), block.end(), tick % 4 == 1 ? 1.0f : -1.0f); break;
        case 2:
            for (int i = 0; i < kBlock; ++i) block[i] = (i % 2 == 0) ? 1.0f : -1.0f;
            break;
        case 3:
            for (int i = 0; i < kBlock; ++i) block[i] = static_cast<float>(std::sin(0.131 * (tick * kBlock + i)));
            break;
        case 6:
            for (float& s : block) s = noise(generator);
            block[17] = std::numeric_limits<float>::quiet_NaN();
            break;
        case 7:
            for (float& s : block) s = noise(generator);
            block[3] = std::numeric_limits<float>::infinity();
            block[400] = -std::numeric_limits<float>::infinity();
            break;
        default:
            for (float& s : block) s = noise(generator) * (tick % 2 == 0 ? 1.0f : 1.0e-3f);
            break;
    }
    return block;
}

class AnalyzerOnEveryTarget : public zqtest::CoreWithEngines {
protected:
    static Samples Private(std::span<const float> values) { return {values.begin(), values.end()}; }

    void ExpectSide(const ReferenceSide& expected, const CAudioAnalyzer& analyzer, const std::string& where) {
        const bool out = expected.bOutput;
        EXPECT_TRUE(SameBits(expected.windowed, Private(out ? analyzer.m_vecWindowedOut : analyzer.m_vecWindowedIn)))
            << where << ", windowed samples";
        EXPECT_TRUE(SameBits(expected.re, Private(out ? analyzer.m_vecReOut : analyzer.m_vecReIn))) << where << ", re";
        EXPECT_TRUE(SameBits(expected.im, Private(out ? analyzer.m_vecImOut : analyzer.m_vecImIn))) << where << ", im";
        EXPECT_TRUE(SameBits(expected.power, Private(out ? analyzer.m_vecPowerOut : analyzer.m_vecPowerIn)))
            << where << ", power";
        EXPECT_TRUE(SameBits(expected.shown, Values(out ? analyzer.m_vecSpectrumAmpOut : analyzer.m_vecSpectrumAmpIn)))
            << where << ", displayed spectrum";
        EXPECT_TRUE(SameBits(expected.peak,
                             Values(out ? analyzer.m_vecSpectrumAmpPeakOut : analyzer.m_vecSpectrumAmpPeakIn)))
            << where << ", peaks";
    }
};

TEST_F(AnalyzerOnEveryTarget, TicksDecayAndPeakResetMatchThePlainArithmetic) {
    ASSERT_FALSE(KernelTargets().empty());
    for (int64_t target : KernelTargets()) {
        spectrum::ScopedKernelTarget pin(target);
        CAudioAnalyzer analyzer;
        ReferenceSide input{false}, output{true};
        std::mt19937 generator(5);
        for (int tick = 0; tick < 36; ++tick) {
            const int function = tick % 11;  // 0 and 10: no window
            core->SetWhichFunction(function);
            const Samples blockIn = Block(tick, generator), blockOut = Block(tick + 3, generator);
            Push(kInputFeed, blockIn);
            Push(kOutputFeed, blockOut);
            analyzer.AnalyzeInput();
            analyzer.AnalyzeOutput();
            input.Tick(blockIn, function);
            output.Tick(blockOut, function);
            const std::string where = TargetName(target) + ", tick " + std::to_string(tick);
            ExpectSide(input, analyzer, where + ", input");
            ExpectSide(output, analyzer, where + ", output");
            if (HasFailure()) return;  // one tick's report is enough

            // The thread's 5 ms and 1000 ms jobs between ticks.
            for (int decay = 0; decay < 2; ++decay) {
                analyzer.DecaySpectrum();
                reference::Decay(input.shown.data());
                reference::Decay(output.shown.data());
            }
            if (tick % 10 == 9) {
                analyzer.ResetSpectrumPeaks();
                std::fill(input.peak.begin(), input.peak.end(), 0.0f);
                std::fill(output.peak.begin(), output.peak.end(), 0.0f);
            }
            ExpectSide(input, analyzer, where + ", input after the decay");
            ExpectSide(output, analyzer, where + ", output after the decay");
            if (HasFailure()) return;
        }
    }
}

}  // namespace
