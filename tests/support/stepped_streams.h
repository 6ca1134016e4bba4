// Driving stream threads on the stepped platform clock, one expiry at a time: after each
// expiry (a device period, a late wake-up, a timer) the driver waits until every given stream
// event is back to being waited on, so each thread has finished what that expiry started
// before the next one comes, however late the engine wakes it.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "zqplatform/win/wintypes.h"

namespace zqtest {

// Steps to `until` (absolute platform-clock time, 100-ns units). False when a thread did not
// get back to its wait within timeoutMs of real time.
bool StepStreamsUntil(int64_t until, std::initializer_list<HANDLE> events, uint32_t timeoutMs = 5000);

}  // namespace zqtest
