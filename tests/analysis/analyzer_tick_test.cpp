// The analyzer's jobs, called directly on an analyzer of the test's own (no thread): the block
// from the feed, the sample and waveform-peak histories, the spectrum history, the statistic
// views and the decay. The hold view and the peak reset are held against the plain arithmetic
// in analyzer_targets_test.cpp.
#include <algorithm>
#include <cmath>

#include "analyzer_test_support.h"

namespace {

using zqtest::kInputFeed;
using zqtest::kOutputFeed;
using zqtest::Values;

std::vector<float> Ramp(int count, float first, float step) {
    std::vector<float> values(count);
    for (int i = 0; i < count; ++i) values[i] = first + step * static_cast<float>(i);
    return values;
}

class AnalyzerJobs : public zqtest::CoreWithEngines {
protected:
    void SetUp() override {
        CoreWithEngines::SetUp();
        analyzer = std::make_unique<CAudioAnalyzer>();
    }
    void TearDown() override {
        analyzer.reset();
        CoreWithEngines::TearDown();
    }
    std::vector<float> Samples(int first, int count) const {
        return {analyzer->m_vecSamplesIn.begin() + first, analyzer->m_vecSamplesIn.begin() + first + count};
    }
    std::vector<float> Power() const {
        return {analyzer->m_vecPowerIn.begin(), analyzer->m_vecPowerIn.end()};
    }
    std::unique_ptr<CAudioAnalyzer> analyzer;
};

TEST_F(AnalyzerJobs, BlockTakesAtMost480SamplesAndPadsWithZeros) {
    const std::vector<float> fed = Ramp(300, 0.001f, 0.001f);
    Push(kInputFeed, fed);
    analyzer->AnalyzeInput();
    EXPECT_EQ(Samples(0, 300), fed);
    EXPECT_EQ(Samples(300, 4500), std::vector<float>(4500, 0.0f));
    EXPECT_EQ(std::count(analyzer->m_vecSamplesOut.begin(), analyzer->m_vecSamplesOut.end(), 0.0f), 4800)
        << "the input side's feed reached the output side";

    // More than a block waits in the ring for the next ticks; each tick moves the history on.
    const std::vector<float> more = Ramp(1000, 1.0f, 0.001f);
    Push(kInputFeed, more);
    analyzer->AnalyzeInput();
    analyzer->AnalyzeInput();
    analyzer->AnalyzeInput();
    EXPECT_EQ(Samples(0, 40), std::vector<float>(more.begin() + 960, more.end()));
    EXPECT_EQ(Samples(40, 440), std::vector<float>(440, 0.0f));
    EXPECT_EQ(Samples(480, 480), std::vector<float>(more.begin() + 480, more.begin() + 960));
    EXPECT_EQ(Samples(960, 480), std::vector<float>(more.begin(), more.begin() + 480));
    EXPECT_EQ(Samples(1440, 300), fed);

    Push(kOutputFeed, Ramp(480, -0.5f, 0.002f));
    analyzer->AnalyzeOutput();
    EXPECT_EQ(std::vector<float>(analyzer->m_vecSamplesOut.begin(), analyzer->m_vecSamplesOut.begin() + 480),
              Ramp(480, -0.5f, 0.002f));
}

TEST_F(AnalyzerJobs, SampleHistoryKeepsTheLastTenBlocksNewestFirst) {
    for (int block = 1; block <= 11; ++block) {
        Push(kInputFeed, std::vector<float>(480, static_cast<float>(block)));
        analyzer->AnalyzeInput();
    }
    for (int place = 0; place < 10; ++place) {
        EXPECT_EQ(Samples(480 * place, 480), std::vector<float>(480, static_cast<float>(11 - place))) << place;
    }
}

TEST_F(AnalyzerJobs, WaveformPeaksFollowTheScale) {
    // Default 480: one value per tick, the block's largest positive sample.
    const std::vector<float> rising = Ramp(480, -0.2f, 0.001f);  // largest 0.279 at the end
    Push(kInputFeed, rising);
    analyzer->AnalyzeInput();
    Push(kInputFeed, std::vector<float>(480, -0.7f));  // negative only
    analyzer->AnalyzeInput();
    auto peaks = Values(analyzer->m_vecDataPeakIn);
    EXPECT_EQ(peaks[0], 0.0f);
    EXPECT_EQ(peaks[1], rising[479]);
    EXPECT_EQ(std::count(peaks.begin() + 2, peaks.end(), 0.0f), 4798);

    // 7: 68 groups; the last 4 samples are dropped, and the next tick starts a new group.
    core->SetWaveScale(7);
    std::vector<float> block(480);
    for (int i = 0; i < 480; ++i) block[i] = static_cast<float>((i * 37) % 101) / 100.0f - 0.3f;
    block[477] = 5.0f;  // among the dropped samples
    Push(kInputFeed, block);
    analyzer->AnalyzeInput();
    std::vector<float> second = block;
    std::reverse(second.begin(), second.end());
    second[2] = 0.1f;
    second[478] = 6.0f;  // dropped too
    Push(kInputFeed, second);
    analyzer->AnalyzeInput();
    peaks = Values(analyzer->m_vecDataPeakIn);
    for (int g = 0; g < 68; ++g) {
        const float first = std::max(0.0f, *std::max_element(block.begin() + 7 * g, block.begin() + 7 * g + 7));
        const float next = std::max(0.0f, *std::max_element(second.begin() + 7 * g, second.begin() + 7 * g + 7));
        ASSERT_EQ(peaks[g], next) << "group " << g << " of the second tick";
        ASSERT_EQ(peaks[68 + g], first) << "group " << g << " of the first tick";
    }
    EXPECT_EQ(peaks[136], 0.0f);  // the two values of scale 480, moved on by 136
    EXPECT_EQ(peaks[137], rising[479]);
    EXPECT_EQ(std::count(peaks.begin(), peaks.end(), 5.0f) + std::count(peaks.begin(), peaks.end(), 6.0f), 0);

    // 1: every positive sample unchanged, every other sample as 0.0.
    core->SetWaveScale(1);
    Push(kInputFeed, block);
    analyzer->AnalyzeInput();
    peaks = Values(analyzer->m_vecDataPeakIn);
    for (int i = 0; i < 480; ++i) ASSERT_EQ(peaks[i], std::max(block[i], 0.0f)) << i;

    // Above 480, 0 and below: nothing is appended.
    for (int scale : {481, 0, -5}) {
        core->SetWaveScale(scale);
        const auto before = Values(analyzer->m_vecDataPeakIn);
        Push(kInputFeed, std::vector<float>(480, 0.9f));
        analyzer->AnalyzeInput();
        EXPECT_EQ(Values(analyzer->m_vecDataPeakIn), before) << "scale " << scale;
    }
}

TEST_F(AnalyzerJobs, SpectrumHistoryHoldsTheNewestPowerFirst) {
    std::vector<std::vector<float>> powers;
    for (int tick = 0; tick < 12; ++tick) {
        Push(kInputFeed, Ramp(480, 0.01f * static_cast<float>(tick), 0.0001f));
        analyzer->AnalyzeInput();
        powers.push_back(Power());
    }
    for (int row = 0; row < 10; ++row) {
        const auto history = analyzer->HistoryRowIn(row);
        const auto& expected = powers[11 - row];
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), history.begin())) << "row " << row;
    }
}

