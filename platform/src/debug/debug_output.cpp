// OutputDebugStringW: standard error, one line per call, plus whichever recorders are listening.
#include <algorithm>
#include <cstdio>
#include <mutex>

#include "zqplatform/vm/debug_output.h"
#include "zqplatform/win/debugapi.h"
#include "zqplatform/win/wstring.h"

namespace zqvm {

struct DebugOutputRecorder::State {
    bool echo;
    mutable std::mutex mutex;
    std::vector<std::wstring> texts;
};

}  // namespace zqvm

namespace {

std::mutex g_recordersMutex;
std::vector<zqvm::DebugOutputRecorder::State*> g_recorders;

}  // namespace

namespace zqvm {

DebugOutputRecorder::DebugOutputRecorder(bool echoToStderr) : m_state(new State{echoToStderr, {}, {}}) {
    std::lock_guard<std::mutex> lock(g_recordersMutex);
    g_recorders.push_back(m_state);
}

DebugOutputRecorder::~DebugOutputRecorder() {
    {
        std::lock_guard<std::mutex> lock(g_recordersMutex);
        g_recorders.erase(std::remove(g_recorders.begin(), g_recorders.end(), m_state), g_recorders.end());
    }
    delete m_state;
}

std::vector<std::wstring> DebugOutputRecorder::Texts() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->texts;
}

void DebugOutputRecorder::Clear() {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->texts.clear();
}

}  // namespace zqvm

extern "C" {

void OutputDebugStringW(LPCWSTR lpOutputString) {
    if (lpOutputString == nullptr) return;
    bool echo = true;
    {
        std::lock_guard<std::mutex> lock(g_recordersMutex);
        for (auto* state : g_recorders) {
            std::lock_guard<std::mutex> recordLock(state->mutex);
            state->texts.emplace_back(lpOutputString);
            echo = echo && state->echo;
        }
    }
    if (echo) {
        // Each call is a line of its own, as a debug viewer shows it: the system's texts do not all
        // end in a newline, and a storm of them must not run together into one line. One write
        // per line, so that lines of several threads do not interleave either.
        std::string text = CStringW(lpOutputString).ToUtf8();
        if (text.empty() || text.back() != '\n') text.push_back('\n');
        std::fwrite(text.data(), 1, text.size(), stderr);
    }
}

void OutputDebugStringA(LPCSTR lpOutputString) {
    if (lpOutputString == nullptr) return;
    OutputDebugStringW(CStringW(lpOutputString).GetString());
}

}  // extern "C"
