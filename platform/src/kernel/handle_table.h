// The process's handle table: handle values to counted kernel objects. Internal to the
// platform library.
//
// Values are multiples of 4 from a 64-bit counter, so they are never null, never the
// process pseudo handle, and never reused.
#pragma once

#include <memory>

#include "kernel_object.h"
#include "zqplatform/win/wintypes.h"

namespace zqplatform::kernel {

// Adds a handle for the object. Null with ERROR_NOT_ENOUGH_MEMORY when the table cannot grow.
HANDLE InsertHandle(std::shared_ptr<KernelObject> object) noexcept;
// The object behind a handle (the process pseudo handle included); null for a bad handle.
std::shared_ptr<KernelObject> ReferenceHandle(HANDLE handle) noexcept;
// The object behind a handle when it is of the given kind; null otherwise.
template <typename T>
std::shared_ptr<T> ReferenceHandleAs(HANDLE handle, ObjectKind kind) noexcept {
    std::shared_ptr<KernelObject> object = ReferenceHandle(handle);
    if (!object || object->Kind() != kind) return nullptr;
    return std::static_pointer_cast<T>(std::move(object));
}
// Drops the handle and hands back its reference, so the caller releases it outside the
// table's lock (an object's destructor may cancel a clock callback, which may wait). Null for
// a bad handle.
std::shared_ptr<KernelObject> RemoveHandle(HANDLE handle) noexcept;
bool IsCurrentProcessPseudoHandle(HANDLE handle) noexcept;

}  // namespace zqplatform::kernel
