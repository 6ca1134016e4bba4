// The analyzer feed buffer: its lifecycle and log lines, the mono samples it feeds into its
// ring, and the latest-packet block.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "allocation_counter.h"
#include "audio/AudioSharedMem.h"
#include "audio/CircularBuffer.h"
#include "log_recorder.h"
#include "zqCoreAudio.h"

namespace {

using zqtest::LogRecorder;

// Stereo frames whose left samples are 1, 2, 3, ... + base and right samples their negatives.
std::vector<float> Frames(uint32_t count, float base = 0.0f) {
    std::vector<float> frames(size_t{count} * 2);
    for (uint32_t i = 0; i < count; ++i) {
        frames[2 * i] = base + static_cast<float>(i + 1);
        frames[2 * i + 1] = -(base + static_cast<float>(i + 1));
    }
    return frames;
}

std::vector<float> Drain(CAudioSharedMem& buffer) {
    std::vector<float> samples(CAudioSharedMem::kRingBytes / 4 + 1);
    const size_t bytes = buffer.Read(samples.data(), samples.size() * 4);
    samples.resize(bytes / 4);
    return samples;
}

// The block as it must read after a packet: header, frames (cut at the block's end), zero.
std::vector<uint8_t> ExpectedBlock(const std::vector<float>& frames, uint32_t count) {
    std::vector<uint8_t> block(CAudioSharedMem::kBlockBytes, 0);
    const int32_t header[2] = {static_cast<int32_t>(count), 1};
    std::memcpy(block.data(), header, 8);
    std::memcpy(block.data() + 8, frames.data(), std::min<size_t>(size_t{count} * 8, block.size() - 8));
    return block;
}

std::vector<uint8_t> Block(const CAudioSharedMem& buffer) {
    return {buffer.GetBlock(), buffer.GetBlock() + buffer.GetBlockSize()};
}

class AudioSharedMem : public ::testing::Test {
protected:
    LogRecorder recorder;
    CZQCoreAudio core;
    CAudioSharedMem buffer;
    void SetUp() override {
        core.SetLog(&recorder.Log());
        ASSERT_EQ(buffer.CreateBuffer(), 1);
        recorder.Clear();
    }
    void TearDown() override {
        buffer.Close();  // while the log still exists
        core.SetLog(nullptr);
    }
};

TEST_F(AudioSharedMem, CreateAndCloseLogTheirStepsAndCanBeRepeated) {
    CAudioSharedMem fresh;
    EXPECT_FALSE(fresh.IsOpen());
    EXPECT_EQ(fresh.CreateBuffer(), 1);
    EXPECT_TRUE(fresh.IsOpen());
    EXPECT_EQ(fresh.GetBlockSize(), 48000);
    ASSERT_NE(fresh.GetRing(), nullptr);
    EXPECT_EQ(fresh.GetRing()->GetCapacity(), 48000u);
    fresh.Close();
    fresh.Close();
    EXPECT_FALSE(fresh.IsOpen());
    EXPECT_EQ(fresh.GetRing(), nullptr);
    EXPECT_EQ(recorder.Texts(),
              (std::vector<std::wstring>{L"AudioSharedMem: CreateBuffer", L"AudioSharedMem: Close",
                                         L"AudioSharedMem: alloc buffer memory OK", L"AudioSharedMem: Close",
                                         L"AudioSharedMem: Close"}));
    for (const auto& e : recorder.Events()) EXPECT_EQ(e.type, zqLogEventInfo);
}

TEST_F(AudioSharedMem, RefusedPacketsChangeNothing) {
    const auto frames = Frames(4);
    ASSERT_EQ(buffer.WritePacket(frames.data(), 4), 1);
    const auto blockBefore = Block(buffer);
    EXPECT_EQ(buffer.WritePacket(frames.data(), 0), 0);
    EXPECT_EQ(buffer.WritePacket(nullptr, 4), 0);
    EXPECT_EQ(Block(buffer), blockBefore);
    EXPECT_EQ(buffer.GetUsed(), 4);
    EXPECT_EQ(buffer.GetRing()->GetCount(), 16u);

    buffer.Close();
    EXPECT_EQ(buffer.WritePacket(frames.data(), 4), 0);
    float sample = 0;
    EXPECT_EQ(buffer.Read(&sample, 4), 0u);
}

TEST_F(AudioSharedMem, TheBlockHoldsOnlyTheLatestPacketWhateverCameBefore) {
    // Long, short, longer than the block, empty-tailed: after each, the block must read as
    // if it had been cleared first.
    for (uint32_t count : {480u, 3u, 7000u, 1u, 5999u, 6000u, 100u}) {
        const auto frames = Frames(count, static_cast<float>(count));
        ASSERT_EQ(buffer.WritePacket(frames.data(), count), 1);
        ASSERT_EQ(Block(buffer), ExpectedBlock(frames, count)) << "after a packet of " << count;
        ASSERT_EQ(buffer.GetUsed(), static_cast<int>(count));
    }
}

TEST_F(AudioSharedMem, TheRingKeepsTheFirstSamplesThatFitAndDropsTheRestEvenOfAPacketLargerThanIt) {
    // 11 packets of 1000 frames leave room for 1000 samples; a packet of 1500 fills it with
    // its first 1000 left samples (the cut falls inside the packet, across copy chunks).
    for (int i = 0; i < 11; ++i) {
        const auto frames = Frames(1000, 10000.0f * static_cast<float>(i));
        ASSERT_EQ(buffer.WritePacket(frames.data(), 1000), 1);
    }
    const auto last = Frames(1500, -5000.0f);
    EXPECT_EQ(buffer.WritePacket(last.data(), 1500), 1);  // accepted though cut
    EXPECT_EQ(buffer.GetRing()->GetCount(), 48000u);
    EXPECT_EQ(Block(buffer), ExpectedBlock(last, 1500));  // the block has all of it

    const auto samples = Drain(buffer);
    ASSERT_EQ(samples.size(), 12000u);
    EXPECT_EQ(samples[0], 1.0f);
    EXPECT_EQ(samples[10999], 100000.0f + 1000.0f);
    for (size_t i = 0; i < 1000; ++i) ASSERT_EQ(samples[11000 + i], last[2 * i]) << i;

    // Drained, it takes the beginning of a packet larger than the whole ring.
    const auto huge = Frames(20000);
    ASSERT_EQ(buffer.WritePacket(huge.data(), 20000), 1);
    const auto filled = Drain(buffer);
    ASSERT_EQ(filled.size(), 12000u);
    EXPECT_EQ(filled.front(), 1.0f);
    EXPECT_EQ(filled.back(), 12000.0f);
}

TEST_F(AudioSharedMem, WritingAPacketAllocatesNothing) {
    const auto frames = Frames(480);
    size_t allocations = 0;
    {
        zqtest::ThreadAllocationCounter counter;
        ::operator delete(::operator new(16));  // the counter sees this one (a call, not elidable)
        ASSERT_EQ(counter.Count(), 1u);
        for (int i = 0; i < 20; ++i) buffer.WritePacket(frames.data(), 480);
        allocations = counter.Count();
    }
    EXPECT_EQ(allocations, 1u);  // none but the counter's own check
    EXPECT_EQ(buffer.GetRing()->GetCount(), 20u * 480u * 4u);
}

TEST(AudioSharedMemWithoutCore, WorksAndLogsNothingWhenThereIsNoCoreObject) {
    CZQCoreAudio* const saved = g_pCore;
    g_pCore = nullptr;
    {
        CAudioSharedMem buffer;
        EXPECT_EQ(buffer.CreateBuffer(), 1);
        const auto frames = Frames(2);
        EXPECT_EQ(buffer.WritePacket(frames.data(), 2), 1);
        float samples[2] = {};
        EXPECT_EQ(buffer.Read(samples, sizeof(samples)), 8u);
        EXPECT_EQ(samples[1], 2.0f);
    }  // the destructor closes, again without a core
    g_pCore = saved;
}

}  // namespace
