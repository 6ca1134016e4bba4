// CZqLog: events queued from many threads are written once each, in each thread's order.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "zqPlatform.h"

namespace {

struct Collected {
    std::mutex mutex;
    std::vector<std::pair<zqLogEventType, std::wstring>> events;
    CZqLog::Sink Sink() {
        return [this](const _ZQ_LOG_EVENT& e) {
            std::lock_guard<std::mutex> lock(mutex);
            events.emplace_back(e.eType, e.strText.GetString());
        };
    }
};

TEST(ZqLog, ConcurrentProducersLoseNothingAndKeepTheirOrder) {
    constexpr int kThreads = 6;
    constexpr int kPerThread = 5000;
    Collected out;
    CZqLog log;
    ASSERT_TRUE(log.OpenSink(L"stress", out.Sink()));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&log, t] {
            for (int i = 0; i < kPerThread; ++i) {
                CStringW text;
                text.Format(L"%d:%d", t, i);
                log.Log(zqLogEventInfo, i, text);
            }
        });
    }
    for (auto& th : threads) th.join();
    ASSERT_TRUE(log.Flush());
    std::lock_guard<std::mutex> lock(out.mutex);
    ASSERT_EQ(out.events.size(), static_cast<size_t>(kThreads * kPerThread));
    std::vector<int> next(kThreads, 0);
    for (auto& [type, text] : out.events) {
        int t = -1, i = -1;
        ASSERT_EQ(swscanf(text.c_str(), L"%d:%d", &t, &i), 2);
        ASSERT_EQ(i, next[static_cast<size_t>(t)]) << "thread " << t << " out of order";
        ++next[static_cast<size_t>(t)];
    }
    EXPECT_EQ(log.m_nQueued.load(), kThreads * kPerThread);
}

TEST(ZqLog, ACopySharesThePendingEventsAndEachSideWritesThemOnce) {
    auto* log = new CZqLog;
    log->m_strLogName = L"original";
    log->m_bLogEnabled = TRUE;
    log->Log(zqLogEventInfo, 10, L"one");
    log->Log(zqLogEventInfo, 11, L"two");
    CZqLog copy(*log);
    EXPECT_EQ(copy.m_strLogName, L"original");
    EXPECT_TRUE(copy.m_bLogEnabled);
    delete log;  // frees its share; the copy keeps the events alive
    Collected out;
    ASSERT_TRUE(copy.OpenSink(L"copy", out.Sink()));
    ASSERT_TRUE(copy.Flush());
    ASSERT_EQ(out.events.size(), 2u);
    EXPECT_EQ(out.events[1].second, L"two");
}

TEST(ZqLog, FileWriterWritesStampedLinesAndKeepsTrailingNewlinesSingle) {
    char path[] = "/tmp/zqlog_test_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    {
        CZqLog log;
        ASSERT_TRUE(log.OpenFile(L"file", CStringW(path)));
        SYSTEMTIME st = {2026, 11, 1, 23, 12, 0, 0, 7};
        FILETIME ft = {};
        ASSERT_TRUE(SystemTimeToFileTime(&st, &ft));
        const __int64 stamp = static_cast<__int64>((static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime);
        log.Log(zqLogEventError, stamp, L"Unable to initialize audio client: 88890004.\n");
        log.Log(zqLogEventInfo, stamp, L"caf\u00E9");
    }  // destruction writes out and closes
    std::ifstream in(path);
    std::stringstream content;
    content << in.rdbuf();
    EXPECT_EQ(content.str(),
              "2026-11-23 12:00:00.007 ERROR Unable to initialize audio client: 88890004.\n"
              "2026-11-23 12:00:00.007 INFO  caf\xC3\xA9\n");
    std::remove(path);
    CZqLog bad;
    EXPECT_FALSE(bad.OpenFile(L"x", L"/nonexistent-dir/zq.log"));
    EXPECT_FALSE(bad.m_bLogEnabled);
}

}  // namespace