TEST_F(AnalyzerJobs, StatisticViewsRunOnEveryEighthTickOverTheLastEightPowers) {
    struct Case {
        uint32_t view;
        int kind;  // 0 half range, 1 minimum, 2 maximum, 3 unchanged
    };
    for (Case c : {Case{0x2, 0}, Case{0x4, 1}, Case{0x8, 2}, Case{0xE, 0}, Case{0xC, 1}, Case{0x0, 3}}) {
        SCOPED_TRACE(c.view);
        analyzer = std::make_unique<CAudioAnalyzer>();
        core->SetSpectrumView(c.view);
        std::vector<float> high(2048, -3.4e38f), low(2048, 3.4e38f);
        for (int tick = 1; tick <= 8; ++tick) {
            Push(kInputFeed, Ramp(480, 0.05f * static_cast<float>(tick % 3), 0.001f * static_cast<float>(tick)));
            analyzer->AnalyzeInput();
            const auto power = Power();
            for (int i = 0; i < 2048; ++i) {
                high[i] = std::max(high[i], power[i]);
                low[i] = std::min(low[i], power[i]);
            }
            if (tick < 8) {
                ASSERT_EQ(analyzer->m_nStatTicksIn, tick);
                ASSERT_EQ(Values(analyzer->m_vecSpectrumAmpIn), std::vector<float>(4096, 0.0f)) << "tick " << tick;
            }
        }
        EXPECT_EQ(analyzer->m_nStatTicksIn, 0);
        const auto shown = Values(analyzer->m_vecSpectrumAmpIn);
        for (int i = 0; i < 2048; ++i) {
            const float expected = c.kind == 0 ? (high[i] - low[i]) * 0.5f : c.kind == 1 ? low[i] : c.kind == 2 ? high[i] : 0.0f;
            ASSERT_EQ(shown[i], expected) << "bin " << i;
        }
        EXPECT_EQ(std::count(shown.begin() + 2048, shown.end(), 0.0f), 2048);
        EXPECT_EQ(Values(analyzer->m_vecSpectrumAmpPeakIn), std::vector<float>(4096, 0.0f));
    }

    // With the hold view on as well, the hold view applies and the counter stays.
    analyzer = std::make_unique<CAudioAnalyzer>();
    core->SetSpectrumView(0x2);
    analyzer->AnalyzeInput();
    core->SetSpectrumView(0x3);
    Push(kInputFeed, std::vector<float>(480, 0.25f));
    analyzer->AnalyzeInput();
    EXPECT_EQ(analyzer->m_nStatTicksIn, 1);
    EXPECT_GT(analyzer->m_vecSpectrumAmpIn[0].load(), 0.0f);
}

