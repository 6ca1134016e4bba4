// The ring between libpulse's thread and a stream thread: order kept across the wrap, nothing
// written past what is free, contiguous areas only where the bytes follow each other.
#include <gtest/gtest.h>

#include <numeric>
#include <thread>
#include <vector>

#include "../../platform/src/pulse/byte_ring.h"

namespace {

using zqplatform::pulse::ByteRing;

TEST(ByteRing, KeepsOrderAcrossTheWrapAndRefusesWhatDoesNotFit) {
    ByteRing ring;
    ring.Allocate(10);
    std::vector<uint8_t> bytes(8);
    std::iota(bytes.begin(), bytes.end(), 1);
    EXPECT_EQ(8u, ring.Write(bytes.data(), 8));
    std::vector<uint8_t> out(6);
    ring.Read(out.data(), 6);
    ring.CommitRead(6);
    EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4, 5, 6}), out);
    // Two left; eight more wrap around the end; the ninth does not fit.
    EXPECT_EQ(8u, ring.Write(bytes.data(), 9));
    EXPECT_EQ(10u, ring.Filled());
    EXPECT_EQ(0u, ring.Free());
    size_t contiguous = 0;
    const uint8_t* at = ring.ReadArea(&contiguous);
    EXPECT_EQ(4u, contiguous) << "from the read position to the end of the storage";
    EXPECT_EQ(7, at[0]);
    std::vector<uint8_t> all(10);
    ring.Read(all.data(), 10);
    EXPECT_EQ((std::vector<uint8_t>{7, 8, 1, 2, 3, 4, 5, 6, 7, 8}), all);
}

TEST(ByteRing, ContiguousWriteAreaOnlyWhereTheBytesFollowEachOther) {
    ByteRing ring;
    ring.Allocate(8);
    ASSERT_NE(nullptr, ring.ContiguousWriteArea(8));
    ring.CommitWrite(6);
    ring.CommitRead(6);
    EXPECT_NE(nullptr, ring.ContiguousWriteArea(2));
    EXPECT_EQ(nullptr, ring.ContiguousWriteArea(3)) << "would wrap";
    ring.Drain();
    EXPECT_EQ(0u, ring.Filled());
}

TEST(ByteRing, OneProducerAndOneConsumerSeeEveryByteOnceInOrder) {
    ByteRing ring;
    ring.Allocate(64);
    constexpr uint32_t kCount = 200000;
    std::thread producer([&] {
        uint32_t next = 0;
        while (next < kCount) {
            const uint8_t value = static_cast<uint8_t>(next);
            if (ring.Write(&value, 1) == 1) ++next;
        }
    });
    uint32_t expected = 0;
    bool inOrder = true;
    while (expected < kCount) {
        size_t contiguous = 0;
        const uint8_t* at = ring.ReadArea(&contiguous);
        for (size_t i = 0; i < contiguous; ++i, ++expected) inOrder = inOrder && at[i] == static_cast<uint8_t>(expected);
        ring.CommitRead(contiguous);
    }
    producer.join();
    EXPECT_TRUE(inOrder);
}

}  // namespace
