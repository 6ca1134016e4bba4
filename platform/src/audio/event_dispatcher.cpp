// The engine threads that deliver notifications and session events.
#include "event_dispatcher.h"

#include <cstdio>
#include <exception>

#include "zqplatform/win/com.h"

namespace zqplatform::audio {

EventDispatcher::EventDispatcher() {
    std::thread thread([this] { Run(); });
    m_threadId.store(thread.get_id(), std::memory_order_release);
    thread.detach();  // lives as long as the process, as the dispatcher does
}

void EventDispatcher::Post(Job job) {
    {
        std::lock_guard lock(m_lock);
        m_jobs.push_back(std::move(job));
    }
    m_changed.notify_all();
}

bool EventDispatcher::OnDispatcherThread() const {
    return m_threadId.load(std::memory_order_acquire) == std::this_thread::get_id();
}

bool EventDispatcher::WaitIdle(std::chrono::milliseconds timeout) {
    if (OnDispatcherThread()) return false;
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, timeout, [this] { return m_jobs.empty() && !m_busy; });
}

void EventDispatcher::WaitUntilNotCalling(const void* sink) {
    if (OnDispatcherThread()) return;
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [this, sink] { return m_calling != sink; });
}

void EventDispatcher::Run() {
    // Windows calls notification clients and session event sinks on threads of the
    // multithreaded apartment: callbacks may create COM objects (an enumerator, say).
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::unique_lock lock(m_lock);
    for (;;) {
        m_changed.wait(lock, [this] { return !m_jobs.empty(); });
        Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        m_busy = true;
        lock.unlock();
        try {
            job();
        } catch (const std::exception& e) {
            // A callback that throws must not end the thread every later event depends on.
            std::fprintf(stderr, "zqplatform: audio engine callback threw: %s\n", e.what());
        } catch (...) {
            std::fprintf(stderr, "zqplatform: audio engine callback threw\n");
        }
        job = nullptr;  // the job's captures go before the engine reports itself idle
        lock.lock();
        m_busy = false;
        m_changed.notify_all();
    }
}

}  // namespace zqplatform::audio
