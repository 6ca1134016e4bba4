// Kernel objects as the handle table holds them, and the dispatcher state that waits share.
// Internal to the platform library.
//
// All signal states live under one lock, the dispatcher lock, as in the Windows kernel: a wait
// over up to 64 objects must find the lowest signalled one and consume it atomically, and the
// lock is only ever held for a few field updates, never while user code runs.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace zqplatform::kernel {

enum class ObjectKind : uint8_t { Event, Timer, Thread, Process, MmcssTask };

// One waiting thread's link into one object's waiter list. Lives on the waiting thread's stack
// for the duration of the wait, so a wait allocates nothing.
struct WaitBlock {
    std::condition_variable* wake = nullptr;
    WaitBlock* prev = nullptr;
    WaitBlock* next = nullptr;
};

class KernelObject {
public:
    KernelObject(ObjectKind kind, bool waitable, bool autoReset) noexcept
        : m_kind(kind), m_waitable(waitable), m_autoReset(autoReset) {}
    virtual ~KernelObject() = default;
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;

    ObjectKind Kind() const noexcept { return m_kind; }
    // Whether WaitFor*Object(s) accepts a handle to it.
    bool Waitable() const noexcept { return m_waitable; }
    // Whether the wait that returns the object clears its signal.
    bool AutoReset() const noexcept { return m_autoReset; }

    // The following are guarded by DispatcherLock().
    bool IsSignalledLocked() const noexcept { return m_signalled; }
    void ResetLocked() noexcept { m_signalled = false; }
    // Sets the signal and wakes every thread waiting on the object; each re-examines its
    // handles, so an auto-reset signal goes to exactly one of them.
    void SignalLocked() noexcept;
    void LinkWaiterLocked(WaitBlock& block) noexcept;
    void UnlinkWaiterLocked(WaitBlock& block) noexcept;
    bool HasWaitersLocked() const noexcept { return m_firstWaiter != nullptr; }

private:
    const ObjectKind m_kind;
    const bool m_waitable;
    const bool m_autoReset;
    bool m_signalled = false;
    WaitBlock* m_firstWaiter = nullptr;
    WaitBlock* m_lastWaiter = nullptr;
};

std::mutex& DispatcherLock() noexcept;
// Notified (under the dispatcher lock) whenever a thread links itself into a waiter list, for
// zqvm::WaitUntilWaitedOn.
std::condition_variable& WaiterLinked() noexcept;

}  // namespace zqplatform::kernel
