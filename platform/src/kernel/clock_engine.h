// The platform clock and its schedule of callbacks. Internal to the platform library; the
// rest of the library reaches it through clock_service.h and zqplatform/vm/clock.h.
//
// Threads: in real-time mode one clock thread of our own runs the callbacks; in stepped mode
// the thread that advances the clock does. At most one callback runs at a time, and never
// under m_lock, so a callback may set events and schedule or cancel callbacks.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_map>
#include <utility>

#include "clock_service.h"
#include "zqplatform/vm/clock.h"

namespace zqplatform {

class ClockEngine {
public:
    static ClockEngine& Instance();

    void SetMode(zqvm::ClockMode mode);
    zqvm::ClockMode Mode();
    int64_t Now();
    bool Advance(int64_t delta);
    // The due time of the earliest expiry waiting to run; INT64_MAX when none waits.
    int64_t EarliestDue();
    uint64_t Schedule(int64_t firstDue, int64_t period, ClockCallback callback);
    void Cancel(uint64_t id);

private:
    struct Entry {
        int64_t due;
        int64_t period;
        ClockCallback callback;
        bool cancelled = false;       // cancelled while its callback ran
        bool cancellerWaits = false;  // ... by another thread, which drops the entry itself
    };
    // Due time, then id: ids grow, so expiries due together run in the order they were set.
    using QueueKey = std::pair<int64_t, uint64_t>;
    using EntryMap = std::unordered_map<uint64_t, Entry>;

    ClockEngine();
    void ClockThreadMain();
    int64_t NowLocked() const;
    // Stepped mode, m_lock held: the clock moves to time unless it is already past it.
    void AdvanceSteppedTo(int64_t time);
    // Runs the earliest entry's callback with m_lock released, then re-arms or drops it.
    void DispatchEarliest(std::unique_lock<std::mutex>& lock);
    static int64_t NextDue(int64_t due, int64_t period, int64_t now);

    std::mutex m_lock;
    std::condition_variable m_clockThreadWake;  // schedule, mode or dispatcher changes
    std::condition_variable m_idle;             // a callback run has finished
    // Written under m_lock, read without it: Now() is called from the stream threads (through
    // QueryPerformanceCounter), which must not wait on the clock's lock. A mode switch writes
    // the new mode's time first, so a reader that sees the new mode sees its time too.
    std::atomic<zqvm::ClockMode> m_mode{zqvm::ClockMode::RealTime};
    std::atomic<int64_t> m_offset{0};      // real-time mode: clock = monotonic + offset
    std::atomic<int64_t> m_steppedNow{0};  // stepped mode: the clock
    uint64_t m_nextId = 1;
    EntryMap m_entries;
    std::set<QueueKey> m_queue;  // entries not running, earliest first
    uint64_t m_runningId = 0;    // 0: no callback is running
    std::thread::id m_runningThread;
};

}  // namespace zqplatform
