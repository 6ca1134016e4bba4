#include "message_window.h"

#include "zqplatform/vm/message_pump.h"

namespace zqtest {

namespace {
const wchar_t* const kClassName = L"zqTestMessageWindow";

void RegisterOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        WNDCLASSEXW wc = {};
        wc.cbSize = sizeof wc;
        wc.lpfnWndProc = DefWindowProcW;
        wc.lpszClassName = kClassName;
        RegisterClassExW(&wc);
    });
}
}  // namespace

MessageWindow::MessageWindow() {
    RegisterOnce();
    m_hwnd = CreateWindowExW(0, kClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    SetWindowLongPtrW(m_hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    SetWindowLongPtrW(m_hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&MessageWindow::Procedure));
}

MessageWindow::~MessageWindow() {
    if (m_hwnd != nullptr) DestroyWindow(m_hwnd);
}

LRESULT CALLBACK MessageWindow::Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* self = reinterpret_cast<MessageWindow*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (self != nullptr && message >= WM_USER) {
        {
            std::lock_guard<std::mutex> lock(self->m_mutex);
            self->m_received.push_back({message, wParam, lParam});
        }
        if (self->m_handler) self->m_handler({message, wParam, lParam});
        return 0;
    }
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

bool MessageWindow::WaitFor(UINT message, size_t count, DWORD timeoutMs) {
    return zqvm::PumpUntil([&] { return Received(message).size() >= count; }, timeoutMs);
}

void MessageWindow::Pump() { zqvm::PumpPending(); }

std::vector<ReceivedMessage> MessageWindow::Received(UINT message) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<ReceivedMessage> out;
    for (const auto& m : m_received) {
        if (m.message == message) out.push_back(m);
    }
    return out;
}

std::vector<ReceivedMessage> MessageWindow::All() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_received;
}

}  // namespace zqtest
