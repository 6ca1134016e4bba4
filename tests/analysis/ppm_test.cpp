// PPM2Percent: the meter scale the percent meters use.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "zqPlatform.h"

namespace {

TEST(PeakProgrammeMeterScale, EndsAndMarksOfTheScale) {
    EXPECT_EQ(PPM2Percent(-100.0f), 0.0f);  // the meters' silence
    EXPECT_EQ(PPM2Percent(-70.0f), 0.0f);
    EXPECT_EQ(PPM2Percent(-60.0f), 2.5f);
    EXPECT_EQ(PPM2Percent(-50.0f), 7.5f);
    EXPECT_EQ(PPM2Percent(-40.0f), 15.0f);
    EXPECT_EQ(PPM2Percent(-30.0f), 30.0f);
    EXPECT_EQ(PPM2Percent(-20.0f), 50.0f);
    EXPECT_EQ(PPM2Percent(-10.0f), 75.0f);
    EXPECT_EQ(PPM2Percent(0.0f), 100.0f);  // full scale
    EXPECT_EQ(PPM2Percent(6.0f), 100.0f);
    EXPECT_EQ(PPM2Percent(-std::numeric_limits<float>::infinity()), 0.0f);  // log10 of 0
    EXPECT_EQ(PPM2Percent(std::numeric_limits<float>::quiet_NaN()), 0.0f);
}

TEST(PeakProgrammeMeterScale, RisesWithTheLevelAndNeverJumps) {
    float previous = PPM2Percent(-120.0f);
    for (int step = -12000; step <= 1000; ++step) {
        const float db = static_cast<float>(step) / 100.0f;
        const float percent = PPM2Percent(db);
        ASSERT_GE(percent, previous) << db << " dB";
        if (db > -70.0f && db <= 0.0f) {
            ASSERT_GT(percent, previous) << db << " dB";
        }
        ASSERT_LE(percent - previous, 0.026f) << db << " dB";  // continuous: at most 2.5 % per dB
        previous = percent;
    }
}

}  // namespace
