// The core's spectrum and waveform-peak getters: the floor and the range (in every phase of the
// core's life: tests/devices/calls_out_of_order_test.cpp),
// bypass switching the output getters, and the waveform-peak place arithmetic. The ticks here
// are the core's own analyzer thread's, on the stepped clock.
#include <stdexcept>

#include "analyzer_test_support.h"

namespace {

using zqtest::kInputFeed;
using zqtest::kMs100ns;
using zqtest::WaitUntil;

constexpr float kFloor = 1.0e-12f;

class CoreGetters : public zqtest::CoreWithEngines {
protected:
    // Moves the clock a tick at a time until pred holds: the thread serves each tick on its own
    // time. The first falls due 100 ms after the thread set its timers (in SetUp's Init, as a
    // rule: were it later, the steps just go on until then).
    template <typename Pred>
    bool TickUntil(Pred pred, int maxTicks) {
        zqvm::AdvanceClock(90 * kMs100ns);
        for (int i = 0; i < maxTicks; ++i) {
            zqvm::AdvanceClock(10 * kMs100ns);
            if (WaitUntil(pred, 20)) return true;
        }
        return false;
    }
    // 25 identical blocks: all the feed holds, enough for every tick these tests make.
    void PushBlocks(const std::vector<float>& block) {
        std::vector<float> blocks;
        for (int i = 0; i < 25; ++i) blocks.insert(blocks.end(), block.begin(), block.end());
        Push(kInputFeed, blocks);
    }
};

TEST_F(CoreGetters, ZeroBinsReadAsTheFloorAndIndexesOutsideThrow) {
    using Getter = float (CZQCoreAudio::*)(int);
    for (Getter get : {&CZQCoreAudio::GetSpectrumAmpIn, &CZQCoreAudio::GetSpectrumAmpOut,
                       &CZQCoreAudio::GetSpectrumAmpPeakIn, &CZQCoreAudio::GetSpectrumAmpPeakOut}) {
        for (bool bypass : {true, false}) {
            core->SetBypass(bypass);
            EXPECT_EQ((core.get()->*get)(0), kFloor);
            EXPECT_EQ((core.get()->*get)(4095), kFloor);
            EXPECT_THROW((core.get()->*get)(-1), std::out_of_range);
            EXPECT_THROW((core.get()->*get)(4096), std::out_of_range);
        }
    }
    EXPECT_EQ(core->GetDataPeakIn(4799, 0), 0.0f);  // zeros are not floored here
    EXPECT_THROW(core->GetDataPeakIn(4800, 0), std::out_of_range);
    EXPECT_THROW(core->GetDataPeakOut(-1, 0), std::out_of_range);
}

TEST_F(CoreGetters, BypassMakesTheOutputGettersReadTheInputSide) {
    core->SetWhichFunction(0);
    PushBlocks(std::vector<float>(480, 0.5f));  // the input side only; the output side hears nothing
    ASSERT_TRUE(TickUntil([&] { return core->GetSpectrumAmpIn(0) > 1.0f && core->GetSpectrumAmpPeakIn(0) > 1.0f; }, 40));

    core->SetBypass(false);
    EXPECT_EQ(core->GetSpectrumAmpOut(0), kFloor);
    EXPECT_EQ(core->GetSpectrumAmpPeakOut(0), kFloor);
    core->SetBypass(true);
    EXPECT_GT(core->GetSpectrumAmpOut(0), 1.0f);
    EXPECT_GT(core->GetSpectrumAmpPeakOut(0), 1.0f);
    EXPECT_EQ(core->GetSpectrumAmpOut(3000), kFloor);
}

TEST_F(CoreGetters, WaveformPlaceArithmetic) {
    // One value per sample; identical blocks make place p hold value(p mod 480) from the tenth
    // tick on, however many ticks followed.
    core->SetWaveScale(1);
    std::vector<float> block(480);
    for (int m = 0; m < 480; ++m) block[m] = 0.001f * static_cast<float>(m + 1);
    PushBlocks(block);
    ASSERT_TRUE(TickUntil([&] { return core->GetDataPeakIn(4799, 0) == block[479]; }, 60));

    for (int place = 0; place < 4800; place += 7) ASSERT_EQ(core->GetDataPeakIn(place, 0), block[place % 480]) << place;
    EXPECT_EQ(core->GetDataPeakIn(4799, 1), block[1]);    // 4800 wraps to place 1, not 0
    EXPECT_EQ(core->GetDataPeakIn(4795, 10), block[6]);
    EXPECT_EQ(core->GetDataPeakIn(10, -5), block[15]);    // a negative shift counts by its size
    EXPECT_EQ(core->GetDataPeakIn(0, 4799), block[479]);
    EXPECT_THROW(core->GetDataPeakIn(4799, -1), std::out_of_range);
    EXPECT_THROW(core->GetDataPeakIn(-1, 0), std::out_of_range);
    EXPECT_EQ(core->GetDataPeakOut(4795, 10), 0.0f);     // the output side heard nothing
    EXPECT_THROW(core->GetDataPeakOut(4799, -1), std::out_of_range);
}

}  // namespace
