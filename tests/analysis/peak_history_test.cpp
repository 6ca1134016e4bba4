// CPeakHistory: newest first across the ring's wrap, range checks, and what a reader sees
// while the writer pushes.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

#include "analysis/PeakHistory.h"

namespace {

TEST(PeakHistory, PushesMoveValuesTowardTheEndAcrossTheWrap) {
    CPeakHistory history(10);
    EXPECT_EQ(history.At(9), 0.0f);
    float next = 1.0f;
    // Pushes of 1 to 4 values, more than twice round the ring: place p holds the p-th newest.
    for (int round = 0; round < 12; ++round) {
        std::vector<float> values;
        for (int i = 0; i < round % 4 + 1; ++i) values.push_back(next++);
        // The first value pushed lands at place 0, the last at place count - 1.
        history.Push(values.data(), static_cast<int>(values.size()));
        ASSERT_EQ(history.At(0), values.front());
        ASSERT_EQ(history.At(static_cast<int>(values.size()) - 1), values.back());
    }
    // The last push was 4 values (27 .. 30), the one before 3 (24 .. 26), then 2 (22, 23).
    const std::vector<float> expected = {27, 28, 29, 30, 24, 25, 26, 22, 23, 21};
    for (int place = 0; place < 10; ++place) EXPECT_EQ(history.At(place), expected[place]) << place;
    EXPECT_THROW(history.At(-1), std::out_of_range);
    EXPECT_THROW(history.At(10), std::out_of_range);
    history.Push(nullptr, 0);  // nothing
    EXPECT_EQ(history.At(0), 27.0f);
}

TEST(PeakHistory, AReaderSeesEachPlaceBeforeOrAfterAPushNeverAnotherPlace) {
    CPeakHistory history(4800);
    std::atomic<int> pushed{0};
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int t = 1; t <= 20000; ++t) {
            const float value = static_cast<float>(t);
            history.Push(&value, 1);  // place j now holds t - j
            pushed.store(t, std::memory_order_release);
        }
        done.store(true);
    });
    int checked = 0;
    while (!done.load()) {
        const int place = static_cast<int>((static_cast<long long>(checked) * 7919) % 4800);
        const int before = pushed.load(std::memory_order_acquire);
        const float value = history.At(place);
        const int after = pushed.load(std::memory_order_acquire);
        const int lowest = before - place;
        if (lowest >= 1) {
            ASSERT_GE(value, static_cast<float>(lowest)) << "place " << place;
            ASSERT_LE(value, static_cast<float>(after + 1 - place)) << "place " << place;
        }
        ++checked;
    }
    writer.join();
    EXPECT_EQ(history.At(0), 20000.0f);
    EXPECT_EQ(history.At(4799), 20000.0f - 4799.0f);
}

}  // namespace
