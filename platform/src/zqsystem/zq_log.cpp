// CZqLog: a queue that any thread can log into without waiting, drained by a writer thread.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "zqplatform/zqSystem.h"

namespace {

void ReleaseEvent(_ZQ_LOG_EVENT* event) {
    if (event->nRefs.fetch_sub(1, std::memory_order_acq_rel) == 1) delete event;
}

const char* LevelName(zqLogEventType type) {
    switch (type) {
        case zqLogEventInfo: return "INFO ";
        case zqLogEventWarning: return "WARN ";
        case zqLogEventError: return "ERROR";
    }
    return "?    ";
}

// "YYYY-MM-DD hh:mm:ss.mmm" of a FILETIME value that already holds local time.
void FormatStamp(__int64 fileTime, char* out, size_t size) {
    const int64_t totalMs = fileTime / 10000;
    int64_t days = totalMs / 86400000;
    const int64_t msOfDay = totalMs % 86400000;
    // Civil date from days since 1601-01-01 (shifted to a March-based year, see local_time.cpp).
    days += 4 * 146097 + 306;
    const int64_t era = days / 146097;
    const int64_t doe = days - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int64_t day = doy - (153 * mp + 2) / 5 + 1;
    const int64_t month = mp < 10 ? mp + 3 : mp - 9;
    const int64_t year = yoe + era * 400 + (month <= 2 ? 1 : 0);
    std::snprintf(out, size, "%04lld-%02lld-%02lld %02lld:%02lld:%02lld.%03lld", static_cast<long long>(year),
                  static_cast<long long>(month), static_cast<long long>(day),
                  static_cast<long long>(msOfDay / 3600000), static_cast<long long>(msOfDay / 60000 % 60),
                  static_cast<long long>(msOfDay / 1000 % 60), static_cast<long long>(msOfDay % 1000));
}

}  // namespace

struct CZqLog::Writer {
    CZqLog* log = nullptr;
    Sink sink;
    std::FILE* file = nullptr;
    bool ownsFile = false;
    std::atomic<uint32_t> wake{0};
    std::atomic<bool> stop{false};
    std::thread thread;
    // The writer's sleep. Not std::atomic::wait: MinGW-w64's libstdc++ (GCC 12) implements it
    // without a futex and loses a wake-up now and then, which left a flush waiting out its time
    // and Close joining forever. Producers take the mutex only while the writer sleeps.
    std::mutex sleepMutex;
    std::condition_variable sleepEnded;
    std::atomic<bool> sleeping{false};

    // Sequentially consistent on both sides: either the producer sees the writer asleep and
    // notifies under the mutex, or the writer sees the new count and does not sleep.
    void Wake() {
        wake.fetch_add(1);
        if (sleeping.load()) {
            std::lock_guard<std::mutex> lock(sleepMutex);
            sleepEnded.notify_one();
        }
    }

    void SleepUntilWokenSince(uint32_t seen) {
        std::unique_lock<std::mutex> lock(sleepMutex);
        sleeping.store(true);
        sleepEnded.wait(lock, [this, seen] { return wake.load() != seen; });
        sleeping.store(false, std::memory_order_relaxed);
    }

    void Write(const _ZQ_LOG_EVENT& event) {
        const int level = static_cast<int>(event.eType);
        if (level < 0 || level > 31 || (log->m_dwLevelMask & (1u << level)) == 0) return;
        if (sink) {
            sink(event);
            return;
        }
        char stamp[96];
        FormatStamp(event.nTime, stamp, sizeof stamp);
        const std::string text = event.strText.ToUtf8();
        const bool hasNewline = !text.empty() && text.back() == '\n';
        std::fprintf(file, "%s %s %s%s", stamp, LevelName(event.eType), text.c_str(), hasNewline ? "" : "\n");
    }

    // Writes out everything queued; returns how many events it wrote.
    int Drain() {
        int n = 0;
        _ZQ_LOG_EVENT* event = nullptr;
        while (log->m_queue.try_pop(event)) {
            if (event->bFlushMarker) {
                std::atomic_ref<__int64>(event->nTime).store(1, std::memory_order_release);
            } else {
                Write(*event);
                ++n;
            }
            ReleaseEvent(event);
        }
        return n;
    }

