// Signal state and waiter lists of kernel objects.
#include "kernel_object.h"

namespace zqplatform::kernel {

std::mutex& DispatcherLock() noexcept {
    // std::mutex has a trivial destructor here, so threads still running at exit may use it.
    static std::mutex lock;
    return lock;
}

std::condition_variable& WaiterLinked() noexcept {
    static auto* linked = new std::condition_variable;  // never destroyed: threads may outlive statics
    return *linked;
}

void KernelObject::SignalLocked() noexcept {
    m_signalled = true;
    for (WaitBlock* block = m_firstWaiter; block != nullptr; block = block->next) block->wake->notify_one();
}

void KernelObject::LinkWaiterLocked(WaitBlock& block) noexcept {
    block.next = nullptr;
    block.prev = m_lastWaiter;
    if (m_lastWaiter != nullptr)
        m_lastWaiter->next = &block;
    else
        m_firstWaiter = &block;
    m_lastWaiter = &block;
    WaiterLinked().notify_all();
}

void KernelObject::UnlinkWaiterLocked(WaitBlock& block) noexcept {
    if (block.prev != nullptr)
        block.prev->next = block.next;
    else
        m_firstWaiter = block.next;
    if (block.next != nullptr)
        block.next->prev = block.prev;
    else
        m_lastWaiter = block.prev;
    block.prev = block.next = nullptr;
}

}  // namespace zqplatform::kernel
