// Waitable timers on the stepped platform clock (exact timing), plus one in real time.
#include "kernel_test_support.h"

namespace {

using zqtest::kBoundedWaitMs;
using zqtest::kMs;
using zqtest::ScopedHandle;
using zqtest::TryWait;

using WaitableTimer = zqtest::SteppedClockTest;

// An auto-reset timer, the kind the analyzer uses.
ScopedHandle SetTimer(int64_t due, LONG periodMs) {
    ScopedHandle timer(CreateWaitableTimerW(nullptr, FALSE, nullptr));
    LARGE_INTEGER dueTime;
    dueTime.QuadPart = due;
    EXPECT_TRUE(SetWaitableTimer(timer.get(), &dueTime, periodMs, nullptr, nullptr, FALSE));
    return timer;
}

// As the analyzer sets its timers: a shutdown event before auto-reset timers of 10, 5 and
// 1000 ms, all first due 100 ms after they are set; each falls due exactly, then once per
// period, with expiries missed meanwhile coalesced.
TEST_F(WaitableTimer, LowestIndexWinsAndEachWaitTakesOnlyItsTimer) {
    ScopedHandle shutdown(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    ScopedHandle a = SetTimer(-100 * kMs, 10);
    ScopedHandle b = SetTimer(-100 * kMs, 5);
    ScopedHandle c = SetTimer(-100 * kMs, 1000);
    const HANDLE handles[] = {shutdown.get(), a.get(), b.get(), c.get()};
    const auto expectOrder = [&](std::initializer_list<DWORD> indices) {
        for (DWORD index : indices) EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_OBJECT_0 + index);
        EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_TIMEOUT);
    };
    ASSERT_TRUE(zqvm::AdvanceClock(100 * kMs - 1));  // 99.9999 ms
    expectOrder({});
    ASSERT_TRUE(zqvm::AdvanceClock(1));
    SetEvent(shutdown.get());
    EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_OBJECT_0);  // took no timer
    ResetEvent(shutdown.get());
    expectOrder({1, 2, 3});
    ASSERT_TRUE(zqvm::AdvanceClock(5 * kMs - 1));
    expectOrder({});
    ASSERT_TRUE(zqvm::AdvanceClock(1));
    expectOrder({2});
    ASSERT_TRUE(zqvm::AdvanceClock(5 * kMs));
    expectOrder({1, 2});
    ASSERT_TRUE(zqvm::AdvanceClock(1000 * kMs));  // a second without a wait: each one once
    expectOrder({1, 2, 3});
}

TEST_F(WaitableTimer, ClosingStopsExpiries) {
    // A closed timer must never be touched by the clock again (the address sanitizer run
    // checks this); a duplicate keeps it alive until it too is closed.
    const HANDLE timer = SetTimer(-1 * kMs, 1).release();
    HANDLE duplicate = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), timer, GetCurrentProcess(), &duplicate, 0, FALSE,
                                DUPLICATE_SAME_ACCESS));
    ASSERT_TRUE(CloseHandle(timer));
    ASSERT_TRUE(zqvm::AdvanceClock(1 * kMs));
    EXPECT_TRUE(TryWait(duplicate));
    ASSERT_TRUE(CloseHandle(duplicate));
    EXPECT_TRUE(zqvm::AdvanceClock(10 * kMs));
}

TEST(WaitableTimerRealTime, FallsDueAfterItsTimeOnTheRunningClock) {
    ASSERT_EQ(zqvm::GetClockMode(), zqvm::ClockMode::RealTime);
    const int64_t start = zqvm::ClockNow();
    ScopedHandle timer = SetTimer(-20 * kMs, 5);
    ASSERT_EQ(WaitForSingleObject(timer.get(), kBoundedWaitMs), WAIT_OBJECT_0);
    EXPECT_GE(zqvm::ClockNow() - start, 20 * kMs);
    ASSERT_EQ(WaitForSingleObject(timer.get(), kBoundedWaitMs), WAIT_OBJECT_0);  // and periodically
    EXPECT_GE(zqvm::ClockNow() - start, 25 * kMs);
}

}  // namespace
