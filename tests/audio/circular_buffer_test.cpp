// The byte ring: what fits is stored and the rest dropped, split copies at the end of the
// storage, positions that wrap to 0 exactly at the capacity.
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <random>
#include <vector>

#include "audio/CircularBuffer.h"

namespace {

// Any sequence of writes and reads behaves like a bounded FIFO of bytes: full writes and reads,
// partial ones, zero lengths, copies split at the end of the storage and positions that end
// exactly on it, each met many times over.
TEST(CircularBuffer, RandomWritesAndReadsMatchABoundedFifo) {
    constexpr size_t kCapacity = 37;  // prime, so the wrap lands everywhere
    CCircularBuffer ring(kCapacity);
    std::deque<uint8_t> model;
    std::mt19937 random(1234);
    uint8_t next = 0;
    for (int step = 0; step < 20000; ++step) {
        const size_t n = random() % 50;
        // One byte more than n, so that a zero length comes with a real pointer too.
        if (random() % 2 == 0) {
            std::vector<uint8_t> chunk(n + 1);
            for (size_t i = 0; i < n; ++i) chunk[i] = next++;
            const size_t stored = ring.Write(chunk.data(), n);
            ASSERT_EQ(stored, std::min(n, kCapacity - model.size()));
            model.insert(model.end(), chunk.begin(), chunk.begin() + static_cast<ptrdiff_t>(stored));
        } else {
            std::vector<uint8_t> out(n + 1, 0xEE);
            const size_t taken = ring.Read(out.data(), n);
            ASSERT_EQ(taken, std::min(n, model.size()));
            for (size_t i = 0; i < taken; ++i, model.pop_front()) ASSERT_EQ(out[i], model.front());
            for (size_t i = taken; i <= n; ++i) ASSERT_EQ(out[i], 0xEE) << "the rest of the destination is left alone";
        }
        ASSERT_EQ(ring.GetCount(), model.size());
        ASSERT_LT(ring.GetReadPos(), kCapacity);
        ASSERT_LT(ring.GetWritePos(), kCapacity);
        ASSERT_EQ((ring.GetReadPos() + ring.GetCount()) % kCapacity, ring.GetWritePos());
    }
}

}  // namespace
