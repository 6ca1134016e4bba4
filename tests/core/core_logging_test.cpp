// The core's log functions: what reaches the host's log, at which level and time, and what is
// dropped without being formatted.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "log_recorder.h"
#include "scoped_environment.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/wall_clock.h"

namespace {

using zqtest::LogRecorder;

// A wide-string argument that crashes if anything reads it: proof that nothing was formatted.
const wchar_t* const kPoison = reinterpret_cast<const wchar_t*>(uintptr_t{0x10});

class CoreLogging : public ::testing::Test {
protected:
    LogRecorder recorder;
    CZQCoreAudio core;
    void SetUp() override { core.SetLog(&recorder.Log()); }
    void TearDown() override { core.SetLog(nullptr); }
};

TEST_F(CoreLogging, LevelsAndTextsArriveUnchanged) {
    core.LogInfo(L"CoreAudio: call DeviceChange, device id: %s, state = %d", L"{0.0.1}.{mic}", 8);
    core.LogWarning(L"!IsStarted");
    core.LogError(L"Unable to initialize audio client: %x.\n", static_cast<HRESULT>(0x88890004u));
    core.LogInfo(L"CoreAudio: HID_UART_GET_SERIAL_STR [%i]: %s | %S", 2, L"wide", "narrow");  // the Microsoft rules
    std::vector<std::pair<zqLogEventType, std::wstring>> logged;
    for (const auto& e : recorder.Events()) logged.emplace_back(e.type, e.text);
    EXPECT_EQ(logged, (std::vector<std::pair<zqLogEventType, std::wstring>>{
                          {zqLogEventInfo, L"CoreAudio: call DeviceChange, device id: {0.0.1}.{mic}, state = 8"},
                          {zqLogEventWarning, L"!IsStarted"},
                          {zqLogEventError, L"Unable to initialize audio client: 88890004.\n"},
                          {zqLogEventInfo, L"CoreAudio: HID_UART_GET_SERIAL_STR [2]: wide | narrow"}}));
}

TEST_F(CoreLogging, A2047CharacterMessageIsLoggedWholeAndA2048OneNotAtAll) {
    const std::wstring fits(2047, L'a');
    const std::wstring tooLong(2048, L'b');
    core.LogInfo(L"%s", fits.c_str());
    core.LogInfo(L"%s", tooLong.c_str());
    core.LogInfo(L"%s%s", fits.c_str(), L"c");  // 2048 through two arguments
    core.LogInfo(fits.c_str());                  // a finished text used as the format
    auto texts = recorder.Texts();
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0], fits);
    EXPECT_EQ(texts[1], fits);
}

TEST_F(CoreLogging, EmptyOrUnformattableTextsLogNothing) {
    core.LogInfo(L"%s", L"");
    core.LogError(L"");
    core.LogWarning(nullptr);
    core.LogInfo(L"bad conversion %Q");
    core.LogInfo(L"kept");
    EXPECT_EQ(recorder.Texts(), std::vector<std::wstring>{L"kept"});
}

TEST(CoreLoggingGate, NothingIsFormattedWithoutAnUsableLog) {
    CZQCoreAudio core;
    core.LogError(L"%s", kPoison);  // no log attached
    CZqLog disabled;
    disabled.m_strLogName = L"named";
    disabled.m_bLogEnabled = FALSE;
    core.SetLog(&disabled);
    core.LogError(L"%s", kPoison);
    CZqLog unnamed;
    unnamed.m_bLogEnabled = TRUE;
    core.SetLog(&unnamed);
    core.LogError(L"%s", kPoison);
    core.SetLog(nullptr);
    EXPECT_TRUE(disabled.m_queue.empty());
    EXPECT_TRUE(unnamed.m_queue.empty());
}

// The zone in TZ and the wall clock frozen at an instant, for the life of the object (the zone
// in force again once tzset runs after it).
class TimeZoneAndClock {
public:
    TimeZoneAndClock(const char* tz, int64_t unixSeconds) : m_tz("TZ", tz) {
        tzset();
        zqvm::FreezeWallClock(unixSeconds, 0);
    }
    ~TimeZoneAndClock() { zqvm::ReleaseWallClock(); }

private:
    zqtest::ScopedEnvironment m_tz;
};

