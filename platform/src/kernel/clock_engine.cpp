// The platform clock's schedule and the thread that runs it in real time.
#include "clock_engine.h"

#include <chrono>
#include <limits>

namespace zqplatform {
namespace {

constexpr int64_t kMaxInt64 = std::numeric_limits<int64_t>::max();

// CLOCK_MONOTONIC in 100-ns units (libstdc++'s steady_clock reads it).
int64_t Monotonic() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
               .count() /
           100;
}

}  // namespace

ClockEngine& ClockEngine::Instance() {
    // Never destroyed: its thread and detached user threads may use it while the process exits.
    static ClockEngine* engine = new ClockEngine;
    return *engine;
}

ClockEngine::ClockEngine() { std::thread([this] { ClockThreadMain(); }).detach(); }

int64_t ClockEngine::NowLocked() const {
    return m_mode.load(std::memory_order_acquire) == zqvm::ClockMode::Stepped
               ? m_steppedNow.load(std::memory_order_acquire)
               : Monotonic() + m_offset.load(std::memory_order_acquire);
}

int64_t ClockEngine::Now() { return NowLocked(); }

zqvm::ClockMode ClockEngine::Mode() { return m_mode.load(std::memory_order_acquire); }

int64_t ClockEngine::EarliestDue() {
    std::lock_guard lock(m_lock);
    return m_queue.empty() ? kMaxInt64 : m_queue.begin()->first;
}

void ClockEngine::SetMode(zqvm::ClockMode mode) {
    std::lock_guard lock(m_lock);
    if (mode == m_mode) return;
    // The clock carries on from where it stands, so it never jumps, in either direction.
    const int64_t now = NowLocked();
    if (mode == zqvm::ClockMode::Stepped)
        m_steppedNow.store(now, std::memory_order_release);
    else
        m_offset.store(now - Monotonic(), std::memory_order_release);
    m_mode.store(mode, std::memory_order_release);
    m_clockThreadWake.notify_one();
}

bool ClockEngine::Advance(int64_t delta) {
    if (delta < 0) return false;
    std::unique_lock lock(m_lock);
    if (m_mode != zqvm::ClockMode::Stepped) return false;
    // From inside a callback the wait for an idle dispatcher below would never end.
    if (m_runningId != 0 && m_runningThread == std::this_thread::get_id()) return false;
    const int64_t steppedNow = m_steppedNow.load(std::memory_order_relaxed);
    const int64_t target = delta > kMaxInt64 - steppedNow ? kMaxInt64 : steppedNow + delta;
    for (;;) {
        m_idle.wait(lock, [this] { return m_runningId == 0; });
        if (m_mode != zqvm::ClockMode::Stepped) return true;  // switched meanwhile: real time takes over
        if (m_queue.empty() || m_queue.begin()->first > target) break;
        // Callbacks see the clock at their own due time, as they would in real time.
        AdvanceSteppedTo(m_queue.begin()->first);
        DispatchEarliest(lock);
    }
    AdvanceSteppedTo(target);
    return true;
}

void ClockEngine::AdvanceSteppedTo(int64_t time) {
    if (time > m_steppedNow.load(std::memory_order_relaxed)) m_steppedNow.store(time, std::memory_order_release);
}

uint64_t ClockEngine::Schedule(int64_t firstDue, int64_t period, ClockCallback callback) {
    std::lock_guard lock(m_lock);
    const uint64_t id = m_nextId++;
    const auto inserted = m_entries.emplace(id, Entry{firstDue, period > 0 ? period : 0, std::move(callback)});
    try {
        m_queue.emplace(firstDue, id);
    } catch (...) {
        m_entries.erase(inserted.first);
        throw;
    }
    m_clockThreadWake.notify_one();
    return id;
}

void ClockEngine::Cancel(uint64_t id) {
    std::unique_lock lock(m_lock);
    const auto it = m_entries.find(id);
    if (it == m_entries.end()) return;
    if (m_runningId == id) {
        it->second.cancelled = true;
        if (m_runningThread == std::this_thread::get_id()) return;  // the dispatcher drops it after the run
        // Another thread runs it: wait, then drop it here, so its captures are gone on return.
        it->second.cancellerWaits = true;
        m_idle.wait(lock, [this, id] { return m_runningId != id; });
        const auto again = m_entries.find(id);  // a second canceller may have taken it
        if (again == m_entries.end()) return;
        EntryMap::node_type removed = m_entries.extract(again);
        lock.unlock();  // the callback's captures are destroyed outside the lock
        return;
    }
    m_queue.erase(QueueKey{it->second.due, id});
    EntryMap::node_type removed = m_entries.extract(it);
    lock.unlock();
}

int64_t ClockEngine::NextDue(int64_t due, int64_t period, int64_t now) {
    // The first period boundary not yet behind us: after a stall, missed expiries are skipped.
    if (now <= due + period) return due + period;
    const int64_t periods = (now - due + period - 1) / period;
    return due + periods * period;
}

void ClockEngine::DispatchEarliest(std::unique_lock<std::mutex>& lock) {
    auto queued = m_queue.extract(m_queue.begin());
    const uint64_t id = queued.value().second;
    // References into an unordered_map survive rehashing, and nobody erases a running entry.
    Entry& entry = m_entries.find(id)->second;
    m_runningId = id;
    m_runningThread = std::this_thread::get_id();
    lock.unlock();
    entry.callback();
    lock.lock();
    m_runningId = 0;
    m_runningThread = std::thread::id();
    EntryMap::node_type finished;
    if (entry.cancelled && entry.cancellerWaits) {
        // Left for the waiting canceller to drop.
    } else if (entry.cancelled || entry.period == 0) {
        finished = m_entries.extract(id);
    } else {
        entry.due = NextDue(entry.due, entry.period, NowLocked());
        queued.value().first = entry.due;
        m_queue.insert(std::move(queued));  // re-uses the node: no allocation per expiry
    }
    m_idle.notify_all();
    m_clockThreadWake.notify_one();
    if (finished) {
        lock.unlock();
        finished = EntryMap::node_type();
        lock.lock();
    }
}

void ClockEngine::ClockThreadMain() {
    std::unique_lock lock(m_lock);
    for (;;) {
        // Stepped mode belongs to the thread that advances; a running callback is someone's.
        if (m_mode == zqvm::ClockMode::Stepped || m_runningId != 0 || m_queue.empty()) {
            m_clockThreadWake.wait(lock);
            continue;
        }
        const int64_t due = m_queue.begin()->first;
        const int64_t now = NowLocked();
        if (due <= now) {
            DispatchEarliest(lock);
            continue;
        }
        const int64_t monotonicDue = due - m_offset.load(std::memory_order_relaxed);
        if (monotonicDue > kMaxInt64 / 100) {
            m_clockThreadWake.wait(lock);  // beyond what a time point can hold: wait for a change
            continue;
        }
        const std::chrono::steady_clock::time_point deadline{std::chrono::nanoseconds(monotonicDue * 100)};
        m_clockThreadWake.wait_until(lock, deadline);
    }
}

}  // namespace zqplatform
