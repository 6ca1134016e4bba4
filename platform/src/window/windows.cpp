// Windows as message targets: creation and destruction, validity, the default procedure and
// the per-window values.
#include <unistd.h>

#include "window_state.h"
#include "zqplatform/win/kernel.h"

namespace zqplatform::window {

WindowState& State() {
    static WindowState* const state = new WindowState();  // never destroyed: see the header
    return *state;
}

std::shared_ptr<Window> FindWindowLocked(WindowState& state, HWND hwnd) {
    const auto found = state.windows.find(hwnd);
    return found == state.windows.end() ? nullptr : found->second;
}

void RemoveWindowLocked(WindowState& state, const std::shared_ptr<Window>& window) {
    state.windows.erase(window->handle);
    --window->cls->windows;
    ThreadQueue& queue = *window->owner;
    std::erase_if(queue.posted, [&](const MSG& msg) { return msg.hwnd == window->handle; });
    std::erase_if(queue.sent, [&](const std::shared_ptr<SentMessage>& sent) {
        if (sent->hwnd != window->handle) return false;
        sent->result = 0;
        sent->done = true;
        sent->sender->wake.notify_all();
        return true;
    });
}

LRESULT CallWindowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    WNDPROC proc = nullptr;
    {
        WindowState& state = State();
        std::lock_guard<std::mutex> guard(state.lock);
        if (const auto window = FindWindowLocked(state, hwnd)) proc = window->proc;
    }
    // The procedure runs without the lock: it may send, post, create and destroy.
    return proc != nullptr ? proc(hwnd, message, wParam, lParam) : 0;
}

}  // namespace zqplatform::window

using namespace zqplatform::window;

HWND CreateWindowExW(DWORD dwExStyle, LPCWSTR lpClassName, LPCWSTR lpWindowName, DWORD dwStyle, int X, int Y,
                     int nWidth, int nHeight, HWND hWndParent, HMENU hMenu, HINSTANCE hInstance, LPVOID lpParam) {
    const std::shared_ptr<ThreadQueue> self = CurrentQueue();
    HWND hwnd = nullptr;
    LPCWSTR className = nullptr;
    {
        WindowState& state = State();
        std::lock_guard<std::mutex> guard(state.lock);
        const std::shared_ptr<WindowClass> cls = FindClassLocked(state, lpClassName);
        if (!cls) {
            SetLastError(ERROR_CANNOT_FIND_WND_CLASS);
            return nullptr;
        }
        if (hWndParent != nullptr && hWndParent != HWND_MESSAGE && !FindWindowLocked(state, hWndParent)) {
            SetLastError(ERROR_INVALID_WINDOW_HANDLE);
            return nullptr;
        }
        auto window = std::make_shared<Window>();
        window->handle = reinterpret_cast<HWND>(state.nextHandle);
        state.nextHandle += 4;  // handles are never reused, so a stale one stays invalid
        window->cls = cls;
        window->owner = self;
        window->proc = cls->desc.lpfnWndProc;
        window->parent = hWndParent;
        ++cls->windows;
        state.windows.emplace(window->handle, window);
        hwnd = window->handle;
        className = cls->name.c_str();  // the class cannot go while it has this window
    }

    CREATESTRUCTW create = {lpParam, hInstance, hMenu, hWndParent, nHeight, nWidth, Y, X,
                            static_cast<LONG>(dwStyle), lpWindowName, className, dwExStyle};
    const LPARAM createParam = reinterpret_cast<LPARAM>(&create);
    if (CallWindowProcedure(hwnd, WM_NCCREATE, 0, createParam) == FALSE ||
        CallWindowProcedure(hwnd, WM_CREATE, 0, createParam) == -1) {
        DestroyWindow(hwnd);  // refused by its procedure
        return nullptr;
    }
    return hwnd;
}

BOOL DestroyWindow(HWND hWnd) {
    const std::shared_ptr<ThreadQueue> self = CurrentQueue();
    WindowState& state = State();
    {
        std::lock_guard<std::mutex> guard(state.lock);
        const std::shared_ptr<Window> window = FindWindowLocked(state, hWnd);
        if (!window) {
            SetLastError(ERROR_INVALID_WINDOW_HANDLE);
            return FALSE;
        }
        if (window->owner != self) {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }
        if (window->destroying) return TRUE;  // called again from its own WM_DESTROY
        window->destroying = true;
    }
    CallWindowProcedure(hWnd, WM_DESTROY, 0, 0);
    CallWindowProcedure(hWnd, WM_NCDESTROY, 0, 0);
    std::lock_guard<std::mutex> guard(state.lock);
    if (const std::shared_ptr<Window> window = FindWindowLocked(state, hWnd)) RemoveWindowLocked(state, window);
    return TRUE;
}

BOOL IsWindow(HWND hWnd) {
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    return FindWindowLocked(state, hWnd) ? TRUE : FALSE;
}

LRESULT DefWindowProcW(HWND hWnd, UINT Msg, WPARAM /*wParam*/, LPARAM /*lParam*/) {
    switch (Msg) {
        case WM_NCCREATE: return TRUE;
        case WM_CLOSE: DestroyWindow(hWnd); return 0;
        default: return 0;
    }
}

LONG_PTR GetWindowLongPtrW(HWND hWnd, int nIndex) {
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    const std::shared_ptr<Window> window = FindWindowLocked(state, hWnd);
    if (!window) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    switch (nIndex) {
        case GWLP_USERDATA: return window->userData;
        case GWLP_WNDPROC: return reinterpret_cast<LONG_PTR>(window->proc);
        default: SetLastError(ERROR_INVALID_INDEX); return 0;
    }
}

LONG_PTR SetWindowLongPtrW(HWND hWnd, int nIndex, LONG_PTR dwNewLong) {
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    const std::shared_ptr<Window> window = FindWindowLocked(state, hWnd);
    if (!window) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    LONG_PTR previous = 0;
    switch (nIndex) {
        case GWLP_USERDATA:
            previous = window->userData;
            window->userData = dwNewLong;
            return previous;
        case GWLP_WNDPROC:
            if (dwNewLong == 0) {  // a window always has a procedure
                SetLastError(ERROR_INVALID_PARAMETER);
                return 0;
            }
            previous = reinterpret_cast<LONG_PTR>(window->proc);
            window->proc = reinterpret_cast<WNDPROC>(dwNewLong);
            return previous;
        default: SetLastError(ERROR_INVALID_INDEX); return 0;
    }
}

DWORD GetWindowThreadProcessId(HWND hWnd, LPDWORD lpdwProcessId) {
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    const std::shared_ptr<Window> window = FindWindowLocked(state, hWnd);
    if (!window) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    if (lpdwProcessId != nullptr) *lpdwProcessId = static_cast<DWORD>(getpid());
    return window->owner->threadId;
}
