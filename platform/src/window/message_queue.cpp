// Messages: posting, sending, retrieving and dispatching.
#include <algorithm>

#include "window_state.h"

namespace zqplatform::window {
namespace {

bool Matches(const MSG& msg, const PumpFilter& filter) {
    const HWND threadOnly = reinterpret_cast<HWND>(static_cast<LONG_PTR>(-1));
    if (filter.hwnd == threadOnly) {
        if (msg.hwnd != nullptr) return false;
    } else if (filter.hwnd != nullptr && msg.hwnd != filter.hwnd) {
        return false;
    }
    if (filter.min == 0 && filter.max == 0) return true;
    return msg.message >= filter.min && msg.message <= filter.max;
}

MSG MakeMessage(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    MSG msg = {};
    msg.hwnd = hwnd;
    msg.message = message;
    msg.wParam = wParam;
    msg.lParam = lParam;
    msg.time = MessageTime();
    return msg;
}

}  // namespace

DWORD MessageTime() {
    using namespace std::chrono;
    return static_cast<DWORD>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

namespace {

// The sent messages the calling thread is handling, innermost last (a procedure may pump and
// so handle another one inside).
thread_local std::vector<std::shared_ptr<SentMessage>> t_handling;

// With the lock held: hands the result to the sender and wakes it, once.
void CompleteLocked(SentMessage& sent, LRESULT result) {
    if (sent.done) return;
    sent.result = result;
    sent.done = true;
    sent.sender->wake.notify_all();
}

}  // namespace

void HandleSentLocked(std::unique_lock<std::mutex>& held, const std::shared_ptr<SentMessage>& sent) {
    WindowState& state = State();
    const std::shared_ptr<Window> window = FindWindowLocked(state, sent->hwnd);
    const WNDPROC proc = window ? window->proc : nullptr;
    t_handling.push_back(sent);
    held.unlock();
    const LRESULT result = proc != nullptr ? proc(sent->hwnd, sent->message, sent->wParam, sent->lParam) : 0;
    held.lock();
    t_handling.pop_back();
    CompleteLocked(*sent, result);  // nothing when the procedure replied early
}

NextMessage TakeNextMessage(MSG& out, const TakeOptions& options) {
    const std::shared_ptr<ThreadQueue> self = CurrentQueue();
    WindowState& state = State();
    std::unique_lock<std::mutex> held(state.lock);
    for (;;) {
        // Sent messages first, whatever the filter: their senders are waiting.
        if (!self->sent.empty()) {
            const std::shared_ptr<SentMessage> sent = self->sent.front();
            self->sent.pop_front();
            HandleSentLocked(held, sent);
            if (options.returnAfterSent) return NextMessage::Sent;
            continue;
        }
        const auto found = std::find_if(self->posted.begin(), self->posted.end(),
                                        [&](const MSG& msg) { return Matches(msg, options.filter); });
        if (found != self->posted.end()) {
            out = *found;
            const bool quit = out.message == WM_QUIT;
            if (quit ? options.removeQuit : options.removePosted) self->posted.erase(found);
            return quit ? NextMessage::Quit : NextMessage::Posted;
        }
        if (self->quitPending) {
            out = MakeMessage(nullptr, WM_QUIT, static_cast<WPARAM>(self->quitCode), 0);
            if (options.removeQuit) self->quitPending = false;
            return NextMessage::Quit;
        }
        if (!options.wait) return NextMessage::None;
        if (options.deadline == nullptr) {
            self->wake.wait(held);
        } else if (self->wake.wait_until(held, *options.deadline) == std::cv_status::timeout &&
                   self->sent.empty() && self->posted.empty() && !self->quitPending) {
            return NextMessage::None;
        }
    }
}

}  // namespace zqplatform::window

using namespace zqplatform::window;

BOOL PostMessageW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam) {
    std::shared_ptr<ThreadQueue> target;
    if (hWnd == nullptr) target = CurrentQueue();  // a thread message to the caller itself
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    if (hWnd != nullptr) {
        const std::shared_ptr<Window> window = FindWindowLocked(state, hWnd);
        if (!window) {
            SetLastError(ERROR_INVALID_WINDOW_HANDLE);
            return FALSE;
        }
        target = window->owner;
    }
    target->posted.push_back(MakeMessage(hWnd, Msg, wParam, lParam));
    target->arrived |= QS_POSTMESSAGE | QS_ALLPOSTMESSAGE;
    target->wake.notify_all();
    return TRUE;
}

