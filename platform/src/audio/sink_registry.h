// Registered callback interfaces (notification clients, session event sinks) and their
// delivery through an EventDispatcher. Internal to the platform library.
//
// The registry holds no reference on a sink: as on Windows, the owner keeps it alive until
// its unregistration has returned, and Remove does not return while the dispatcher is calling
// it (unless Remove runs on the dispatcher thread, inside a callback).
#pragma once

#include <algorithm>
#include <mutex>
#include <vector>

#include "event_dispatcher.h"

namespace zqplatform::audio {

template <typename Sink>
class SinkRegistry {
public:
    explicit SinkRegistry(EventDispatcher& dispatcher) : m_dispatcher(dispatcher) {}

    // owner: the engine object the sink was registered through; false when already registered.
    bool Add(Sink* sink, const void* owner) {
        std::lock_guard lock(m_lock);
        if (FindLocked(sink) != m_entries.end()) return false;
        m_entries.push_back(Entry{sink, owner});
        return true;
    }

    // False when the sink was not registered.
    bool Remove(Sink* sink) {
        {
            std::lock_guard lock(m_lock);
            const auto it = FindLocked(sink);
            if (it == m_entries.end()) return false;
            m_entries.erase(it);
        }
        m_dispatcher.WaitUntilNotCalling(sink);
        return true;
    }

    // Unregisters what an object registered, when it goes away.
    void RemoveOwner(const void* owner) {
        std::vector<Sink*> removed;
        {
            std::lock_guard lock(m_lock);
            for (auto it = m_entries.begin(); it != m_entries.end();) {
                if (it->owner == owner) {
                    removed.push_back(it->sink);
                    it = m_entries.erase(it);
                } else {
                    ++it;
                }
            }
        }
        for (Sink* sink : removed) m_dispatcher.WaitUntilNotCalling(sink);
    }

    size_t Count() {
        std::lock_guard lock(m_lock);
        return m_entries.size();
    }

    // The sinks registered now: those a change made now is reported to.
    std::vector<Sink*> Snapshot() {
        std::lock_guard lock(m_lock);
        std::vector<Sink*> sinks;
        for (const Entry& entry : m_entries) sinks.push_back(entry.sink);
        return sinks;
    }

    // On the dispatcher thread: call(sink) for every sink of the snapshot that is still
    // registered when its turn comes.
    template <typename Call>
    void Deliver(const std::vector<Sink*>& sinks, Call call) {
        for (Sink* sink : sinks) {
            m_dispatcher.Deliver(
                sink, m_lock, [&] { return FindLocked(sink) != m_entries.end(); }, [&] { call(sink); });
        }
    }

private:
    struct Entry {
        Sink* sink;
        const void* owner;
    };
    typename std::vector<Entry>::iterator FindLocked(Sink* sink) {
        return std::find_if(m_entries.begin(), m_entries.end(), [sink](const Entry& e) { return e.sink == sink; });
    }

    EventDispatcher& m_dispatcher;
    std::mutex m_lock;
    std::vector<Entry> m_entries;
};

}  // namespace zqplatform::audio