    void Run() {
        for (;;) {
            const uint32_t seen = wake.load();
            const int n = Drain();
            if (stop.load(std::memory_order_acquire)) {
                if (log->m_queue.empty()) break;
                continue;
            }
            if (n == 0) {
                if (file != nullptr) std::fflush(file);
                SleepUntilWokenSince(seen);
            }
        }
        if (file != nullptr) std::fflush(file);
    }
};

CZqLog::CZqLog()
    : m_nQueued(0), m_dwLevelMask(0x7), m_bLogEnabled(FALSE), m_eLogType(zqLogTypeNone), m_pWriter(nullptr) {}

CZqLog::CZqLog(const CZqLog& other)
    : m_strLogName(other.m_strLogName),
      m_strLogPath(other.m_strLogPath),
      m_nQueued(0),
      m_dwLevelMask(other.m_dwLevelMask),
      m_bLogEnabled(other.m_bLogEnabled),
      m_eLogType(other.m_eLogType),
      m_pWriter(nullptr) {
    other.m_queue.unsafe_for_each([this](_ZQ_LOG_EVENT* event) {
        if (event->bFlushMarker) return;
        event->nRefs.fetch_add(1, std::memory_order_relaxed);
        m_queue.push(event);
        m_nQueued.fetch_add(1, std::memory_order_relaxed);
    });
}

CZqLog::~CZqLog() {
    Close();
    _ZQ_LOG_EVENT* event = nullptr;
    while (m_queue.try_pop(event)) ReleaseEvent(event);
}

void CZqLog::Log(zqLogEventType eType, __int64 nTime, CStringW strText) {
    auto* event = new _ZQ_LOG_EVENT{eType, nTime, std::move(strText), {1}, false};
    m_queue.push(event);
    m_nQueued.fetch_add(1, std::memory_order_release);
    if (Writer* writer = m_pWriter.load(std::memory_order_acquire)) writer->Wake();
}

bool CZqLog::StartWriter(zqLogType type, const wchar_t* name, const wchar_t* path, Sink sink, std::FILE* file,
                         bool ownsFile) {
    Close();
    auto* writer = new Writer;
    writer->log = this;
    writer->sink = std::move(sink);
    writer->file = file;
    writer->ownsFile = ownsFile;
    m_strLogName = name;
    m_strLogPath = path;
    m_eLogType = type;
    m_pWriter.store(writer, std::memory_order_release);
    writer->thread = std::thread([writer] { writer->Run(); });
    m_bLogEnabled = TRUE;
    return true;
}

bool CZqLog::OpenFile(const wchar_t* name, const wchar_t* path) {
    if (path == nullptr) return false;
#if defined(_WIN32)
    std::FILE* file = _wfopen(path, L"a");  // the narrow name would be in the ANSI code page there
#else
    std::FILE* file = std::fopen(CStringW(path).ToUtf8().c_str(), "a");
#endif
    if (file == nullptr) return false;
    return StartWriter(zqLogTypeFile, name, path, nullptr, file, true);
}

bool CZqLog::OpenStream(const wchar_t* name, std::FILE* stream) {
    if (stream == nullptr) return false;
    return StartWriter(zqLogTypeStream, name, L"", nullptr, stream, false);
}

bool CZqLog::OpenSink(const wchar_t* name, Sink sink) {
    if (!sink) return false;
    return StartWriter(zqLogTypeSink, name, L"", std::move(sink), nullptr, false);
}

void CZqLog::Close() {
    Writer* writer = m_pWriter.load(std::memory_order_acquire);
    if (writer == nullptr) return;
    m_bLogEnabled = FALSE;
    writer->stop.store(true, std::memory_order_release);
    writer->Wake();
    writer->thread.join();
    m_pWriter.store(nullptr, std::memory_order_release);
    if (writer->ownsFile) std::fclose(writer->file);
    delete writer;
    m_eLogType = zqLogTypeNone;
}

bool CZqLog::Flush(DWORD timeoutMs) {
    Writer* writer = m_pWriter.load(std::memory_order_acquire);
    if (writer == nullptr) return m_queue.empty();
    // Two references: the writer drops one when it passes the marker, this call the other,
    // whichever of the two comes last frees it (also when the wait timed out).
    auto* marker = new _ZQ_LOG_EVENT{zqLogEventInfo, 0, {}, {2}, true};
    m_queue.push(marker);
    writer->Wake();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    bool reached = false;
    while (!(reached = std::atomic_ref<__int64>(marker->nTime).load(std::memory_order_acquire) != 0) &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    ReleaseEvent(marker);
    return reached;
}