LRESULT SendMessageW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam) {
    const std::shared_ptr<ThreadQueue> self = CurrentQueue();
    WindowState& state = State();
    std::unique_lock<std::mutex> held(state.lock);
    const std::shared_ptr<Window> window = FindWindowLocked(state, hWnd);
    if (!window) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    if (window->owner == self) {  // the caller's own window: a plain call
        const WNDPROC proc = window->proc;
        held.unlock();
        return proc(hWnd, Msg, wParam, lParam);
    }
    auto sent = std::make_shared<SentMessage>();
    sent->hwnd = hWnd;
    sent->message = Msg;
    sent->wParam = wParam;
    sent->lParam = lParam;
    sent->sender = self;
    window->owner->sent.push_back(sent);
    window->owner->arrived |= QS_SENDMESSAGE;
    window->owner->wake.notify_all();
    // Wait for the owner, handling what is sent to this thread meanwhile: the owner may be
    // sending to us right now.
    while (!sent->done) {
        if (!self->sent.empty()) {
            const std::shared_ptr<SentMessage> incoming = self->sent.front();
            self->sent.pop_front();
            HandleSentLocked(held, incoming);
            continue;
        }
        self->wake.wait(held);
    }
    return sent->result;
}

BOOL GetMessageW(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax) {
    if (lpMsg == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return -1;
    }
    TakeOptions options;
    options.filter = {hWnd, wMsgFilterMin, wMsgFilterMax};
    const NextMessage next = TakeNextMessage(*lpMsg, options);
    return next == NextMessage::Quit ? FALSE : TRUE;
}

BOOL PeekMessageW(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax, UINT wRemoveMsg) {
    if (lpMsg == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    TakeOptions options;
    options.filter = {hWnd, wMsgFilterMin, wMsgFilterMax};
    options.removePosted = options.removeQuit = (wRemoveMsg & PM_REMOVE) != 0;
    options.wait = false;
    const NextMessage next = TakeNextMessage(*lpMsg, options);
    return next == NextMessage::None ? FALSE : TRUE;
}

BOOL InSendMessage(void) {
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    return !t_handling.empty() && !t_handling.back()->done ? TRUE : FALSE;
}

BOOL ReplyMessage(LRESULT lResult) {
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    if (t_handling.empty() || t_handling.back()->done) return FALSE;
    CompleteLocked(*t_handling.back(), lResult);
    return TRUE;
}

BOOL TranslateMessage(const MSG* /*lpMsg*/) { return FALSE; }

LRESULT DispatchMessageW(const MSG* lpMsg) {
    if (lpMsg == nullptr || lpMsg->hwnd == nullptr) return 0;
    const std::shared_ptr<ThreadQueue> self = CurrentQueue();
    WNDPROC proc = nullptr;
    {
        WindowState& state = State();
        std::lock_guard<std::mutex> guard(state.lock);
        const std::shared_ptr<Window> window = FindWindowLocked(state, lpMsg->hwnd);
        if (!window) {
            SetLastError(ERROR_INVALID_WINDOW_HANDLE);
            return 0;
        }
        if (window->owner != self) {  // a procedure runs only on its window's thread
            SetLastError(ERROR_ACCESS_DENIED);
            return 0;
        }
        proc = window->proc;
    }
    return proc(lpMsg->hwnd, lpMsg->message, lpMsg->wParam, lpMsg->lParam);
}

void PostQuitMessage(int nExitCode) {
    const std::shared_ptr<ThreadQueue> self = CurrentQueue();
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    self->quitPending = true;
    self->quitCode = nExitCode;
    self->arrived |= QS_POSTMESSAGE | QS_ALLPOSTMESSAGE;
    self->wake.notify_all();
}

DWORD GetQueueStatus(UINT flags) {
    const std::shared_ptr<ThreadQueue> self = CurrentQueue();
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    const DWORD present = self->Present() & flags & 0xFFFFu;
    const DWORD arrived = self->arrived & flags & 0xFFFFu;
    self->arrived &= ~flags;
    return (present << 16) | arrived;
}
