// WaitForSingleObject, WaitForMultipleObjects and Sleep.
//
// A waiting thread links a block from its stack into each object's waiter list and sleeps on
// its own condition variable; a signal wakes it and it examines its handles again, lowest
// index first. Everything happens under the dispatcher lock, so an auto-reset object is taken
// by exactly one wait, and only by the wait that returns it. Nothing is allocated per wait.
#include <array>
#include <chrono>
#include <thread>

#include "handle_table.h"
#include "zqplatform/win/kernel.h"

namespace zqplatform::kernel {
namespace {

using Objects = std::array<std::shared_ptr<KernelObject>, MAXIMUM_WAIT_OBJECTS>;

std::condition_variable& ThisThreadsWakeUp() {
    thread_local std::condition_variable wake;
    return wake;
}

// Under the dispatcher lock: the index the wait returns, consuming auto-reset signals, or -1.
int TakeSignalLocked(const Objects& objects, DWORD count, bool waitAll) {
    if (!waitAll) {
        for (DWORD i = 0; i < count; ++i) {
            KernelObject& object = *objects[i];
            if (!object.IsSignalledLocked()) continue;
            if (object.AutoReset()) object.ResetLocked();
            return static_cast<int>(i);
        }
        return -1;
    }
    for (DWORD i = 0; i < count; ++i)
        if (!objects[i]->IsSignalledLocked()) return -1;
    for (DWORD i = 0; i < count; ++i)
        if (objects[i]->AutoReset()) objects[i]->ResetLocked();
    return 0;
}

bool HasDuplicates(const Objects& objects, DWORD count) {
    for (DWORD i = 0; i < count; ++i)
        for (DWORD j = i + 1; j < count; ++j)
            if (objects[i] == objects[j]) return true;
    return false;
}

DWORD WaitForObjects(DWORD count, const HANDLE* handles, bool waitAll, DWORD milliseconds) {
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || handles == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    // Our references keep the objects alive even if another thread closes a handle meanwhile.
    Objects objects;
    for (DWORD i = 0; i < count; ++i) {
        objects[i] = ReferenceHandle(handles[i]);
        if (!objects[i] || !objects[i]->Waitable()) {
            SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
    }
    // Waiting for all of the same object twice could never be satisfied consistently.
    if (waitAll && HasDuplicates(objects, count)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    std::condition_variable& wake = ThisThreadsWakeUp();
    std::array<WaitBlock, MAXIMUM_WAIT_OBJECTS> blocks;
    bool linked = false;
    bool timedOut = milliseconds == 0;
    DWORD result = WAIT_TIMEOUT;

    std::unique_lock lock(DispatcherLock());
    for (;;) {
        const int index = TakeSignalLocked(objects, count, waitAll);
        if (index >= 0) {
            result = WAIT_OBJECT_0 + static_cast<DWORD>(index);
            break;
        }
        if (timedOut) break;
        if (!linked) {
            for (DWORD i = 0; i < count; ++i) {
                blocks[i].wake = &wake;
                objects[i]->LinkWaiterLocked(blocks[i]);
            }
            linked = true;
        }
        if (milliseconds == INFINITE)
            wake.wait(lock);
        else if (wake.wait_until(lock, deadline) == std::cv_status::timeout)
            timedOut = true;  // one more look: a signal may have raced the time-out
    }
    if (linked)
        for (DWORD i = 0; i < count; ++i) objects[i]->UnlinkWaiterLocked(blocks[i]);
    lock.unlock();
    return result;  // the references go after the lock, so no object dies under it
}

}  // namespace
}  // namespace zqplatform::kernel

extern "C" {

DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
    return zqplatform::kernel::WaitForObjects(1, &hHandle, false, dwMilliseconds);
}

DWORD WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll, DWORD dwMilliseconds) {
    return zqplatform::kernel::WaitForObjects(nCount, lpHandles, bWaitAll != FALSE, dwMilliseconds);
}

void Sleep(DWORD dwMilliseconds) {
    if (dwMilliseconds == 0) {
        std::this_thread::yield();  // gives up the rest of the time slice, as on Windows
        return;
    }
    if (dwMilliseconds == INFINITE) {
        for (;;) std::this_thread::sleep_for(std::chrono::hours(24));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(dwMilliseconds));
}

}
