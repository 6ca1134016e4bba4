// A CZqLog whose writer hands every event to the test: what the core logged, with level, time
// stamp and text, in order.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "zqCoreAudio.h"

namespace zqtest {

struct LoggedEvent {
    zqLogEventType type;
    long long time;
    std::wstring text;
};

class LogRecorder {
public:
    explicit LogRecorder(const wchar_t* name = L"test");
    ~LogRecorder();

    CZqLog& Log() { return m_log; }
    // Everything logged so far (waits for the writer to catch up).
    std::vector<LoggedEvent> Events();
    std::vector<std::wstring> Texts();
    // Texts that contain the given part, in order.
    std::vector<std::wstring> TextsContaining(const std::wstring& part);
    bool Contains(const std::wstring& text);
    bool Contains(zqLogEventType type, const std::wstring& text);
    // Whether that text is logged within timeoutMs (a stream thread logs on its own time).
    bool WaitFor(const std::wstring& text, unsigned timeoutMs);
    void Clear();

private:
    CZqLog m_log;
    std::mutex m_mutex;
    std::vector<LoggedEvent> m_events;
};

}  // namespace zqtest
