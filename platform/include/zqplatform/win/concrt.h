// The concurrency runtime's critical section and concurrent queue.
#pragma once

#include <atomic>
#include <mutex>

#if !defined(_WIN32)
#include <pthread.h>
#endif

#include "zqplatform/win/wintypes.h"

namespace Concurrency {

#if defined(_WIN32)

// A non-recursive lock. Windows has no priority-inheriting mutex; its scheduler lifts a
// starved holder of a lock instead.
class critical_section {
public:
    critical_section() = default;
    critical_section(const critical_section&) = delete;
    critical_section& operator=(const critical_section&) = delete;

    void lock() { m_mutex.lock(); }
    bool try_lock() { return m_mutex.try_lock(); }
    void unlock() { m_mutex.unlock(); }

    using scoped_lock = std::lock_guard<critical_section>;

private:
    std::mutex m_mutex;
};

#else

// A non-recursive lock that lends its holder the priority of the threads waiting for it
// (PTHREAD_PRIO_INHERIT): the stream threads run at real-time priority and share locks with
// threads of normal priority (the analyzer reads the capture engine's feeds under its packet
// lock), and a holder of normal priority must not be kept from giving the lock back by threads
// of middle priority. Uncontended, it locks and unlocks without a system call as a plain mutex
// does.
class critical_section {
public:
    critical_section() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
        pthread_mutex_init(&m_mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~critical_section() { pthread_mutex_destroy(&m_mutex); }
    critical_section(const critical_section&) = delete;
    critical_section& operator=(const critical_section&) = delete;

    void lock() { pthread_mutex_lock(&m_mutex); }
    bool try_lock() { return pthread_mutex_trylock(&m_mutex) == 0; }
    void unlock() { pthread_mutex_unlock(&m_mutex); }
    pthread_mutex_t* native_handle() { return &m_mutex; }

    using scoped_lock = std::lock_guard<critical_section>;

private:
    pthread_mutex_t m_mutex;
};

#endif

// Unbounded queue: push never blocks and may run on any number of threads at once; try_pop is
// for one consumer at a time. Each push allocates one node; a pop frees one.
template <typename T>
class concurrent_queue {
public:
    concurrent_queue() : m_head(new Node{}), m_tail(m_head.load()) {}
    concurrent_queue(const concurrent_queue&) = delete;
    concurrent_queue& operator=(const concurrent_queue&) = delete;
    ~concurrent_queue() {
        T ignored;
        while (try_pop(ignored)) {
        }
        delete m_tail;
    }

    void push(const T& value) {
        Node* node = new Node{value, {nullptr}};
        // Wait-free: swing the head to the new node, then link the old head to it.
        Node* prev = m_head.exchange(node, std::memory_order_acq_rel);
        prev->next.store(node, std::memory_order_release);
    }

    bool try_pop(T& out) {
        Node* tail = m_tail;
        Node* next = tail->next.load(std::memory_order_acquire);
        if (next == nullptr) return false;
        out = next->value;
        m_tail = next;
        delete tail;
        return true;
    }

    bool empty() const { return m_tail->next.load(std::memory_order_acquire) == nullptr; }

    // Visits the queued values in order; only while no other thread pushes or pops.
    template <typename F>
    void unsafe_for_each(F&& visit) const {
        for (Node* n = m_tail->next.load(std::memory_order_acquire); n != nullptr;
             n = n->next.load(std::memory_order_acquire)) {
            visit(n->value);
        }
    }

private:
    struct Node {
        T value;
        std::atomic<Node*> next;
    };
    std::atomic<Node*> m_head;  // newest node, where producers append
    Node* m_tail;               // the consumer's stub: the node before the oldest value
};

}  // namespace Concurrency
