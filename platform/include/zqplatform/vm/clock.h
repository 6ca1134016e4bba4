// Control of the platform clock that waitable timers and the virtual audio engine's device
// clocks run on. In real-time mode it follows the monotonic system clock; in stepped mode it
// stands still until a test advances it, which makes timing tests exact and instant.
#pragma once

#include <cstdint>

#include "zqplatform/export.h"

namespace zqvm {

enum class ClockMode { RealTime, Stepped };

// Switching mode keeps the current time; timers and device clocks keep their schedules.
ZQPLATFORM_API void SetClockMode(ClockMode mode);
ZQPLATFORM_API ClockMode GetClockMode();
// Current time on the platform clock, in 100-ns units.
ZQPLATFORM_API int64_t ClockNow();
// Stepped mode only: moves the clock forward and, before returning, fires every expiry that
// falls due on the way, in time order (those due at the same time in the order they were set).
// Returns false in real-time mode.
ZQPLATFORM_API bool AdvanceClock(int64_t delta100ns);
// The time the earliest scheduled expiry falls due (a device period, a delayed stream wake-up,
// a timer), INT64_MAX when nothing is scheduled: a driver that steps to each expiry in turn
// lets every thread it wakes finish before the next one comes.
ZQPLATFORM_API int64_t NextClockDue();

}  // namespace zqvm
