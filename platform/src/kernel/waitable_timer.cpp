// Waitable timers on the platform clock: CreateWaitableTimerW/ExW, SetWaitableTimer,
// CancelWaitableTimer.
//
// An expiry only sets the signal; one that falls due while the timer is still signalled adds
// nothing, which is how missed expiries coalesce. An auto-reset ("synchronisation") timer is
// cleared by the wait that returns it, a manual-reset one by the next SetWaitableTimer.
#include <limits>
#include <new>

#include "../faults/call_faults.h"
#include "clock_service.h"
#include "handle_table.h"
#include "zqplatform/vm/clock.h"
#include "zqplatform/win/kernel.h"

#ifndef CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x00000002u
#endif

namespace zqplatform::kernel {
namespace {

constexpr int64_t k100nsPerMillisecond = 10000;

class Timer final : public KernelObject {
public:
    explicit Timer(bool manualReset) noexcept : KernelObject(ObjectKind::Timer, true, !manualReset) {}

    // The clock may be running our callback now; cancelling waits for it, so `this` stays
    // valid for as long as the callback can use it.
    ~Timer() override { Cancel(); }

    void Set(int64_t firstDue, int64_t period) {
        std::lock_guard lock(m_scheduleLock);
        CancelLocked();
        {
            std::lock_guard dispatcher(DispatcherLock());
            ResetLocked();  // setting a timer clears a signal left from before
        }
        m_scheduleId = ScheduleOnClock(firstDue, period, [this] {
            std::lock_guard dispatcher(DispatcherLock());
            SignalLocked();
        });
    }

    // Stops further expiries and leaves the signal as it is.
    void Cancel() {
        std::lock_guard lock(m_scheduleLock);
        CancelLocked();
    }

private:
    void CancelLocked() {
        if (m_scheduleId != 0) CancelOnClock(m_scheduleId);
        m_scheduleId = 0;
    }

    // Serialises Set and Cancel; the clock callback never takes it, so holding it while
    // cancelling cannot deadlock.
    std::mutex m_scheduleLock;
    uint64_t m_scheduleId = 0;  // guarded by m_scheduleLock; 0: not scheduled
};

HANDLE NewTimer(bool manualReset) {
    std::shared_ptr<Timer> timer;
    try {
        timer = std::make_shared<Timer>(manualReset);
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return InsertHandle(std::move(timer));
}

std::shared_ptr<Timer> ReferenceTimer(HANDLE handle) {
    std::shared_ptr<Timer> timer = ReferenceHandleAs<Timer>(handle, ObjectKind::Timer);
    if (!timer) SetLastError(ERROR_INVALID_HANDLE);
    return timer;
}

}  // namespace
}  // namespace zqplatform::kernel

using namespace zqplatform::kernel;

extern "C" {

// Names are not kept, as for events.
HANDLE CreateWaitableTimerW(LPSECURITY_ATTRIBUTES /*lpTimerAttributes*/, BOOL bManualReset, LPCWSTR /*lpTimerName*/) {
    if (zqplatform::faults::FailsNowSettingLastError("CreateWaitableTimerW")) return nullptr;
    return NewTimer(bManualReset != FALSE);
}

HANDLE CreateWaitableTimerExW(LPSECURITY_ATTRIBUTES /*lpTimerAttributes*/, LPCWSTR /*lpTimerName*/, DWORD dwFlags,
                              DWORD /*dwDesiredAccess*/) {
    // Every timer here has the clock's full resolution, so asking for high resolution is fine.
    if ((dwFlags & ~(CREATE_WAITABLE_TIMER_MANUAL_RESET | CREATE_WAITABLE_TIMER_HIGH_RESOLUTION)) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return NewTimer((dwFlags & CREATE_WAITABLE_TIMER_MANUAL_RESET) != 0);
}

// A completion routine would run as an APC in an alertable wait of the setting thread; no wait
// here is alertable, so, as on Windows without one, it never runs. fResume concerns power
// management, which the platform clock does not have.
BOOL SetWaitableTimer(HANDLE hTimer, const LARGE_INTEGER* lpDueTime, LONG lPeriod,
                      PTIMERAPCROUTINE /*pfnCompletionRoutine*/, LPVOID /*lpArgToCompletionRoutine*/,
                      BOOL /*fResume*/) {
    const std::shared_ptr<Timer> timer = ReferenceTimer(hTimer);
    if (!timer) return FALSE;
    if (zqplatform::faults::FailsNowSettingLastError("SetWaitableTimer")) return FALSE;
    if (lpDueTime == nullptr || lPeriod < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int64_t due = lpDueTime->QuadPart;
    int64_t firstDue = due;
    if (due < 0 && __builtin_sub_overflow(zqvm::ClockNow(), due, &firstDue))
        firstDue = std::numeric_limits<int64_t>::max();  // too far ahead to ever fall due
    try {
        timer->Set(firstDue, static_cast<int64_t>(lPeriod) * k100nsPerMillisecond);
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    return TRUE;
}

BOOL CancelWaitableTimer(HANDLE hTimer) {
    const std::shared_ptr<Timer> timer = ReferenceTimer(hTimer);
    if (!timer) return FALSE;
    timer->Cancel();
    return TRUE;
}

}
