// Waiting, from a test or a benchmark, for a thread of the system to finish what a signal
// started. On the stepped clock a device period sets a stream's event before AdvanceClock
// returns; the stream thread then works on its own. A driver that must not step again before
// that thread is done waits here instead of guessing from the thread's effects.
#pragma once

#include <cstdint>

#include "zqplatform/export.h"
#include "zqplatform/win/wintypes.h"

namespace zqvm {

// Waits (in real time, bounded) until object is not signalled and some thread is waiting on
// it: the thread that the last signal woke has done its work and waits again. False on
// time-out or for a handle that cannot be waited on.
ZQPLATFORM_API bool WaitUntilWaitedOn(HANDLE object, uint32_t timeoutMs);

}  // namespace zqvm
