#include "log_recorder.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace zqtest {

LogRecorder::LogRecorder(const wchar_t* name) {
    m_log.OpenSink(name, [this](const _ZQ_LOG_EVENT& event) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back({event.eType, event.nTime, event.strText.GetString()});
    });
}

LogRecorder::~LogRecorder() { m_log.Close(); }

std::vector<LoggedEvent> LogRecorder::Events() {
    m_log.Flush();
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_events;
}

std::vector<std::wstring> LogRecorder::Texts() {
    std::vector<std::wstring> texts;
    for (auto& e : Events()) texts.push_back(e.text);
    return texts;
}

std::vector<std::wstring> LogRecorder::TextsContaining(const std::wstring& part) {
    std::vector<std::wstring> texts;
    for (auto& e : Events()) {
        if (e.text.find(part) != std::wstring::npos) texts.push_back(e.text);
    }
    return texts;
}

bool LogRecorder::Contains(const std::wstring& text) {
    auto texts = Texts();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

bool LogRecorder::Contains(zqLogEventType type, const std::wstring& text) {
    const std::vector<LoggedEvent> events = Events();
    return std::any_of(events.begin(), events.end(), [&](const LoggedEvent& e) { return e.type == type && e.text == text; });
}

bool LogRecorder::WaitFor(const std::wstring& text, unsigned timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!Contains(text)) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

void LogRecorder::Clear() {
    m_log.Flush();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.clear();
}

}  // namespace zqtest
