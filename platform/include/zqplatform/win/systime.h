// Local time as Windows reports it.
#pragma once

#include "zqplatform/win/wintypes.h"

extern "C" {
// The current local wall-clock time (the process's time zone, TZ included), to the millisecond.
ZQPLATFORM_API void GetLocalTime(LPSYSTEMTIME lpSystemTime);
ZQPLATFORM_API void GetSystemTime(LPSYSTEMTIME lpSystemTime);
// 100-ns intervals since 1601-01-01 of the given calendar time, without any zone conversion.
// FALSE for a field out of range (the output is then left as it was).
ZQPLATFORM_API BOOL SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime, LPFILETIME lpFileTime);
ZQPLATFORM_API DWORD GetTickCount();
ZQPLATFORM_API ULONGLONG GetTickCount64();
// A monotonic counter of QueryPerformanceFrequency ticks a second, readable without waiting
// on any lock (the stream threads read it).
ZQPLATFORM_API BOOL QueryPerformanceCounter(LARGE_INTEGER* lpPerformanceCount);
ZQPLATFORM_API BOOL QueryPerformanceFrequency(LARGE_INTEGER* lpFrequency);
}
