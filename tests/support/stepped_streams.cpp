// Driving stream threads on the stepped platform clock: see stepped_streams.h.
#include "stepped_streams.h"

#include <algorithm>

#include "zqplatform/vm/clock.h"
#include "zqplatform/vm/thread_waits.h"

namespace zqtest {

bool StepStreamsUntil(int64_t until, std::initializer_list<HANDLE> events, uint32_t timeoutMs) {
    for (;;) {
        const int64_t now = zqvm::ClockNow();
        const int64_t next = std::min(zqvm::NextClockDue(), until);
        if (!zqvm::AdvanceClock(std::max<int64_t>(next - now, 0))) return false;
        for (HANDLE event : events)
            if (!zqvm::WaitUntilWaitedOn(event, timeoutMs)) return false;
        if (next >= until) return true;
    }
}

}  // namespace zqtest