long long NoonOn20261123() {
    SYSTEMTIME noon = {2026, 11, 1, 23, 12, 0, 0, 0};
    FILETIME ft = {};
    SystemTimeToFileTime(&noon, &ft);
    return static_cast<long long>((static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime);
}

TEST_F(CoreLogging, TheTimeStampIsLocalWallClockTimeWhateverTheZone) {
    // Noon local time on 2026-11-23 in three zones is three different instants; each must be
    // stamped as 12:00:00 of that day in the FILETIME scale.
    const struct {
        const char* tz;
        int64_t noonUtc;
    } zones[] = {{"IST-5:30", 1795415400}, {"EST5", 1795453200}, {"UTC0", 1795435200}};
    for (const auto& zone : zones) {
        TimeZoneAndClock setting(zone.tz, zone.noonUtc);
        core.LogInfo(L"stamp %S", zone.tz);
    }
    tzset();
    auto events = recorder.Events();
    ASSERT_EQ(events.size(), 3u);
    for (const auto& e : events) EXPECT_EQ(e.time, NoonOn20261123()) << std::string(e.text.begin(), e.text.end());
}

TEST_F(CoreLogging, ConcurrentLoggingFromSeveralThreadsLosesNoEvent) {
    constexpr int kThreads = 4;
    constexpr int kEach = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < kEach; ++i) {
                if (i % 3 == 0) core.LogError(L"AudioCapture: %d %d", t, i);
                else core.LogInfo(L"AudioRender: %d %d", t, i);
            }
        });
    }
    for (auto& th : threads) th.join();
    auto events = recorder.Events();
    ASSERT_EQ(events.size(), static_cast<size_t>(kThreads * kEach));
    std::vector<int> seen(kThreads * kEach, 0);
    for (const auto& e : events) {
        int t = 0, i = 0;
        ASSERT_EQ(swscanf(e.text.c_str() + e.text.find(L' '), L" %d %d", &t, &i), 2);
        ++seen[static_cast<size_t>(t * kEach + i)];
        EXPECT_EQ(e.type, i % 3 == 0 ? zqLogEventError : zqLogEventInfo);
    }
    for (int count : seen) ASSERT_EQ(count, 1);
}

// The host detaches its log while its other threads go on logging through the core, and deletes
// the log as soon as SetLog returns: no call may still be inside the old log (AddressSanitizer
// sees one as a use after free). The logging threads run through several detachments, and the
// lines logged after one reach the log attached next.
TEST(CoreLogDetachment, OnceSetLogReturnsNoCallReachesTheOldLogWhileOtherThreadsLog) {
    CZQCoreAudio core;
    std::atomic<bool> stop{false};
    std::atomic<long> logged{0};
    std::vector<std::thread> hosts;
    for (int t = 0; t < 2; ++t) {
        hosts.emplace_back([&core, &stop, &logged, t] {
            for (int i = 0; !stop.load(); ++i) {
                core.LogInfo(L"CoreAudio: host thread %d line %d", t, i);
                logged.fetch_add(1);
            }
        });
    }
    // Waits, bounded, until the threads have logged `more` lines from now on.
    const auto waitForLines = [&logged](long more) {
        const long until = logged.load() + more;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (logged.load() < until && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
        return logged.load() >= until;
    };
    for (int round = 0; round < 50; ++round) {
        auto log = std::make_unique<LogRecorder>();
        core.SetLog(&log->Log());
        ASSERT_TRUE(waitForLines(200)) << "the host threads stopped logging";
        core.SetLog(nullptr);
        const size_t kept = log->Events().size();
        ASSERT_TRUE(waitForLines(200));
        EXPECT_EQ(log->Events().size(), kept) << "a line reached the detached log";
        EXPECT_GT(kept, 0u);
        log.reset();  // deleted at once, while the threads go on logging
    }
    stop.store(true);
    for (std::thread& host : hosts) host.join();
}

TEST_F(CoreLogging, DebugTextFifoIsAlwaysEmpty) {
    EXPECT_TRUE(core.GetDbgTextFIFO().IsEmpty());
    core.LogInfo(L"something");
    EXPECT_TRUE(core.GetDbgTextFIFO().IsEmpty());
}

}  // namespace
