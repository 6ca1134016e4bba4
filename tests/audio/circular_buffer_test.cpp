// The byte ring: what fits is stored and the rest dropped, split copies at the end of the
// storage, positions that wrap to 0 exactly at the capacity.
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <numeric>
#include <random>
#include <vector>

#include "audio/CircularBuffer.h"

namespace {

std::vector<uint8_t> Bytes(size_t n, uint8_t first) {
    std::vector<uint8_t> v(n);
    std::iota(v.begin(), v.end(), first);
    return v;
}

TEST(CircularBuffer, AWriteStoresOnlyWhatFitsAndKeepsTheOlderBytes) {
    CCircularBuffer ring(48000);
    EXPECT_EQ(ring.GetCapacity(), 48000u);
    const auto old = Bytes(47990, 0);
    ASSERT_EQ(ring.Write(old.data(), old.size()), 47990u);
    const auto extra = Bytes(100, 200);
    EXPECT_EQ(ring.Write(extra.data(), extra.size()), 10u);
    EXPECT_EQ(ring.GetCount(), 48000u);
    EXPECT_EQ(ring.Write(extra.data(), extra.size()), 0u);  // full: nothing more

    std::vector<uint8_t> all(48000);
    ASSERT_EQ(ring.Read(all.data(), all.size()), 48000u);
    EXPECT_TRUE(std::equal(old.begin(), old.end(), all.begin()));
    EXPECT_TRUE(std::equal(extra.begin(), extra.begin() + 10, all.begin() + 47990));
}

TEST(CircularBuffer, PositionsWrapToZeroExactlyAtTheEndAndCrossingWritesAreSplit) {
    CCircularBuffer ring(16);
    const auto first = Bytes(16, 0);
    ASSERT_EQ(ring.Write(first.data(), 16), 16u);
    EXPECT_EQ(ring.GetWritePos(), 0u);  // ended exactly at the end
    std::vector<uint8_t> out(16);
    ASSERT_EQ(ring.Read(out.data(), 10), 10u);
    EXPECT_EQ(ring.GetReadPos(), 10u);

    const auto second = Bytes(9, 100);
    ASSERT_EQ(ring.Write(second.data(), 9), 9u);  // 9 bytes from position 0: no split
    EXPECT_EQ(ring.GetWritePos(), 9u);
    ASSERT_EQ(ring.Read(out.data(), 6), 6u);  // the rest of the first write, to the end
    EXPECT_EQ(ring.GetReadPos(), 0u);
    EXPECT_TRUE(std::equal(first.begin() + 10, first.end(), out.begin()));

    // Now write 10 from position 9 of 16: 7 to the end, 3 at the start.
    ASSERT_EQ(ring.Read(out.data(), 9), 9u);
    const auto third = Bytes(10, 50);
    ASSERT_EQ(ring.Write(third.data(), 10), 10u);
    EXPECT_EQ(ring.GetWritePos(), 3u);  // the length of the second piece
    std::vector<uint8_t> back(10);
    ASSERT_EQ(ring.Read(back.data(), 10), 10u);  // a split read in turn
    EXPECT_EQ(back, third);
    EXPECT_EQ(ring.GetReadPos(), 3u);
    EXPECT_EQ(ring.GetCount(), 0u);
}

TEST(CircularBuffer, AReadTakesWhatIsStoredAndZeroLengthsChangeNothing) {
    CCircularBuffer ring(64);
    const auto data = Bytes(20, 1);
    ASSERT_EQ(ring.Write(data.data(), 20), 20u);
    EXPECT_EQ(ring.Write(data.data(), 0), 0u);
    std::vector<uint8_t> out(50, 0xEE);
    EXPECT_EQ(ring.Read(out.data(), 0), 0u);
    EXPECT_EQ(ring.GetCount(), 20u);
    EXPECT_EQ(ring.GetReadPos(), 0u);
    EXPECT_EQ(ring.GetWritePos(), 20u);

    EXPECT_EQ(ring.Read(out.data(), 50), 20u);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), out.begin()));
    EXPECT_EQ(out[20], 0xEE);  // the rest of the destination is left alone
    EXPECT_EQ(ring.GetCount(), 0u);
    EXPECT_EQ(ring.Read(out.data(), 50), 0u);
}

// Any sequence of writes and reads behaves like a bounded FIFO of bytes.
TEST(CircularBuffer, RandomWritesAndReadsMatchABoundedFifo) {
    constexpr size_t kCapacity = 37;  // prime, so the wrap lands everywhere
    CCircularBuffer ring(kCapacity);
    std::deque<uint8_t> model;
    std::mt19937 random(1234);
    uint8_t next = 0;
    for (int step = 0; step < 20000; ++step) {
        const size_t n = random() % 50;
        if (random() % 2 == 0) {
            std::vector<uint8_t> chunk(n);
            for (auto& b : chunk) b = next++;
            const size_t stored = ring.Write(chunk.data(), n);
            ASSERT_EQ(stored, std::min(n, kCapacity - model.size()));
            model.insert(model.end(), chunk.begin(), chunk.begin() + static_cast<ptrdiff_t>(stored));
        } else {
            std::vector<uint8_t> out(n);
            const size_t taken = ring.Read(out.data(), n);
            ASSERT_EQ(taken, std::min(n, model.size()));
            for (size_t i = 0; i < taken; ++i, model.pop_front()) ASSERT_EQ(out[i], model.front());
        }
        ASSERT_EQ(ring.GetCount(), model.size());
        ASSERT_LT(ring.GetReadPos(), kCapacity);
        ASSERT_LT(ring.GetWritePos(), kCapacity);
        ASSERT_EQ((ring.GetReadPos() + ring.GetCount()) % kCapacity, ring.GetWritePos());
    }
}

}  // namespace
