// The audio suite's global operator new: malloc, counted per thread on request.
#include "allocation_counter.h"

#include <cstdlib>
#include <new>

namespace {
// Plain thread-locals of trivial types: usable from operator new without initialisation.
thread_local bool t_counting = false;
thread_local size_t t_count = 0;

void* Allocate(size_t size) noexcept {
    if (t_counting) ++t_count;
    return std::malloc(size != 0 ? size : 1);
}

}  // namespace

// Every form that pairs with free, so that no allocation and release meet a different heap
// (sanitizer runtimes bring forms of their own for any left out). The aligned forms are left
// alone: they pair with each other.
void* operator new(size_t size) {
    if (void* p = Allocate(size)) return p;
    throw std::bad_alloc();
}
void* operator new[](size_t size) {
    if (void* p = Allocate(size)) return p;
    throw std::bad_alloc();
}
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace zqtest {

ThreadAllocationCounter::ThreadAllocationCounter() {
    t_count = 0;
    t_counting = true;
}

ThreadAllocationCounter::~ThreadAllocationCounter() { t_counting = false; }

size_t ThreadAllocationCounter::Count() const { return t_count; }

}  // namespace zqtest
