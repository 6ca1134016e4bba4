// A critical section that knows which thread holds it, so that a function whose header says it
// runs with the lock held can check so: ZQ_ASSERT_HELD(lock), an assertion of debug builds
// (none where NDEBUG is defined). Written on the standard library alone, so the check reads the
// same on Windows and elsewhere.
//
// The owner is written just after the lock is taken and cleared just before it is given back,
// with relaxed atomics: the holding thread always reads itself, any other thread reads "not
// me", whatever it races with. Two relaxed stores per lock; nothing allocates or waits beyond
// the lock itself, so it serves the real-time threads' packet lock too.
#pragma once

#include <atomic>
#include <cassert>
#include <mutex>
#include <thread>

#include "zqPlatform.h"

class COwnedCriticalSection {
public:
    COwnedCriticalSection() = default;
    COwnedCriticalSection(const COwnedCriticalSection&) = delete;
    COwnedCriticalSection& operator=(const COwnedCriticalSection&) = delete;

    void lock() {
        m_cs.lock();
        m_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    void unlock() {
        m_owner.store(std::thread::id(), std::memory_order_relaxed);
        m_cs.unlock();
    }
    bool IsHeldByThisThread() const { return m_owner.load(std::memory_order_relaxed) == std::this_thread::get_id(); }

    using scoped_lock = std::lock_guard<COwnedCriticalSection>;

private:
    Concurrency::critical_section m_cs;
    std::atomic<std::thread::id> m_owner{};
};

#if defined(NDEBUG)
#define ZQ_ASSERT_HELD(cs) ((void)0)
#else
#define ZQ_ASSERT_HELD(cs) assert((cs).IsHeldByThisThread() && "called without " #cs " held")
#endif
