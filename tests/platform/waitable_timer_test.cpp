// Waitable timers on the stepped platform clock (exact timing), plus one in real time.
#include "kernel_test_support.h"

namespace {

using zqtest::kBoundedWaitMs;
using zqtest::kMs;
using zqtest::ScopedHandle;
using zqtest::TryWait;

using WaitableTimer = zqtest::SteppedClockTest;

ScopedHandle SetTimer(bool manualReset, int64_t due, LONG periodMs) {
    ScopedHandle timer(CreateWaitableTimerW(nullptr, manualReset ? TRUE : FALSE, nullptr));
    LARGE_INTEGER dueTime;
    dueTime.QuadPart = due;
    EXPECT_TRUE(SetWaitableTimer(timer.get(), &dueTime, periodMs, nullptr, nullptr, FALSE));
    return timer;
}

TEST_F(WaitableTimer, FallsDueExactlyThenOncePerPeriodWithMissedExpiriesCoalesced) {
    ScopedHandle timer = SetTimer(false, -100 * kMs, 10);
    ASSERT_TRUE(zqvm::AdvanceClock(100 * kMs - 1));  // 99.9999 ms
    EXPECT_FALSE(TryWait(timer.get()));
    ASSERT_TRUE(zqvm::AdvanceClock(1));
    EXPECT_TRUE(TryWait(timer.get()));
    EXPECT_FALSE(TryWait(timer.get()));  // taken by that wait
    ASSERT_TRUE(zqvm::AdvanceClock(10 * kMs - 1));
    EXPECT_FALSE(TryWait(timer.get()));
    ASSERT_TRUE(zqvm::AdvanceClock(1));
    EXPECT_TRUE(TryWait(timer.get()));
    ASSERT_TRUE(zqvm::AdvanceClock(3 * 10 * kMs));  // three periods without a wait: one signal
    EXPECT_TRUE(TryWait(timer.get()));
    EXPECT_FALSE(TryWait(timer.get()));
}

TEST_F(WaitableTimer, AbsoluteDueTimeIsOnThePlatformClock) {
    const int64_t now = zqvm::ClockNow();
    ScopedHandle timer = SetTimer(false, now + 25 * kMs, 0);
    ScopedHandle late = SetTimer(false, now - 1, 0);  // already passed: due at once
    ASSERT_TRUE(zqvm::AdvanceClock(0));
    EXPECT_TRUE(TryWait(late.get()));
    ASSERT_TRUE(zqvm::AdvanceClock(25 * kMs - 1));
    EXPECT_FALSE(TryWait(timer.get()));
    ASSERT_TRUE(zqvm::AdvanceClock(1));
    EXPECT_TRUE(TryWait(timer.get()));
    ASSERT_TRUE(zqvm::AdvanceClock(1000 * kMs));  // period 0: once only
    EXPECT_FALSE(TryWait(timer.get()));
}

TEST_F(WaitableTimer, ManualResetStaysSignalledUntilSetAgain) {
    ScopedHandle timer = SetTimer(true, -10 * kMs, 0);
    ASSERT_TRUE(zqvm::AdvanceClock(10 * kMs));
    EXPECT_TRUE(TryWait(timer.get()));
    EXPECT_TRUE(TryWait(timer.get()));
    LARGE_INTEGER later;
    later.QuadPart = -50 * kMs;
    ASSERT_TRUE(SetWaitableTimer(timer.get(), &later, 0, nullptr, nullptr, FALSE));
    EXPECT_FALSE(TryWait(timer.get()));  // setting clears the signal and replaces the schedule
    ASSERT_TRUE(zqvm::AdvanceClock(50 * kMs - 1));
    EXPECT_FALSE(TryWait(timer.get()));
    ASSERT_TRUE(zqvm::AdvanceClock(1));
    EXPECT_TRUE(TryWait(timer.get()));
}

TEST_F(WaitableTimer, LowestIndexWinsAndEachWaitTakesOnlyItsTimer) {
    // A shutdown event before auto-reset timers of 10, 5 and 1000 ms, all first due at 100 ms.
    ScopedHandle shutdown(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    ScopedHandle a = SetTimer(false, -100 * kMs, 10);
    ScopedHandle b = SetTimer(false, -100 * kMs, 5);
    ScopedHandle c = SetTimer(false, -100 * kMs, 1000);
    const HANDLE handles[] = {shutdown.get(), a.get(), b.get(), c.get()};
    const auto expectOrder = [&](std::initializer_list<DWORD> indices) {
        for (DWORD index : indices) EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_OBJECT_0 + index);
        EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_TIMEOUT);
    };
    ASSERT_TRUE(zqvm::AdvanceClock(100 * kMs));
    SetEvent(shutdown.get());
    EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_OBJECT_0);  // took no timer
    ResetEvent(shutdown.get());
    expectOrder({1, 2, 3});
    ASSERT_TRUE(zqvm::AdvanceClock(5 * kMs));
    expectOrder({2});
    ASSERT_TRUE(zqvm::AdvanceClock(5 * kMs));
    expectOrder({1, 2});
    ASSERT_TRUE(zqvm::AdvanceClock(1000 * kMs));  // a second without a wait: each one once
    expectOrder({1, 2, 3});
}

TEST_F(WaitableTimer, CancelAndCloseStopExpiries) {
    ScopedHandle manual = SetTimer(true, -10 * kMs, 10);
    ScopedHandle automatic = SetTimer(false, -10 * kMs, 10);
    ASSERT_TRUE(zqvm::AdvanceClock(10 * kMs));
    ASSERT_TRUE(CancelWaitableTimer(manual.get()));
    ASSERT_TRUE(CancelWaitableTimer(automatic.get()));
    EXPECT_TRUE(TryWait(manual.get()));  // cancelling keeps the signal
    EXPECT_TRUE(TryWait(automatic.get()));
    ASSERT_TRUE(zqvm::AdvanceClock(100 * kMs));
    EXPECT_FALSE(TryWait(automatic.get()));
    EXPECT_TRUE(CancelWaitableTimer(automatic.get()));  // an idle timer: fine

    // A closed timer must never be touched by the clock again (the address sanitizer run
    // checks this); a duplicate keeps it alive until it too is closed.
    const HANDLE timer = SetTimer(false, -1 * kMs, 1).release();
    HANDLE duplicate = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), timer, GetCurrentProcess(), &duplicate, 0, FALSE,
                                DUPLICATE_SAME_ACCESS | DUPLICATE_CLOSE_SOURCE));
    ASSERT_TRUE(zqvm::AdvanceClock(1 * kMs));
    EXPECT_TRUE(TryWait(duplicate));
    ASSERT_TRUE(CloseHandle(duplicate));
    EXPECT_TRUE(zqvm::AdvanceClock(10 * kMs));
}

TEST(WaitableTimerRealTime, FallsDueAfterItsTimeOnTheRunningClock) {
    ASSERT_EQ(zqvm::GetClockMode(), zqvm::ClockMode::RealTime);
    const int64_t start = zqvm::ClockNow();
    ScopedHandle timer = SetTimer(false, -20 * kMs, 5);
    ASSERT_EQ(WaitForSingleObject(timer.get(), kBoundedWaitMs), WAIT_OBJECT_0);
    EXPECT_GE(zqvm::ClockNow() - start, 20 * kMs);
    ASSERT_EQ(WaitForSingleObject(timer.get(), kBoundedWaitMs), WAIT_OBJECT_0);  // and periodically
    EXPECT_GE(zqvm::ClockNow() - start, 25 * kMs);
}

}  // namespace
