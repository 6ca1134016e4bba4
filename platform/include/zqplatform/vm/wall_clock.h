// Control of the wall clock that GetLocalTime and GetSystemTime read, for tests that need a
// known time of day.
#pragma once

#include <cstdint>

#include "zqplatform/export.h"

namespace zqvm {

// From now on the wall clock reads this UTC instant (seconds and nanoseconds since 1970).
ZQPLATFORM_API void FreezeWallClock(int64_t unixSeconds, int32_t nanoseconds);
// Back to the system's real-time clock.
ZQPLATFORM_API void ReleaseWallClock();

}  // namespace zqvm
