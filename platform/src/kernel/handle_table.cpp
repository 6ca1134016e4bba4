// The handle table, and the calls that work on handles of any kind: CloseHandle,
// DuplicateHandle, GetCurrentProcess.
#include "../faults/call_faults.h"
#include "zqplatform/vm/kernel_faults.h"
#include "handle_table.h"

#include <atomic>
#include <new>
#include <shared_mutex>
#include <unordered_map>

#include "zqplatform/win/kernel.h"

namespace zqplatform::kernel {
namespace {

// The process as an object: what a duplicate of the pseudo handle refers to. It is waitable
// and never signalled, since the process does not end while one of its threads waits.
class Process final : public KernelObject {
public:
    Process() noexcept : KernelObject(ObjectKind::Process, true, false) {}
};

const HANDLE kCurrentProcess = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));

struct Table {
    std::shared_mutex lock;  // shared for look-ups, which real-time threads make per wait
    std::unordered_map<uintptr_t, std::shared_ptr<KernelObject>> objects;
    uintptr_t nextValue = 0x100;
};

Table& TheTable() {
    // Never destroyed: detached threads may close handles while the process exits.
    static Table* table = new Table;
    return *table;
}

const std::shared_ptr<KernelObject>& TheProcess() {
    static const std::shared_ptr<KernelObject>* process = new std::shared_ptr<KernelObject>(std::make_shared<Process>());
    return *process;
}

}  // namespace

HANDLE InsertHandle(std::shared_ptr<KernelObject> object) noexcept {
    Table& table = TheTable();
    std::unique_lock lock(table.lock);
    const uintptr_t value = table.nextValue;
    try {
        table.objects.emplace(value, std::move(object));
    } catch (const std::bad_alloc&) {
        lock.unlock();
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    table.nextValue += 4;
    return reinterpret_cast<HANDLE>(value);
}

std::shared_ptr<KernelObject> ReferenceHandle(HANDLE handle) noexcept {
    if (handle == kCurrentProcess) return TheProcess();
    Table& table = TheTable();
    std::shared_lock lock(table.lock);
    const auto it = table.objects.find(reinterpret_cast<uintptr_t>(handle));
    return it == table.objects.end() ? nullptr : it->second;
}

std::shared_ptr<KernelObject> RemoveHandle(HANDLE handle) noexcept {
    Table& table = TheTable();
    std::unique_lock lock(table.lock);
    const auto it = table.objects.find(reinterpret_cast<uintptr_t>(handle));
    if (it == table.objects.end()) return nullptr;
    std::shared_ptr<KernelObject> object = std::move(it->second);
    table.objects.erase(it);
    return object;
}

bool IsCurrentProcessPseudoHandle(HANDLE handle) noexcept { return handle == kCurrentProcess; }

}  // namespace zqplatform::kernel

namespace zqvm {

size_t OpenKernelHandleCount() {
    zqplatform::kernel::Table& table = zqplatform::kernel::TheTable();
    std::shared_lock lock(table.lock);
    return table.objects.size();
}

}  // namespace zqvm

using namespace zqplatform::kernel;

extern "C" {

HANDLE GetCurrentProcess() { return kCurrentProcess; }

BOOL CloseHandle(HANDLE hObject) {
    if (IsCurrentProcessPseudoHandle(hObject)) return TRUE;  // closing the pseudo handle does nothing
    std::shared_ptr<KernelObject> object = RemoveHandle(hObject);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;  // the object goes here if this was its last reference
}

BOOL DuplicateHandle(HANDLE hSourceProcessHandle, HANDLE hSourceHandle, HANDLE hTargetProcessHandle,
                     PHANDLE lpTargetHandle, DWORD /*dwDesiredAccess*/, BOOL /*bInheritHandle*/, DWORD dwOptions) {
    // Only this process exists: both process handles must name it.
    const auto isThisProcess = [](HANDLE process) {
        const std::shared_ptr<KernelObject> object = ReferenceHandle(process);
        return object && object->Kind() == ObjectKind::Process;
    };
    if (!isThisProcess(hSourceProcessHandle) || !isThisProcess(hTargetProcessHandle)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (zqplatform::faults::FailsNowSettingLastError("DuplicateHandle")) return FALSE;
    std::shared_ptr<KernelObject> source = ReferenceHandle(hSourceHandle);
    if (!source) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if ((dwOptions & DUPLICATE_CLOSE_SOURCE) != 0 && !IsCurrentProcessPseudoHandle(hSourceHandle))
        RemoveHandle(hSourceHandle);
    if (lpTargetHandle == nullptr) return TRUE;  // nothing to hand back; only the close was asked for
    const HANDLE duplicate = InsertHandle(std::move(source));
    *lpTargetHandle = duplicate;
    return duplicate != nullptr ? TRUE : FALSE;
}

}
