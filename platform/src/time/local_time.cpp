// Local and UTC calendar time, and the FILETIME scale (100-ns units since 1601-01-01).
#include <atomic>
#include <ctime>

#include "zqplatform/vm/wall_clock.h"
#include "zqplatform/win/systime.h"

namespace {

std::atomic<bool> g_frozen{false};
std::atomic<int64_t> g_frozenSeconds{0};
std::atomic<int32_t> g_frozenNanos{0};

timespec WallClockNow() {
    timespec ts{};
    if (g_frozen.load(std::memory_order_acquire)) {
        ts.tv_sec = static_cast<time_t>(g_frozenSeconds.load(std::memory_order_relaxed));
        ts.tv_nsec = g_frozenNanos.load(std::memory_order_relaxed);
    } else {
        clock_gettime(CLOCK_REALTIME, &ts);
    }
    return ts;
}

void FromTm(const std::tm& tm, long nanos, SYSTEMTIME* out) {
    out->wYear = static_cast<WORD>(tm.tm_year + 1900);
    out->wMonth = static_cast<WORD>(tm.tm_mon + 1);
    out->wDayOfWeek = static_cast<WORD>(tm.tm_wday);
    out->wDay = static_cast<WORD>(tm.tm_mday);
    out->wHour = static_cast<WORD>(tm.tm_hour);
    out->wMinute = static_cast<WORD>(tm.tm_min);
    out->wSecond = static_cast<WORD>(tm.tm_sec > 59 ? 59 : tm.tm_sec);  // no leap second in SYSTEMTIME
    out->wMilliseconds = static_cast<WORD>(nanos / 1000000);
}

// Days from 1601-01-01 to the given date of the proleptic Gregorian calendar.
int64_t DaysSince1601(int64_t year, int64_t month, int64_t day) {
    // Shift the year to start in March so the leap day falls at its end.
    const int64_t y = year - (month <= 2 ? 1 : 0);
    const int64_t m = month <= 2 ? month + 9 : month - 3;
    const int64_t era = y / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * m + 2) / 5 + day - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    const int64_t daysSince0000 = era * 146097 + doe;
    constexpr int64_t kDaysTo1601 = 1600 / 400 * 146097 + 306;  // 0000-03-01 .. 1601-01-01
    return daysSince0000 - kDaysTo1601;
}

bool IsLeap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

}  // namespace

namespace zqvm {

void FreezeWallClock(int64_t unixSeconds, int32_t nanoseconds) {
    g_frozenSeconds.store(unixSeconds, std::memory_order_relaxed);
    g_frozenNanos.store(nanoseconds, std::memory_order_relaxed);
    g_frozen.store(true, std::memory_order_release);
}

void ReleaseWallClock() { g_frozen.store(false, std::memory_order_release); }

}  // namespace zqvm

extern "C" {

void GetLocalTime(LPSYSTEMTIME lpSystemTime) {
    if (lpSystemTime == nullptr) return;
    const timespec ts = WallClockNow();
    std::tm tm{};
    localtime_r(&ts.tv_sec, &tm);  // follows TZ as the process has it now
    FromTm(tm, ts.tv_nsec, lpSystemTime);
}

void GetSystemTime(LPSYSTEMTIME lpSystemTime) {
    if (lpSystemTime == nullptr) return;
    const timespec ts = WallClockNow();
    std::tm tm{};
    gmtime_r(&ts.tv_sec, &tm);
    FromTm(tm, ts.tv_nsec, lpSystemTime);
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* st, LPFILETIME ft) {
    if (st == nullptr || ft == nullptr) return FALSE;
    static const int kDaysInMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (st->wYear < 1601 || st->wYear > 30827 || st->wMonth < 1 || st->wMonth > 12 || st->wDay < 1 ||
        st->wHour > 23 || st->wMinute > 59 || st->wSecond > 59 || st->wMilliseconds > 999) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int monthDays = kDaysInMonth[st->wMonth - 1] + ((st->wMonth == 2 && IsLeap(st->wYear)) ? 1 : 0);
    if (st->wDay > monthDays) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int64_t days = DaysSince1601(st->wYear, st->wMonth, st->wDay);
    const int64_t seconds = days * 86400 + st->wHour * 3600 + st->wMinute * 60 + st->wSecond;
    const uint64_t ticks = static_cast<uint64_t>(seconds) * 10000000ull + st->wMilliseconds * 10000ull;
    ft->dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFu);
    ft->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return TRUE;
}

ULONGLONG GetTickCount64() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<ULONGLONG>(ts.tv_sec) * 1000ull + static_cast<ULONGLONG>(ts.tv_nsec) / 1000000ull;
}

DWORD GetTickCount() { return static_cast<DWORD>(GetTickCount64()); }

}  // extern "C"
