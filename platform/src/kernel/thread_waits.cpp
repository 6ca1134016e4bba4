// zqvm::WaitUntilWaitedOn: the dispatcher's view of whether a thread is back in its wait.
#include "zqplatform/vm/thread_waits.h"

#include <chrono>

#include "handle_table.h"

namespace zqvm {

bool WaitUntilWaitedOn(HANDLE object, uint32_t timeoutMs) {
    using namespace zqplatform::kernel;
    const std::shared_ptr<KernelObject> target = ReferenceHandle(object);
    if (!target || !target->Waitable()) return false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock lock(DispatcherLock());
    // A waiter linking itself is announced; the short slices also catch a signal reset by
    // other means while a waiter stays linked.
    while (target->IsSignalledLocked() || !target->HasWaitersLocked()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        WaiterLinked().wait_for(lock, std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace zqvm
