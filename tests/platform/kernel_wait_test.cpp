// WaitForSingleObject and WaitForMultipleObjects: which object a wait returns, what it
// consumes, and wake-ups across threads.
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "kernel_test_support.h"

namespace {

using zqtest::kBoundedWaitMs;
using zqtest::ScopedHandle;
using zqtest::TryWait;

// A waiter that misses its wake-up still finds the signal when its bounded wait times out;
// a wake-up must come long before that.
constexpr auto kPromptly = std::chrono::milliseconds(kBoundedWaitMs / 2);

ScopedHandle NewEvent(bool manualReset, bool initialState) {
    return ScopedHandle(CreateEventW(nullptr, manualReset ? TRUE : FALSE, initialState ? TRUE : FALSE, nullptr));
}

TEST(KernelWaitAny, LowestSignalledIndexWinsAndOnlyItIsConsumed) {
    ScopedHandle shutdown = NewEvent(true, false);
    ScopedHandle b = NewEvent(false, true);
    ScopedHandle c = NewEvent(false, true);
    const HANDLE handles[] = {shutdown.get(), b.get(), c.get()};
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_OBJECT_0 + 2);  // c was left alone
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_TIMEOUT);
    SetEvent(c.get());
    SetEvent(shutdown.get());
    for (int i = 0; i < 3; ++i) EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_OBJECT_0);
    ResetEvent(shutdown.get());
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_OBJECT_0 + 2);
}

TEST(KernelWaitAcrossThreads, OneAutoResetSignalReleasesExactlyOneWaiter) {
    constexpr int kWaiters = 4;
    ScopedHandle quit = NewEvent(true, false);
    ScopedHandle event = NewEvent(false, false);
    ScopedHandle woke = NewEvent(false, false);
    std::atomic<int> tookEvent{0};
    std::atomic<int> sawQuit{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i) {
        waiters.emplace_back([&] {
            const HANDLE handles[] = {quit.get(), event.get()};
            const DWORD result = WaitForMultipleObjects(2, handles, FALSE, kBoundedWaitMs);
            if (result == WAIT_OBJECT_0 + 1) {
                tookEvent.fetch_add(1);
                SetEvent(woke.get());
            } else if (result == WAIT_OBJECT_0) {
                sawQuit.fetch_add(1);
            }
        });
    }
    const auto setAt = std::chrono::steady_clock::now();
    SetEvent(event.get());
    ASSERT_EQ(WaitForSingleObject(woke.get(), kBoundedWaitMs), WAIT_OBJECT_0);
    EXPECT_LT(std::chrono::steady_clock::now() - setAt, kPromptly);
    const auto quitAt = std::chrono::steady_clock::now();
    SetEvent(quit.get());  // the lowest index: every other waiter returns it
    for (std::thread& waiter : waiters) waiter.join();
    EXPECT_LT(std::chrono::steady_clock::now() - quitAt, kPromptly);
    EXPECT_EQ(tookEvent.load(), 1);
    EXPECT_EQ(sawQuit.load(), kWaiters - 1);
}

}  // namespace
