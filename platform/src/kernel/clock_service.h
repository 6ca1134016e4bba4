// Scheduling on the platform clock (zqplatform/vm/clock.h), shared by waitable timers and the
// virtual audio engine's device clocks. Internal to the platform library (exported only for
// the platform's own tests).
#pragma once

#include <cstdint>
#include <functional>

#include "zqplatform/export.h"

namespace zqplatform {

using ClockCallback = std::function<void()>;

// Runs callback at firstDue (absolute, platform clock, 100-ns units), then every period after
// it (period 0: once). In real-time mode callbacks run on the clock's own thread; in stepped
// mode on the thread that advances the clock. Late expiries are not replayed: after a stall
// the next expiry is the first period boundary still ahead. Callbacks must not block.
ZQPLATFORM_API uint64_t ScheduleOnClock(int64_t firstDue, int64_t period, ClockCallback callback);
// After it returns, the callback neither runs nor will run again (when called from inside the
// callback itself, the current run completes). Unknown ids are ignored.
ZQPLATFORM_API void CancelOnClock(uint64_t id);

}  // namespace zqplatform
