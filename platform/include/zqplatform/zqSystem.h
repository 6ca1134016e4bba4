// The maker's system library: the log class, security attributes and a few conversions.
#pragma once

#include <atomic>
#include <cstdio>
#include <functional>

extern "C" {
#include <libavutil/samplefmt.h>
}

#if defined(_WIN32)
#include <windows.h>
#include <mmreg.h>  // WAVEFORMATEX
#else
#include "zqplatform/win/coreaudio.h"
#endif
#include "zqplatform/win/concrt.h"
#include "zqplatform/win/wstring.h"

enum zqLogEventType { zqLogEventInfo = 0, zqLogEventWarning = 1, zqLogEventError = 2 };
enum zqLogType { zqLogTypeNone = 0, zqLogTypeFile = 1, zqLogTypeStream = 2, zqLogTypeSink = 3 };

// One queued log event. Built, written out and freed by CZqLog; shared between a log and its
// copies, hence the count.
struct _ZQ_LOG_EVENT {
    zqLogEventType eType;
    __int64 nTime;  // local wall-clock time as a FILETIME value
    CStringW strText;
    std::atomic<int> nRefs;
    bool bFlushMarker;  // queued by Flush(): not an event, only a point the writer passes
};

// The host's log. Log() queues an event without waiting and may be called from any number of
// threads at once, real-time threads included; a writer thread of the log's own writes the
// events out, in the order they were queued, to a file, a stream or a sink function.
// Callers that log read m_bLogEnabled and m_strLogName directly: a message is worth
// formatting only while the flag is non-zero and the name is not empty.
class ZQPLATFORM_API CZqLog {
public:
    using Sink = std::function<void(const _ZQ_LOG_EVENT&)>;

    CZqLog();
    // Copies the strings and scalars, and queues the same pending events (shared, counted).
    // The copy has no writer of its own until it is opened.
    CZqLog(const CZqLog& other);
    CZqLog& operator=(const CZqLog&) = delete;
    virtual ~CZqLog();

    void Log(zqLogEventType eType, __int64 nTime, CStringW strText);
    ZQPLATFORM_EXPORTED_INLINE zqLogType GetLogType() { return m_eLogType; }

    // Each Open* names the log, enables it and starts its writer; false if the target cannot
    // be opened (the log then stays as it was). A log that is open is closed first.
    bool OpenFile(const wchar_t* name, const wchar_t* path);
    bool OpenStream(const wchar_t* name, std::FILE* stream);
    bool OpenSink(const wchar_t* name, Sink sink);
    // Writes out what is queued, stops the writer and disables the log.
    void Close();
    // Returns when every event queued before the call has been written (or after timeoutMs).
    bool Flush(DWORD timeoutMs = 10000);

    CStringW m_strLogName;
    CStringW m_strLogPath;
    std::atomic<__int64> m_nQueued;  // events queued since construction
    DWORD m_dwLevelMask;             // levels the writer writes out: bit n for level n (all by default)
    BOOL m_bLogEnabled;
    Concurrency::concurrent_queue<_ZQ_LOG_EVENT*> m_queue;
    zqLogType m_eLogType;

private:
    struct Writer;
    bool StartWriter(zqLogType type, const wchar_t* name, const wchar_t* path, Sink sink, std::FILE* file,
                     bool ownsFile);
    std::atomic<Writer*> m_pWriter;
};

// Security attributes that grant read and write access to everyone; the descriptor they point
// to is shared and immutable, so member-wise copies are safe.
class ZQPLATFORM_API CSecurityAttributesRW {
public:
    CSecurityAttributesRW();
    ~CSecurityAttributesRW();
    CSecurityAttributesRW& operator=(const CSecurityAttributesRW& other);
    int Create();
    void Close();
    ZQPLATFORM_EXPORTED_INLINE _SECURITY_ATTRIBUTES* GetSecurityAttributes() { return &m_sa; }

private:
    _SECURITY_ATTRIBUTES m_sa;
    bool m_bCreated;
};

extern "C" {
// The interleaved FFmpeg sample format of a mix format: 32-bit float FLT, 16-bit integer S16,
// 32-bit integer S32, 8-bit unsigned U8, 64-bit float DBL (plain or WAVEFORMATEXTENSIBLE);
// AV_SAMPLE_FMT_NONE for anything else.
ZQPLATFORM_API AVSampleFormat GetSampleFormat(const WAVEFORMATEX* pFormat);
}
// A channel-layout mask with exactly nChannels channels (1: 0x4, 2: 0x3, 4: 0x33, 6: 0x137,
// 8: 0x737, others the lowest nChannels speaker bits); 0 for a count outside 1 to 63.
ZQPLATFORM_API __int64 CA2SWR_chlayout(int nChannels);
// Peak-programme meter position in percent for a level in dBFS.
ZQPLATFORM_API float PPM2Percent(float fDbfs);
// The GUID spelled by "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}" in either letter case (braces
// optional); GUID_NULL for any other text.
ZQPLATFORM_API GUID Str2Guid(CStringW strGuid);
