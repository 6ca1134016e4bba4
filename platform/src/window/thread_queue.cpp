// The per-thread message queue: created on first use, torn down with its thread.
#include "window_state.h"
#include "zqplatform/win/kernel.h"

namespace zqplatform::window {
namespace {

// When the thread ends, its windows go without messages (there is no thread left to run
// their procedures), what was posted to it is dropped, and every sender still waiting for
// it returns 0.
void ThreadEnded(const std::shared_ptr<ThreadQueue>& queue) {
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    std::vector<std::shared_ptr<Window>> owned;
    for (const auto& entry : state.windows) {
        if (entry.second->owner == queue) owned.push_back(entry.second);
    }
    for (const auto& window : owned) RemoveWindowLocked(state, window);
    for (const auto& sent : queue->sent) {  // thread messages are not sent, but be thorough
        sent->done = true;
        sent->sender->wake.notify_all();
    }
    queue->sent.clear();
    queue->posted.clear();
}

struct QueueHolder {
    std::shared_ptr<ThreadQueue> queue;
    ~QueueHolder() {
        if (queue) ThreadEnded(queue);
    }
};

}  // namespace

std::shared_ptr<ThreadQueue> CurrentQueue() {
    thread_local QueueHolder holder;
    if (!holder.queue) {
        holder.queue = std::make_shared<ThreadQueue>();
        holder.queue->threadId = GetCurrentThreadId();
    }
    return holder.queue;
}

}  // namespace zqplatform::window
