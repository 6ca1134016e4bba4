// Counts heap allocations by interposing malloc and its relatives for the whole process (so
// libraries' allocations count as well as ours). Include in exactly one file of a benchmark
// program, which defines CountThisAllocation(): whether the calling thread's allocation counts
// now. It runs inside malloc: it must neither allocate nor lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <malloc.h>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
}

bool CountThisAllocation();
inline std::atomic<uint64_t> g_countedAllocations{0};

namespace allocation_hooks {
inline void Count() {
    if (CountThisAllocation()) g_countedAllocations.fetch_add(1, std::memory_order_relaxed);
}
}  // namespace allocation_hooks

extern "C" {
void* malloc(size_t size) {
    allocation_hooks::Count();
    return __libc_malloc(size);
}
void* calloc(size_t n, size_t size) {
    allocation_hooks::Count();
    return __libc_calloc(n, size);
}
void* realloc(void* p, size_t size) {
    allocation_hooks::Count();
    return __libc_realloc(p, size);
}
void* memalign(size_t alignment, size_t size) {
    allocation_hooks::Count();
    return __libc_memalign(alignment, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
    allocation_hooks::Count();
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size) {
    allocation_hooks::Count();
    void* p = __libc_memalign(alignment, size);
    if (p == nullptr) return 12;  // ENOMEM
    *out = p;
    return 0;
}
}
