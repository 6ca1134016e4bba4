// Logging of the core object: format once on the caller's stack, stamp, hand to the host's log.
#include <cstdarg>
#include <thread>

#include "zqCoreAudio.h"

namespace {

constexpr size_t kLogBufferChars = 2048;  // a message of up to 2047 characters is logged whole

// A log call's admission, as the getters are admitted while Shutdown closes the components:
// the call counts itself in for the epoch it sees and checks that the epoch is still current;
// SetLog swaps the log, moves to the next epoch and waits until the old epoch's count is 0.
// All sequentially consistent, so a call either was counted before the epoch moved (SetLog
// waits for it) or saw the new epoch, and with it the new log. Two counts, so that the calls
// of the new epoch, however many and however long they keep coming, never hold SetLog up.
class CLogCall {
public:
    CLogCall(std::atomic<uint32_t>& epoch, std::atomic<int> (&calls)[2]) {
        for (;;) {
            const uint32_t seen = epoch.load();
            m_pCount = &calls[seen & 1u];
            m_pCount->fetch_add(1);
            if (epoch.load() == seen) return;
            m_pCount->fetch_sub(1);  // SetLog moved on meanwhile: count in for the new epoch
        }
    }
    ~CLogCall() { m_pCount->fetch_sub(1); }
    CLogCall(const CLogCall&) = delete;
    CLogCall& operator=(const CLogCall&) = delete;

private:
    std::atomic<int>* m_pCount = nullptr;
};

}  // namespace

void CZQCoreAudio::LogV(zqLogEventType eType, const wchar_t* format, va_list args) {
    const CLogCall call(m_nLogEpoch, m_nLogCalls);
    CZqLog* log = m_pLog.load();
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

void CZQCoreAudio::SetLog(CZqLog* pLog) {
    Concurrency::critical_section::scoped_lock lock(m_csSetLog);
    m_pLog.store(pLog);
    const uint32_t old = m_nLogEpoch.fetch_add(1);
    // A call under way holds no lock and only hands one line to the log: the wait is short.
    while (m_nLogCalls[old & 1u].load() != 0) std::this_thread::yield();
}

CStringW CZQCoreAudio::GetDbgTextFIFO() { return CStringW(); }
