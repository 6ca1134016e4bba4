// Calendar time in the FILETIME scale, and local time under different time zones.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "zqPlatform.h"
#include "zqplatform/vm/wall_clock.h"

namespace {

uint64_t Ticks(const FILETIME& ft) { return (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime; }

uint64_t TicksOf(WORD y, WORD mo, WORD d, WORD h, WORD mi, WORD s, WORD ms) {
    SYSTEMTIME st = {y, mo, 0, d, h, mi, s, ms};
    FILETIME ft = {};
    EXPECT_TRUE(SystemTimeToFileTime(&st, &ft));
    return Ticks(ft);
}

TEST(FileTime, CountsHundredNanosecondsSince1601) {
    EXPECT_EQ(TicksOf(1601, 1, 1, 0, 0, 0, 0), 0u);
    EXPECT_EQ(TicksOf(1970, 1, 1, 0, 0, 0, 0), 116444736000000000ull);
    EXPECT_EQ(TicksOf(2000, 3, 1, 0, 0, 0, 0) - TicksOf(2000, 2, 28, 0, 0, 0, 0), 2ull * 864000000000ull);
    EXPECT_EQ(TicksOf(2026, 11, 23, 12, 0, 0, 5) - TicksOf(2026, 11, 23, 0, 0, 0, 0),
              12ull * 36000000000ull + 50000ull);
}

TEST(FileTime, RejectsImpossibleDates) {
    FILETIME ft = {7, 7};
    for (SYSTEMTIME st : {SYSTEMTIME{2023, 2, 0, 29, 0, 0, 0, 0}, SYSTEMTIME{1600, 12, 0, 31, 0, 0, 0, 0},
                          SYSTEMTIME{2024, 13, 0, 1, 0, 0, 0, 0}, SYSTEMTIME{2024, 1, 0, 1, 24, 0, 0, 0},
                          SYSTEMTIME{2024, 4, 0, 31, 0, 0, 0, 0}, SYSTEMTIME{2024, 1, 0, 1, 0, 0, 0, 1000}}) {
        EXPECT_FALSE(SystemTimeToFileTime(&st, &ft));
    }
    EXPECT_EQ(ft.dwLowDateTime, 7u);
    SYSTEMTIME leapDay = {2024, 2, 0, 29, 0, 0, 0, 0};
    EXPECT_TRUE(SystemTimeToFileTime(&leapDay, &ft));
    EXPECT_FALSE(SystemTimeToFileTime(nullptr, &ft));
}

// Sets TZ for one test and restores it afterwards.
class TimeZone {
public:
    explicit TimeZone(const char* tz) {
        if (const char* old = std::getenv("TZ")) m_old = old, m_had = true;
        setenv("TZ", tz, 1);
        tzset();
    }
    ~TimeZone() {
        if (m_had) setenv("TZ", m_old.c_str(), 1);
        else unsetenv("TZ");
        tzset();
        zqvm::ReleaseWallClock();
    }

private:
    std::string m_old;
    bool m_had = false;
};

TEST(LocalTime, ReadsTheWallClockInTheProcesssTimeZone) {
    // 2026-11-23 06:30:00.250 UTC is noon in India (UTC+5:30) and 01:30 in New York (UTC-5).
    const int64_t instant = 1795415400;
    struct Case {
        const char* tz;
        WORD hour, minute;
    };
    for (Case c : {Case{"IST-5:30", 12, 0}, Case{"EST5", 1, 30}, Case{"UTC0", 6, 30}}) {
        TimeZone zone(c.tz);
        zqvm::FreezeWallClock(instant, 250000000);
        SYSTEMTIME st = {};
        GetLocalTime(&st);
        EXPECT_EQ(st.wYear, 2026) << c.tz;
        EXPECT_EQ(st.wMonth, 11) << c.tz;
        EXPECT_EQ(st.wDay, 23) << c.tz;
        EXPECT_EQ(st.wHour, c.hour) << c.tz;
        EXPECT_EQ(st.wMinute, c.minute) << c.tz;
        EXPECT_EQ(st.wMilliseconds, 250) << c.tz;
        EXPECT_EQ(st.wDayOfWeek, 1) << c.tz;  // a Monday everywhere at that instant
        SYSTEMTIME utc = {};
        GetSystemTime(&utc);
        EXPECT_EQ(utc.wHour, 6);
    }
}

}  // namespace
