// The host thread's bounded message loop: the library's messages (sent ones too) are handled
// while the host waits, as a GetMessageW loop would, but each wait ends after a time limit.
// On Linux the virtual machine's message pump (and its notification queue) stands behind it;
// on Windows the system's (windows/message_loop.cpp).
#pragma once

#include <functional>

#include "zqCoreAudio.h"

namespace zqhost {

// Handles messages until done() holds or timeoutMs pass; done()'s last answer. done() is asked
// after every message and every few milliseconds, so it may wait for other threads' work.
bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs);
// Handles what is queued now, without waiting.
void PumpPending();
// Whether every endpoint notification raised so far has reached the library; where the
// system cannot tell (Windows), true.
bool NotificationsDelivered();

}  // namespace zqhost
