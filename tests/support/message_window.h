// A message-only window owned by the test's thread that records what the library sends or posts
// to it, the way the host's main window receives the library's messages.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "zqPlatform.h"

namespace zqtest {

struct ReceivedMessage {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

class MessageWindow {
public:
    MessageWindow();
    ~MessageWindow();
    MessageWindow(const MessageWindow&) = delete;
    MessageWindow& operator=(const MessageWindow&) = delete;

    HWND Handle() const { return m_hwnd; }
    // Handles the thread's messages for up to timeoutMs until count messages of that number
    // arrived; returns whether they did.
    bool WaitFor(UINT message, size_t count, DWORD timeoutMs);
    // Handles whatever is queued now.
    void Pump();
    std::vector<ReceivedMessage> Received(UINT message) const;
    // Called on the window's thread for every message it records, as the host's window
    // procedure would act on it (set before the library can send anything).
    void OnMessage(std::function<void(const ReceivedMessage&)> handler) { m_handler = std::move(handler); }
    std::vector<ReceivedMessage> All() const;

private:
    static LRESULT CALLBACK Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_hwnd = nullptr;
    std::function<void(const ReceivedMessage&)> m_handler;
    mutable std::mutex m_mutex;
    std::vector<ReceivedMessage> m_received;
};

}  // namespace zqtest
