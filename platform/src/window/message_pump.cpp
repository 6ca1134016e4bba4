// Bounded message pumps: a GetMessageW / DispatchMessageW loop with a deadline.
#include "zqplatform/vm/message_pump.h"

#include <algorithm>

#include "window_state.h"

namespace {

using namespace zqplatform::window;
using Clock = std::chrono::steady_clock;

enum class Pumped { Message, Quit, Nothing };

// Handles one message: a sent one, or a posted one through DispatchMessageW, waiting for it
// no later than until. WM_QUIT is left queued.
Pumped PumpOne(Clock::time_point until, bool wait) {
    MSG msg = {};
    TakeOptions options;
    options.removeQuit = false;
    options.wait = wait;
    options.deadline = &until;
    options.returnAfterSent = true;
    switch (TakeNextMessage(msg, options)) {
        case NextMessage::Posted:
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
            return Pumped::Message;
        case NextMessage::Sent: return Pumped::Message;
        case NextMessage::Quit: return Pumped::Quit;
        case NextMessage::None: return Pumped::Nothing;
    }
    return Pumped::Nothing;
}

}  // namespace

namespace zqvm {

int PumpMessagesFor(DWORD ms) {
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(ms);
    int handled = 0;
    while (PumpOne(deadline, true) == Pumped::Message) ++handled;
    return handled;
}

int PumpPending() {
    int handled = 0;
    while (PumpOne(Clock::now(), false) == Pumped::Message) ++handled;
    return handled;
}

bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs) {
    // The condition may depend on other threads' work that sends no message: ask it again at
    // least this often.
    constexpr auto kRecheck = std::chrono::milliseconds(2);
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (done()) return true;
        const Clock::time_point now = Clock::now();
        if (now >= deadline) return false;
        if (PumpOne(std::min(deadline, now + kRecheck), true) == Pumped::Quit) return done();
    }
}

bool WaitForQueuedMessages(UINT qsMask, DWORD timeoutMs) {
    const std::shared_ptr<ThreadQueue> self = CurrentQueue();
    WindowState& state = State();
    std::unique_lock<std::mutex> held(state.lock);
    return self->wake.wait_for(held, std::chrono::milliseconds(timeoutMs),
                               [&] { return (self->Present() & qsMask) != 0; });
}

}  // namespace zqvm
