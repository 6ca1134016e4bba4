// The state behind the window-message stand-in: window classes, windows, and one message queue
// per thread that has used messages. Internal to the platform library.
//
// Everything lives under one lock, held only for a few container updates and never while a
// window procedure runs. A thread sleeps on its own queue's condition variable, which is
// signalled for anything that concerns the thread: a message sent or posted to it, WM_QUIT,
// and the completion of a message it sent and waits for.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "zqplatform/win/winuser.h"

namespace zqplatform::window {

struct ThreadQueue;

// A message handed from a sender on another thread to the window's thread, which completes it.
struct SentMessage {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    LRESULT result = 0;
    bool done = false;
    std::shared_ptr<ThreadQueue> sender;  // woken when done
};

struct ThreadQueue {
    DWORD threadId = 0;
    std::condition_variable wake;
    std::deque<std::shared_ptr<SentMessage>> sent;
    std::deque<MSG> posted;
    bool quitPending = false;
    int quitCode = 0;
    UINT arrived = 0;  // QS_* bits of what was queued since the last GetQueueStatus

    UINT Present() const {
        UINT bits = sent.empty() ? 0u : QS_SENDMESSAGE;
        if (!posted.empty() || quitPending) bits |= QS_POSTMESSAGE | QS_ALLPOSTMESSAGE;
        return bits;
    }
};

struct WindowClass {
    ATOM atom = 0;
    std::wstring name;
    WNDCLASSEXW desc = {};
    int windows = 0;  // live windows of the class: it cannot be unregistered before they go
};

struct Window {
    HWND handle = nullptr;
    std::shared_ptr<WindowClass> cls;
    std::shared_ptr<ThreadQueue> owner;
    WNDPROC proc = nullptr;
    LONG_PTR userData = 0;
    HWND parent = nullptr;
    bool destroying = false;  // WM_DESTROY / WM_NCDESTROY under way
};

struct WindowState {
    std::mutex lock;
    std::vector<std::shared_ptr<WindowClass>> classes;
    std::unordered_map<HWND, std::shared_ptr<Window>> windows;
    uintptr_t nextHandle = 0x10000;
    ATOM nextAtom = 0xC000;  // where the system's class atoms begin
};

// Lives until the process ends (never destroyed, so thread-exit clean-up can always reach it).
WindowState& State();
// The calling thread's queue, created on first use and torn down when the thread ends.
std::shared_ptr<ThreadQueue> CurrentQueue();

// With the lock held: the class of that name (letter case ignored) or atom, or null.
std::shared_ptr<WindowClass> FindClassLocked(WindowState& state, LPCWSTR nameOrAtom);
// With the lock held: the window, or null.
std::shared_ptr<Window> FindWindowLocked(WindowState& state, HWND hwnd);
// With the lock held: removes the window; drops what was posted to it and completes with 0
// what was sent to it and not yet handled.
void RemoveWindowLocked(WindowState& state, const std::shared_ptr<Window>& window);

// Calls the window's current procedure on the calling thread (0 if the window is gone).
LRESULT CallWindowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);

// With the lock held (through `held`), on the queue's own thread: runs one sent message's
// procedure with the lock released, then completes it and wakes its sender.
void HandleSentLocked(std::unique_lock<std::mutex>& held, const std::shared_ptr<SentMessage>& sent);

// How TakeNextMessage looks for the calling thread's next message.
struct PumpFilter {
    HWND hwnd = nullptr;  // null: any; (HWND)-1: thread messages only; else that window's
    UINT min = 0;         // min and max both 0: any message
    UINT max = 0;
};
struct TakeOptions {
    PumpFilter filter;
    bool removePosted = true;
    bool removeQuit = true;  // WM_QUIT stays queued without it
    bool wait = true;        // until a message comes or the deadline passes
    const std::chrono::steady_clock::time_point* deadline = nullptr;  // null: no limit
    bool returnAfterSent = false;  // report each sent message handled instead of going on
};
enum class NextMessage { Posted, Quit, Sent, None };
// Handles pending sent messages (they come first, whatever the filter), then takes the first
// posted message that matches the filter; WM_QUIT comes when no matching one is left.
NextMessage TakeNextMessage(MSG& out, const TakeOptions& options);

DWORD MessageTime();

}  // namespace zqplatform::window
