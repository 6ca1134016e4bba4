// One engine thread that calls notification clients or session event sinks, one job at a
// time, in the order the jobs were posted. Internal to the platform library.
//
// Jobs run without any lock held, so a callback may call back into the engine (even register
// or unregister). Posting never waits for delivery.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace zqplatform::audio {

class EventDispatcher {
public:
    using Job = std::function<void()>;

    EventDispatcher();
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;
    // Never run: the engine keeps its dispatchers (and their detached threads) for the life of
    // the process, as callbacks may be under way while it exits.
    ~EventDispatcher() = default;

    void Post(Job job);
    // Until every job posted so far has finished. False on time-out, and at once when called
    // from a job (it would wait for itself).
    bool WaitIdle(std::chrono::milliseconds timeout);
    bool OnDispatcherThread() const;

    // On the dispatcher thread: calls call() unless stillRegistered(), asked under
    // registryLock, says the sink has left; WaitUntilNotCalling(sink) cannot return while
    // call() runs. registryLock is released before call().
    template <typename StillRegistered, typename Call>
    void Deliver(const void* sink, std::mutex& registryLock, StillRegistered stillRegistered, Call call) {
        {
            std::lock_guard registry(registryLock);
            if (!stillRegistered()) return;
            std::lock_guard lock(m_lock);
            m_calling = sink;
        }
        call();
        {
            std::lock_guard lock(m_lock);
            m_calling = nullptr;
        }
        m_changed.notify_all();
    }
    // For unregistration: returns once no callback to sink runs, unless called on the
    // dispatcher thread itself (a sink that unregisters from inside its own callback).
    void WaitUntilNotCalling(const void* sink);

private:
    void Run();

    std::mutex m_lock;
    std::condition_variable m_changed;  // jobs posted, a job or a call finished
    std::deque<Job> m_jobs;
    bool m_busy = false;
    const void* m_calling = nullptr;
    std::atomic<std::thread::id> m_threadId{};
};

}  // namespace zqplatform::audio
