// The analyzer thread on the stepped platform clock: when the jobs fall due, their order, the
// shutdown event's priority, and joining.
#include "analyzer_test_support.h"

namespace {

using zqtest::kMs100ns;
using zqtest::WaitUntil;
using zqtest::kInputFeed;
using zqtest::WriteFeed;

class AnalyzerThread : public ::testing::Test {
protected:
    void SetUp() override { zqvm::SetClockMode(zqvm::ClockMode::Stepped); }
    void TearDown() override {
        Stop();
        g_pCore = nullptr;
        zqvm::SetClockMode(zqvm::ClockMode::RealTime);
    }
    // Starts the thread and waits until its timers are set: only then does moving the clock
    // count from the start.
    void Start() {
        ASSERT_TRUE(analyzer.StartThread());
        ASSERT_TRUE(WaitUntil([&] { return analyzer.m_bTimersSet.load(); }));
    }
    void Stop() {
        analyzer.RequestStop();
        ASSERT_TRUE(WaitUntil([&] { return analyzer.m_hThread.load() == nullptr; })) << "the thread did not end";
        analyzer.JoinThread();
    }
    uint32_t Ticks() { return analyzer.m_nTicksServed.load(std::memory_order_acquire); }
    uint32_t Decays() { return analyzer.m_nDecaysServed.load(std::memory_order_acquire); }
    uint32_t Resets() { return analyzer.m_nResetsServed.load(std::memory_order_acquire); }

    CZQCoreAudio core;  // no engines: the ticks find no capture engine and do nothing
    CAudioAnalyzer analyzer;
};

TEST_F(AnalyzerThread, FirstJobsAfter100msThenEachOnItsPeriod) {
    analyzer.m_vecShownIn[0] = 1500.0f;
    analyzer.m_vecShownPeakIn[0] = 9.0f;
    Start();
    ASSERT_TRUE(zqvm::AdvanceClock(100 * kMs100ns - 1));
    EXPECT_EQ(Ticks() + Decays() + Resets(), 0u) << "a job ran before 100 ms";

    // At 100 ms all three fall due and are served in the order tick, decay, peak reset; once
    // the peak reset (the last index) has run, nothing else is pending.
    ASSERT_TRUE(zqvm::AdvanceClock(1));
    ASSERT_TRUE(WaitUntil([&] { return Resets() == 1; }));
    EXPECT_EQ(Ticks(), 1u);
    EXPECT_EQ(Decays(), 1u);
    EXPECT_EQ(analyzer.m_vecSpectrumAmpIn[0].load(), 1400.0f);
    EXPECT_EQ(analyzer.m_vecSpectrumAmpPeakIn[0].load(), 0.0f);

    ASSERT_TRUE(zqvm::AdvanceClock(5 * kMs100ns));  // 105 ms: decay only
    ASSERT_TRUE(WaitUntil([&] { return Decays() == 2; }));
    EXPECT_EQ(Ticks(), 1u);
    ASSERT_TRUE(zqvm::AdvanceClock(5 * kMs100ns));  // 110 ms: tick, then decay
    ASSERT_TRUE(WaitUntil([&] { return Decays() == 3; }));
    EXPECT_EQ(Ticks(), 2u);

    // Expiries that pile up count once: 50 ms more while nothing is served.
    {
        Concurrency::critical_section::scoped_lock hold(analyzer.m_cs);
        ASSERT_TRUE(zqvm::AdvanceClock(50 * kMs100ns));
    }
    ASSERT_TRUE(WaitUntil([&] { return Decays() >= 4 && Ticks() >= 3; }));
    EXPECT_LE(Ticks(), 4u);  // at most the one taken before the hold, plus the coalesced one
    EXPECT_EQ(Resets(), 1u);
    Stop();
    EXPECT_FALSE(analyzer.m_bTimersSet.load());
}

TEST_F(AnalyzerThread, ShutdownIsServedBeforeTimersThatAreDue) {
    Start();
    {
        // Keep the thread out of any job while everything falls due and shutdown is set.
        Concurrency::critical_section::scoped_lock hold(analyzer.m_cs);
        ASSERT_TRUE(zqvm::AdvanceClock(100 * kMs100ns));
        analyzer.RequestStop();
    }
    ASSERT_TRUE(WaitUntil([&] { return analyzer.m_hThread.load() == nullptr; }));
    analyzer.JoinThread();
    // The tick may have been taken before shutdown was set; nothing after it was.
    EXPECT_LE(Ticks(), 1u);
    EXPECT_EQ(Decays(), 0u);
    EXPECT_EQ(Resets(), 0u);
}

TEST_F(AnalyzerThread, StartingARunningThreadStartsNothingAndARestartWorks) {
    Start();
    HANDLE first = analyzer.m_hThread.load();
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(analyzer.StartThread());
    EXPECT_EQ(analyzer.m_hThread.load(), first);
    Stop();
    Start();  // a new thread after the old one ended
    ASSERT_TRUE(zqvm::AdvanceClock(100 * kMs100ns));
    EXPECT_TRUE(WaitUntil([&] { return Resets() == 1; }));
}

TEST(AnalyzerInCore, InitStartsTheThreadAndShutdownJoinsItBeforeTheEnginesGo) {
    CZQCoreAudio core;  // real-time clock: the thread ticks on its own
    core.Init(nullptr);
    CAudioCapture* capture = core.GetCaptureEngine();
    ASSERT_NE(capture, nullptr);
    const std::vector<float> frames(2 * 4800, 0.5f);
    WriteFeed(*capture, kInputFeed, frames.data(), 4800);
    EXPECT_TRUE(WaitUntil([&] { return core.GetSpectrumAmpIn(0) > 1.0f; })) << "no tick reached the spectrum";
    core.Shutdown();  // the thread reads the capture engine until joined
    EXPECT_EQ(core.GetSpectrumAmpIn(0), 0.0f);
    EXPECT_EQ(core.GetDataPeakIn(0, 0), 0.0f);
    g_pCore = nullptr;
}

}  // namespace
