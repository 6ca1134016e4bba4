// A message-only window owned by the test's thread that records what the library sends or posts
// to it, the way the host's main window receives the library's messages.
#pragma once

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
    std::vector<ReceivedMessage> All() const;

private:
    static LRESULT CALLBACK Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_hwnd = nullptr;
    mutable std::mutex m_mutex;
    std::vector<ReceivedMessage> m_received;
};

}  // namespace zqtest
