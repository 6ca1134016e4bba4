// Bounded message pumps for tests and the host: they handle the calling thread's messages
// (sent ones directly, posted ones through DispatchMessageW) like a GetMessageW loop, but
// return after a time limit instead of at WM_QUIT.
#pragma once

#include <functional>

#include "zqplatform/export.h"
#include "zqplatform/win/wintypes.h"

namespace zqvm {

// Handles messages for ms milliseconds; returns how many were handled. Returns early at
// WM_QUIT, which stays queued for the thread's real message loop.
ZQPLATFORM_API int PumpMessagesFor(DWORD ms);
// Handles what is queued now, without waiting; returns how many were handled.
ZQPLATFORM_API int PumpPending();
// Handles messages until done() returns true or timeoutMs have passed; returns done()'s last
// answer. done() is asked first, after every message, and every few milliseconds, so it may
// also wait for work of other threads. Returns early (with done()'s answer) at WM_QUIT.
ZQPLATFORM_API bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs);

// Waits, without handling anything, until the calling thread's queue holds a message of the
// kinds in qsMask (QS_SENDMESSAGE, QS_POSTMESSAGE); false after timeoutMs.
ZQPLATFORM_API bool WaitForQueuedMessages(UINT qsMask, DWORD timeoutMs);

}  // namespace zqvm
