// The message loop over the system's queue: PeekMessageW handles sent messages too, and
// MsgWaitForMultipleObjects wakes for either kind.
#include "../message_loop.h"

#include <algorithm>

namespace zqhost {
namespace {

constexpr DWORD kAskEveryMs = 5;  // how often done() is asked while nothing arrives

}  // namespace

void PumpPending() {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
    }
}

bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs) {
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    for (;;) {
        PumpPending();
        if (done()) return true;
        const ULONGLONG now = GetTickCount64();
        if (now >= deadline) return false;
        const DWORD wait = static_cast<DWORD>(std::min<ULONGLONG>(deadline - now, kAskEveryMs));
        MsgWaitForMultipleObjects(0, nullptr, FALSE, wait, QS_ALLINPUT);
    }
}

// The system delivers endpoint notifications on its own threads and says nothing of those
// still under way.
bool NotificationsDelivered() { return true; }

}  // namespace zqhost
