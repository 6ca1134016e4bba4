// The concurrency runtime's critical section: a priority-inheriting lock, so a stream thread of
// real-time priority waiting for it lends its priority to a holder of normal priority.
#include <gtest/gtest.h>

#include <linux/futex.h>
#include <unistd.h>

#include <future>

#include "zqPlatform.h"

namespace {

// A priority-inheriting mutex is a PI futex: while held, its futex word is the holder's thread
// id (the kernel's contract for FUTEX_LOCK_PI); a plain mutex holds 1 or 2 there.
TEST(CriticalSection, IsAPriorityInheritingLockThatExcludesOtherThreads) {
    Concurrency::critical_section cs;
    cs.lock();
    EXPECT_EQ(static_cast<pid_t>(static_cast<unsigned>(cs.native_handle()->__data.__lock) & FUTEX_TID_MASK), gettid());
    EXPECT_FALSE(std::async(std::launch::async, [&] { return cs.try_lock(); }).get()) << "held by this thread";
    cs.unlock();
    EXPECT_EQ(cs.native_handle()->__data.__lock, 0);
    const bool taken = std::async(std::launch::async, [&] {
                           const bool got = cs.try_lock();
                           if (got) cs.unlock();
                           return got;
                       }).get();
    EXPECT_TRUE(taken);
    Concurrency::critical_section::scoped_lock held(cs);
    EXPECT_EQ(static_cast<pid_t>(static_cast<unsigned>(cs.native_handle()->__data.__lock) & FUTEX_TID_MASK), gettid());
}

}  // namespace
