// Counts the heap allocations (operator new, array forms included) that the calling thread
// makes while a counter lives: the proof that a real-time path allocates nothing.
// The audio suite replaces the global operator new for this (allocation_counter.cpp); it
// forwards to malloc and counts only for threads that have a counter.
#pragma once

#include <cstddef>

namespace zqtest {

class ThreadAllocationCounter {
public:
    ThreadAllocationCounter();
    ~ThreadAllocationCounter();
    ThreadAllocationCounter(const ThreadAllocationCounter&) = delete;
    ThreadAllocationCounter& operator=(const ThreadAllocationCounter&) = delete;

    size_t Count() const;
};

}  // namespace zqtest
