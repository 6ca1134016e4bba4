// The platform clock's control calls and the scheduling calls of the platform library.
#include "clock_engine.h"

namespace zqvm {

void SetClockMode(ClockMode mode) { zqplatform::ClockEngine::Instance().SetMode(mode); }

ClockMode GetClockMode() { return zqplatform::ClockEngine::Instance().Mode(); }

int64_t ClockNow() { return zqplatform::ClockEngine::Instance().Now(); }

bool AdvanceClock(int64_t delta100ns) { return zqplatform::ClockEngine::Instance().Advance(delta100ns); }

}  // namespace zqvm

namespace zqplatform {

uint64_t ScheduleOnClock(int64_t firstDue, int64_t period, ClockCallback callback) {
    return ClockEngine::Instance().Schedule(firstDue, period, std::move(callback));
}

void CancelOnClock(uint64_t id) { ClockEngine::Instance().Cancel(id); }

}  // namespace zqplatform
