// Logging of the core object: format once on the caller's stack, stamp, hand to the host's log.
#include <cstdarg>

#include "zqCoreAudio.h"

namespace {
constexpr size_t kLogBufferChars = 2048;  // a message of up to 2047 characters is logged whole
}

void CZQCoreAudio::LogV(zqLogEventType eType, const wchar_t* format, va_list args) {
    CZqLog* log = m_pLog;
    // Nothing is formatted unless the log will take it.
    if (log == nullptr || log->m_bLogEnabled == 0 || log->m_strLogName.IsEmpty()) return;

    wchar_t buffer[kLogBufferChars] = {};
    const int length = _vsnwprintf_s(buffer, kLogBufferChars, _TRUNCATE, format, args);
    // Empty texts, and texts too long to keep whole, are dropped rather than cut.
    if (length <= 0) return;

    SYSTEMTIME localTime = {};
    FILETIME fileTime = {};
    GetLocalTime(&localTime);
    SystemTimeToFileTime(&localTime, &fileTime);
    const __int64 stamp =
        static_cast<__int64>((static_cast<uint64_t>(fileTime.dwHighDateTime) << 32) | fileTime.dwLowDateTime);

    log->Log(eType, stamp, CStringW(buffer));
}

void CZQCoreAudio::LogInfo(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    LogV(zqLogEventInfo, format, args);
    va_end(args);
}

void CZQCoreAudio::LogWarning(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    LogV(zqLogEventWarning, format, args);
    va_end(args);
}

void CZQCoreAudio::LogError(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    LogV(zqLogEventError, format, args);
    va_end(args);
}

void CZQCoreAudio::SetLog(CZqLog* pLog) { m_pLog = pLog; }

CStringW CZQCoreAudio::GetDbgTextFIFO() { return CStringW(); }
