// The platform clock: modes, stepping, and the schedule that timers and device clocks use.
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "../../platform/src/kernel/clock_service.h"
#include "kernel_test_support.h"

namespace {

using zqplatform::CancelOnClock;
using zqplatform::ScheduleOnClock;
using zqtest::kBoundedWaitMs;
using zqtest::kMs;
using zqtest::ScopedHandle;

using SteppedClock = zqtest::SteppedClockTest;

// Which callback ran at which clock time; in stepped mode only the advancing thread writes.
struct Record {
    int tag;
    int64_t at;
    bool operator==(const Record&) const = default;
};
struct Recorder {
    std::vector<Record> records;
    zqplatform::ClockCallback Callback(int tag) {
        return [this, tag] { records.push_back({tag, zqvm::ClockNow()}); };
    }
};

TEST_F(SteppedClock, StandsStillAndFiresEveryExpiryOnTheWayInTimeOrder) {
    const int64_t t0 = zqvm::ClockNow();
    ScopedHandle never(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    EXPECT_EQ(WaitForSingleObject(never.get(), 20), WAIT_TIMEOUT);  // real time passes, the clock does not
    EXPECT_EQ(zqvm::ClockNow(), t0);

    Recorder recorder;
    const uint64_t slow = ScheduleOnClock(t0 + 30, 30, recorder.Callback(1));
    const uint64_t fast = ScheduleOnClock(t0 + 10, 10, recorder.Callback(2));
    ScheduleOnClock(t0 + 25, 0, recorder.Callback(3));
    EXPECT_FALSE(zqvm::AdvanceClock(-1));
    ASSERT_TRUE(zqvm::AdvanceClock(60));
    // Callbacks see their own due time; due together, the one set first runs first.
    const std::vector<Record> expected = {{2, t0 + 10}, {2, t0 + 20}, {3, t0 + 25}, {1, t0 + 30}, {2, t0 + 30},
                                          {2, t0 + 40}, {2, t0 + 50}, {1, t0 + 60}, {2, t0 + 60}};
    EXPECT_EQ(recorder.records, expected);
    EXPECT_EQ(zqvm::ClockNow(), t0 + 60);
    CancelOnClock(slow);
    CancelOnClock(fast);
    ASSERT_TRUE(zqvm::AdvanceClock(100));
    EXPECT_EQ(recorder.records.size(), expected.size());
}

TEST_F(SteppedClock, CallbacksMayScheduleAndCancelButNotAdvance) {
    Recorder recorder;
    const int64_t t0 = zqvm::ClockNow();
    uint64_t self = 0;
    uint64_t victim = 0;
    int selfRuns = 0;
    bool nestedAdvance = true;
    // Due at 10: schedules a one-shot at 15 (run in this same advance), cancels the entry due
    // after it at 10, then itself.
    self = ScheduleOnClock(t0 + 10, 10, [&] {
        ++selfRuns;
        nestedAdvance = zqvm::AdvanceClock(5);
        ScheduleOnClock(zqvm::ClockNow() + 5, 0, recorder.Callback(7));
        CancelOnClock(victim);
        CancelOnClock(self);
    });
    victim = ScheduleOnClock(t0 + 10, 10, recorder.Callback(8));
    ASSERT_TRUE(zqvm::AdvanceClock(50));
    EXPECT_EQ(selfRuns, 1);
    EXPECT_FALSE(nestedAdvance);
    EXPECT_EQ(recorder.records, (std::vector<Record>{{7, t0 + 15}}));
}

TEST_F(SteppedClock, LateStartSkipsMissedPeriods) {
    Recorder recorder;
    const int64_t t0 = zqvm::ClockNow();
    // First due 35 units ago, period 10: one run now, then the next boundary ahead (t0 + 5).
    const uint64_t id = ScheduleOnClock(t0 - 35, 10, recorder.Callback(1));
    ASSERT_TRUE(zqvm::AdvanceClock(4));
    ASSERT_TRUE(zqvm::AdvanceClock(1));
    EXPECT_EQ(recorder.records, (std::vector<Record>{{1, t0}, {1, t0 + 5}}));
    CancelOnClock(id);
}

TEST(ClockModes, SwitchingKeepsTheCurrentTime) {
    ASSERT_EQ(zqvm::GetClockMode(), zqvm::ClockMode::RealTime);
    EXPECT_FALSE(zqvm::AdvanceClock(1));
    const int64_t before = zqvm::ClockNow();
    zqvm::SetClockMode(zqvm::ClockMode::Stepped);
    const int64_t frozen = zqvm::ClockNow();
    EXPECT_GE(frozen, before);
    constexpr int64_t kHour = 3600LL * 1000 * kMs;
    ASSERT_TRUE(zqvm::AdvanceClock(kHour));
    zqvm::SetClockMode(zqvm::ClockMode::RealTime);
    const int64_t resumed = zqvm::ClockNow();
    EXPECT_GE(resumed, frozen + kHour);
    EXPECT_LT(resumed, frozen + kHour + 1000 * kMs);  // no jump back to the system's clock
    ScopedHandle never(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    EXPECT_EQ(WaitForSingleObject(never.get(), 20), WAIT_TIMEOUT);
    EXPECT_GE(zqvm::ClockNow() - resumed, 20 * kMs);  // and runs on in real time
}

// A callback every millisecond, cancelled from another thread while it runs: once
// CancelOnClock returns, the callback must not be running and must never run again.
TEST(ClockRealTime, CancelFromAnotherThreadEndsTheCallbackForGood) {
    ASSERT_EQ(zqvm::GetClockMode(), zqvm::ClockMode::RealTime);
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> runs{0};
        std::atomic<bool> inside{false};
        const uint64_t id = ScheduleOnClock(zqvm::ClockNow(), 1 * kMs, [&] {
            inside.store(true);
            runs.fetch_add(1);
            // Stay a while, so the cancel below meets a running callback.
            const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(200);
            while (std::chrono::steady_clock::now() < until) {
            }
            inside.store(false);
        });
        bool insideAfterCancel = true;
        int runsAfterCancel = 0;
        std::thread canceller([&] {
            const auto giveUp = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBoundedWaitMs);
            while (!inside.load() && std::chrono::steady_clock::now() < giveUp) {
            }
            CancelOnClock(id);
            insideAfterCancel = inside.load();
            runsAfterCancel = runs.load();
        });
        canceller.join();
        ASSERT_GT(runsAfterCancel, 0) << "the clock never ran the callback";
        EXPECT_FALSE(insideAfterCancel) << "round " << round;

        // Callbacks run one at a time in due order: once a later one has run, any expiry of
        // the cancelled one before it would have run too.
        ScopedHandle sentinel(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const HANDLE sentinelHandle = sentinel.get();
        ScheduleOnClock(zqvm::ClockNow() + 5 * kMs, 0, [sentinelHandle] { SetEvent(sentinelHandle); });
        ASSERT_EQ(WaitForSingleObject(sentinel.get(), kBoundedWaitMs), WAIT_OBJECT_0);
        EXPECT_EQ(runs.load(), runsAfterCancel) << "round " << round;
    }
}

}  // namespace
