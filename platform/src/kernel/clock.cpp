// The platform clock's control calls and the scheduling calls of the platform library.
#include "clock_engine.h"
#include "zqplatform/win/systime.h"

namespace zqvm {

void SetClockMode(ClockMode mode) { zqplatform::ClockEngine::Instance().SetMode(mode); }

ClockMode GetClockMode() { return zqplatform::ClockEngine::Instance().Mode(); }

int64_t ClockNow() { return zqplatform::ClockEngine::Instance().Now(); }

bool AdvanceClock(int64_t delta100ns) { return zqplatform::ClockEngine::Instance().Advance(delta100ns); }

int64_t NextClockDue() { return zqplatform::ClockEngine::Instance().EarliestDue(); }

}  // namespace zqvm

extern "C" {

// The performance counter runs on the platform clock, so that it is stepped with the device
// clocks in tests; its unit is the clock's own 100 ns, as Windows reports on most machines.
BOOL QueryPerformanceCounter(LARGE_INTEGER* lpPerformanceCount) {
    if (lpPerformanceCount == nullptr) return FALSE;
    lpPerformanceCount->QuadPart = zqplatform::ClockEngine::Instance().Now();
    return TRUE;
}

BOOL QueryPerformanceFrequency(LARGE_INTEGER* lpFrequency) {
    if (lpFrequency == nullptr) return FALSE;
    lpFrequency->QuadPart = 10000000;
    return TRUE;
}

}  // extern "C"

namespace zqplatform {

uint64_t ScheduleOnClock(int64_t firstDue, int64_t period, ClockCallback callback) {
    return ClockEngine::Instance().Schedule(firstDue, period, std::move(callback));
}

void CancelOnClock(uint64_t id) { ClockEngine::Instance().Cancel(id); }

}  // namespace zqplatform
