// PPM2Percent: the meter scale the percent meters use.
#include <gtest/gtest.h>

#include <limits>
#include <utility>

#include "zqPlatform.h"

namespace {

// -100 dB is the meters' silence, 0 dB full scale, minus infinity the level of 0.
TEST(PeakProgrammeMeterScale, EndsAndMarksOfTheScale) {
    constexpr float kInf = std::numeric_limits<float>::infinity();
    const std::pair<float, float> marks[] = {{-100.0f, 0.0f}, {-70.0f, 0.0f}, {-60.0f, 2.5f}, {-50.0f, 7.5f},
                                             {-40.0f, 15.0f}, {-30.0f, 30.0f}, {-20.0f, 50.0f}, {-10.0f, 75.0f},
                                             {0.0f, 100.0f},  {6.0f, 100.0f},  {-kInf, 0.0f}};
    for (const auto& [db, percent] : marks) EXPECT_EQ(PPM2Percent(db), percent) << db << " dB";
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
