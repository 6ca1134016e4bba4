// The system's lock that knows its holder, and the debug builds' check that a function documented
// to run with a lock held is called so. The check is compiled in here whatever the build type.
#undef NDEBUG
#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "core/OwnedCriticalSection.h"

namespace {

bool HeldOnAnotherThread(const COwnedCriticalSection& cs) {
    return std::async(std::launch::async, [&] { return cs.IsHeldByThisThread(); }).get();
}

TEST(OwnedCriticalSection, KnowsWhetherThisThreadHoldsIt) {
    COwnedCriticalSection cs;
    EXPECT_FALSE(cs.IsHeldByThisThread());
    {
        COwnedCriticalSection::scoped_lock held(cs);
        EXPECT_TRUE(cs.IsHeldByThisThread());
        EXPECT_FALSE(HeldOnAnotherThread(cs)) << "only the holder reads itself";
        ZQ_ASSERT_HELD(cs);
    }
    EXPECT_FALSE(cs.IsHeldByThisThread());

    // Held by another thread: not by this one.
    std::promise<void> taken;
    std::promise<void> release;
    auto holder = std::async(std::launch::async, [&] {
        COwnedCriticalSection::scoped_lock held(cs);
        taken.set_value();
        release.get_future().wait();
        return cs.IsHeldByThisThread();
    });
    ASSERT_EQ(taken.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_FALSE(cs.IsHeldByThisThread());
    release.set_value();
    EXPECT_TRUE(holder.get());
}

TEST(OwnedCriticalSectionDeathTest, ACallWithoutTheLockStopsADebugBuild) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    COwnedCriticalSection cs;
    EXPECT_DEATH(ZQ_ASSERT_HELD(cs), "IsHeldByThisThread.*called without");
}

}  // namespace