// Each decade's lower bound takes that decade's step and the largest value below it the step
// below: 1000 and up lose 100, 100 up to 1000 lose 10, and so on down to 0.0001 below 0.01,
// never below 0.0. The peaks do not decay.
TEST_F(AnalyzerJobs, DecayTakesEachDecadesStepFromItsLowerBoundOn) {
    struct Bound {
        float value, step, stepBelow;
    };
    const Bound bounds[] = {{1000.0f, 100.0f, 10.0f}, {100.0f, 10.0f, 1.0f},     {10.0f, 1.0f, 0.1f},
                            {1.0f, 0.1f, 0.01f},      {0.1f, 0.01f, 0.001f},     {0.01f, 0.001f, 0.0001f}};
    // Each bound, then the largest value below it; on both sides.
    std::vector<float> shown, expected;
    for (const Bound& b : bounds) {
        const float below = std::nextafter(b.value, 0.0f);
        shown.insert(shown.end(), {b.value, below});
        expected.insert(expected.end(), {b.value - b.step, below - b.stepBelow});
    }
    shown.push_back(0.00005f);
    expected.push_back(0.0f);
    std::copy(shown.begin(), shown.end(), analyzer->m_vecShownIn.begin());
    std::copy(shown.begin(), shown.end(), analyzer->m_vecShownOut.begin());
    analyzer->m_vecShownPeakIn[0] = 7.0f;
    analyzer->DecaySpectrum();
    EXPECT_EQ(Values(analyzer->m_vecSpectrumAmpIn.first(expected.size())), expected) << "input side";
    EXPECT_EQ(Values(analyzer->m_vecSpectrumAmpOut.first(expected.size())), expected) << "output side";
    EXPECT_EQ(analyzer->m_vecShownPeakIn[0], 7.0f);
}

TEST(AnalyzerWithoutCaptureEngine, TickDoesNothing) {
    CZQCoreAudio core;  // not initialised: no engines
    CAudioAnalyzer analyzer;
    analyzer.m_vecSamplesIn[0] = 0.5f;
    const float old = 0.25f;
    analyzer.m_vecDataPeakIn.Push(&old, 1);
    analyzer.AnalyzeInput();
    analyzer.AnalyzeOutput();
    EXPECT_EQ(analyzer.m_vecSamplesIn[0], 0.5f);
    EXPECT_EQ(analyzer.m_vecDataPeakIn.At(0), 0.25f);
    EXPECT_EQ(analyzer.m_vecDataPeakIn.At(1), 0.0f);
    g_pCore = nullptr;
}

}  // namespace
