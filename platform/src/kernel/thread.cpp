// Threads: CreateThread, ResumeThread, GetExitCodeThread, GetCurrentThreadId.
//
// Each thread is a detached POSIX thread that holds its own reference to the thread object, so
// the object outlives every handle while the routine runs. The handle is signalled once the
// routine has returned and its exit code is stored.
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <new>

#include "creation_faults.h"
#include "handle_table.h"
#include "zqplatform/win/kernel.h"

namespace zqplatform::kernel {
namespace {

class Thread final : public KernelObject {
public:
    Thread(LPTHREAD_START_ROUTINE routine, LPVOID parameter, bool suspended) noexcept
        : KernelObject(ObjectKind::Thread, true, false), m_routine(routine), m_parameter(parameter),
          m_suspendCount(suspended ? 1 : 0) {}

    // On the new thread: publishes its id, waits for ResumeThread if created suspended, runs.
    void Run() {
        {
            std::unique_lock lock(m_gateLock);
            m_id = GetCurrentThreadId();
            m_gate.notify_all();
            m_gate.wait(lock, [this] { return m_suspendCount == 0; });
        }
        const DWORD exitCode = m_routine(m_parameter);
        m_exitCode.store(exitCode, std::memory_order_release);
        std::lock_guard lock(DispatcherLock());
        SignalLocked();
    }

    DWORD WaitForId() {
        std::unique_lock lock(m_gateLock);
        m_gate.wait(lock, [this] { return m_id != 0; });
        return m_id;
    }

    DWORD Resume() {
        std::lock_guard lock(m_gateLock);
        const DWORD previous = m_suspendCount;
        if (m_suspendCount > 0 && --m_suspendCount == 0) m_gate.notify_all();
        return previous;
    }

    DWORD ExitCode() const noexcept { return m_exitCode.load(std::memory_order_acquire); }

private:
    const LPTHREAD_START_ROUTINE m_routine;
    const LPVOID m_parameter;
    std::atomic<DWORD> m_exitCode{STILL_ACTIVE};
    std::mutex m_gateLock;
    std::condition_variable m_gate;
    DWORD m_suspendCount;  // guarded by m_gateLock
    DWORD m_id = 0;        // guarded by m_gateLock
};

void* ThreadMain(void* argument) {
    // The creator handed over a heap-held reference; it becomes this thread's own.
    std::shared_ptr<Thread> self;
    {
        auto* handedOver = static_cast<std::shared_ptr<Thread>*>(argument);
        self = std::move(*handedOver);
        delete handedOver;
    }
    self->Run();
    return nullptr;
}

// Starts a detached thread that owns one reference to the object; false when it cannot start.
bool StartThread(const std::shared_ptr<Thread>& thread, size_t stackSize) {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        size_t size = stackSize < static_cast<size_t>(PTHREAD_STACK_MIN) ? PTHREAD_STACK_MIN : stackSize;
        size = (size + page - 1) / page * page;
        pthread_attr_setstacksize(&attributes, size);
    }
    auto* handedOver = new (std::nothrow) std::shared_ptr<Thread>(thread);
    bool started = false;
    if (handedOver != nullptr) {
        pthread_t id;
        started = pthread_create(&id, &attributes, ThreadMain, handedOver) == 0;
        if (!started) delete handedOver;
    }
    pthread_attr_destroy(&attributes);
    return started;
}

}  // namespace
}  // namespace zqplatform::kernel

using namespace zqplatform::kernel;

extern "C" {

HANDLE CreateThread(LPSECURITY_ATTRIBUTES /*lpThreadAttributes*/, size_t dwStackSize,
                    LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter, DWORD dwCreationFlags,
                    LPDWORD lpThreadId) {
    if (lpStartAddress == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (ConsumeCreationFault(CreationKind::Thread)) return nullptr;
    std::shared_ptr<Thread> thread;
    try {
        thread = std::make_shared<Thread>(lpStartAddress, lpParameter, (dwCreationFlags & CREATE_SUSPENDED) != 0);
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    // The handle exists before the thread runs, so the routine may already use it.
    const HANDLE handle = InsertHandle(thread);
    if (handle == nullptr) return nullptr;
    if (!StartThread(thread, dwStackSize)) {
        RemoveHandle(handle);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (lpThreadId != nullptr) *lpThreadId = thread->WaitForId();
    return handle;
}

DWORD ResumeThread(HANDLE hThread) {
    const std::shared_ptr<Thread> thread = ReferenceHandleAs<Thread>(hThread, ObjectKind::Thread);
    if (!thread) {
        SetLastError(ERROR_INVALID_HANDLE);
        return static_cast<DWORD>(-1);
    }
    return thread->Resume();
}

BOOL GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode) {
    const std::shared_ptr<Thread> thread = ReferenceHandleAs<Thread>(hThread, ObjectKind::Thread);
    if (!thread) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (lpExitCode == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *lpExitCode = thread->ExitCode();
    return TRUE;
}

DWORD GetCurrentThreadId() {
    // The kernel's thread id, as tools like top and gdb show it; looked up once per thread.
    thread_local const DWORD id = static_cast<DWORD>(gettid());
    return id;
}

}
