// The multimedia class scheduler: AvSetMmThreadCharacteristicsW and
// AvRevertMmThreadCharacteristics over POSIX real-time scheduling.
//
// Audio tasks ask for SCHED_FIFO. Without the right to it (no CAP_SYS_NICE, no RLIMIT_RTPRIO)
// the thread keeps its normal priority and the call still succeeds, as the stream threads
// work either way, only with less headroom.
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cwctype>
#include <new>

#include "../faults/call_faults.h"
#include "audio_priority.h"
#include "handle_table.h"
#include "zqplatform/win/avrt.h"
#include "zqplatform/win/kernel.h"

namespace zqplatform::kernel {
namespace {

constexpr DWORD kErrorInvalidTaskName = 1550;  // ERROR_INVALID_TASK_NAME

// The calling thread's membership of a task, and what to give back on revert.
class MmcssTask final : public KernelObject {
public:
    MmcssTask(pthread_t owner, int policy, sched_param parameters) noexcept
        : KernelObject(ObjectKind::MmcssTask, false, false), thread(owner), previousPolicy(policy),
          previousParameters(parameters) {}

    const pthread_t thread;
    const int previousPolicy;
    const sched_param previousParameters;
};

struct TaskClass {
    const wchar_t* name;
    bool realTime;  // whether its threads ask for SCHED_FIFO
    int priority;   // offset above the lowest SCHED_FIFO priority
};

// The task classes a Windows installation defines; the audio ones run in real time.
constexpr TaskClass kTaskClasses[] = {
    {L"Audio", true, kAudioPriorityOffset},          {L"Pro Audio", true, 20}, {L"Capture", true, 10},
    {L"Playback", true, 10},       {L"Games", false, 0},     {L"Distribution", false, 0},
    {L"Window Manager", false, 0},
};

bool EqualsIgnoringCase(const wchar_t* a, const wchar_t* b) {
    for (; *a != L'\0' && *b != L'\0'; ++a, ++b)
        if (std::towlower(static_cast<wint_t>(*a)) != std::towlower(static_cast<wint_t>(*b))) return false;
    return *a == *b;
}

const TaskClass* FindTaskClass(LPCWSTR name) {
    if (name == nullptr) return nullptr;
    for (const TaskClass& task : kTaskClasses)
        if (EqualsIgnoringCase(task.name, name)) return &task;
    return nullptr;
}

std::atomic<DWORD> g_nextTaskIndex{1};

}  // namespace

bool RaiseCallingThreadToRealTime(int priorityOffset) {
    sched_param raised{};
    raised.sched_priority = sched_get_priority_min(SCHED_FIFO) + priorityOffset;
    return pthread_setschedparam(pthread_self(), SCHED_FIFO, &raised) == 0;
}

}  // namespace zqplatform::kernel

using namespace zqplatform::kernel;

extern "C" {

HANDLE AvSetMmThreadCharacteristicsW(LPCWSTR TaskName, LPDWORD TaskIndex) {
    if (zqplatform::faults::FailsNowSettingLastError("AvSetMmThreadCharacteristicsW")) return nullptr;
    const TaskClass* task = FindTaskClass(TaskName);
    if (task == nullptr) {
        SetLastError(kErrorInvalidTaskName);
        return nullptr;
    }
    const pthread_t self = pthread_self();
    int policy = SCHED_OTHER;
    sched_param parameters{};
    if (pthread_getschedparam(self, &policy, &parameters) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::shared_ptr<MmcssTask> record;
    try {
        record = std::make_shared<MmcssTask>(self, policy, parameters);
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    const HANDLE handle = InsertHandle(std::move(record));
    if (handle == nullptr) return nullptr;
    if (task->realTime) (void)zqplatform::kernel::RaiseCallingThreadToRealTime(task->priority);  // EPERM: stay as we are
    // A caller passing 0 joins a new task; a caller passing an index keeps it.
    if (TaskIndex != nullptr && *TaskIndex == 0) *TaskIndex = g_nextTaskIndex.fetch_add(1, std::memory_order_relaxed);
    return handle;
}

BOOL AvRevertMmThreadCharacteristics(HANDLE AvrtHandle) {
    const std::shared_ptr<MmcssTask> task = ReferenceHandleAs<MmcssTask>(AvrtHandle, ObjectKind::MmcssTask);
    if (!task) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    // Only the thread itself may revert: another thread's pthread_t may already be gone.
    if (!pthread_equal(task->thread, pthread_self())) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    (void)pthread_setschedparam(task->thread, task->previousPolicy, &task->previousParameters);
    RemoveHandle(AvrtHandle);
    return TRUE;
}

}
