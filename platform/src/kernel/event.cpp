// Events: CreateEventW, CreateEventExW, SetEvent, ResetEvent.
#include <new>

#include "creation_faults.h"
#include "handle_table.h"
#include "zqplatform/win/kernel.h"

namespace zqplatform::kernel {
namespace {

class Event final : public KernelObject {
public:
    explicit Event(bool manualReset) noexcept : KernelObject(ObjectKind::Event, true, !manualReset) {}
};

// Names are not kept: the system creates its events unnamed, and within one process an
// unnamed event serves the same purpose.
HANDLE NewEvent(bool manualReset, bool initialState) {
    if (ConsumeCreationFault(CreationKind::Event)) return nullptr;
    std::shared_ptr<Event> event;
    try {
        event = std::make_shared<Event>(manualReset);
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (initialState) {
        std::lock_guard lock(DispatcherLock());
        event->SignalLocked();
    }
    return InsertHandle(std::move(event));
}

// SetEvent and ResetEvent accept events only, as Windows does.
std::shared_ptr<Event> ReferenceEvent(HANDLE handle) {
    std::shared_ptr<Event> event = ReferenceHandleAs<Event>(handle, ObjectKind::Event);
    if (!event) SetLastError(ERROR_INVALID_HANDLE);
    return event;
}

}  // namespace
}  // namespace zqplatform::kernel

using namespace zqplatform::kernel;

extern "C" {

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES /*lpEventAttributes*/, BOOL bManualReset, BOOL bInitialState,
                    LPCWSTR /*lpName*/) {
    return NewEvent(bManualReset != FALSE, bInitialState != FALSE);
}

HANDLE CreateEventExW(LPSECURITY_ATTRIBUTES /*lpEventAttributes*/, LPCWSTR /*lpName*/, DWORD dwFlags,
                      DWORD /*dwDesiredAccess*/) {
    if ((dwFlags & ~(CREATE_EVENT_MANUAL_RESET | CREATE_EVENT_INITIAL_SET)) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return NewEvent((dwFlags & CREATE_EVENT_MANUAL_RESET) != 0, (dwFlags & CREATE_EVENT_INITIAL_SET) != 0);
}

BOOL SetEvent(HANDLE hEvent) {
    const std::shared_ptr<Event> event = ReferenceEvent(hEvent);
    if (!event) return FALSE;
    std::lock_guard lock(DispatcherLock());
    event->SignalLocked();
    return TRUE;
}

BOOL ResetEvent(HANDLE hEvent) {
    const std::shared_ptr<Event> event = ReferenceEvent(hEvent);
    if (!event) return FALSE;
    std::lock_guard lock(DispatcherLock());
    event->ResetLocked();
    return TRUE;
}

}
