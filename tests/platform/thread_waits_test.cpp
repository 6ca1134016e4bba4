// zqvm::WaitUntilWaitedOn: a driver of the stepped clock learns that a thread has finished what
// a signal started and waits again, and is told when that does not happen.
#include <atomic>
#include <thread>

#include "kernel_test_support.h"
#include "zqplatform/vm/thread_waits.h"

namespace {

using zqtest::kBoundedWaitMs;
using zqtest::ScopedHandle;

TEST(ThreadWaits, ReturnsOnceTheWokenThreadHasDoneItsWorkAndWaitsAgain) {
    ScopedHandle work(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    ScopedHandle stop(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::atomic<int> done{0};
    std::atomic<bool> release{false};
    std::thread worker([&] {
        const HANDLE waits[2] = {stop.get(), work.get()};
        while (WaitForMultipleObjects(2, waits, FALSE, INFINITE) == WAIT_OBJECT_0 + 1) {
            while (!release.load()) std::this_thread::yield();  // the work takes as long as the test says
            done.fetch_add(1);
        }
    });
    ASSERT_TRUE(zqvm::WaitUntilWaitedOn(work.get(), kBoundedWaitMs)) << "the worker starts by waiting";
    for (int round = 1; round <= 3; ++round) {
        SetEvent(work.get());
        EXPECT_FALSE(zqvm::WaitUntilWaitedOn(work.get(), 20)) << "still working in round " << round;
        release.store(true);
        ASSERT_TRUE(zqvm::WaitUntilWaitedOn(work.get(), kBoundedWaitMs));
        EXPECT_EQ(done.load(), round) << "the work of the signal is done, and only once";
        release.store(false);
    }
    SetEvent(stop.get());
    worker.join();
}

TEST(ThreadWaits, NobodyWaitingOrNothingToWaitOnIsATimeOut) {
    ScopedHandle idle(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    EXPECT_FALSE(zqvm::WaitUntilWaitedOn(idle.get(), 10)) << "no thread waits on it";
    EXPECT_FALSE(zqvm::WaitUntilWaitedOn(nullptr, 10));
}

}  // namespace
