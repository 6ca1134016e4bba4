// The store of armed failures (fault_rules.h).
#include "fault_rules.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace zqplatform::faults {
namespace {

struct Store {
    std::mutex lock;
    std::vector<Rule> rules;
    std::atomic<size_t> count{0};

    void Counted() { count.store(rules.size(), std::memory_order_release); }
};

Store& TheStore() {
    static Store* store = new Store;  // never destroyed: threads may still ask at exit
    return *store;
}

}  // namespace

void Arm(Rule rule) {
    Store& store = TheStore();
    std::lock_guard lock(store.lock);
    store.rules.push_back(std::move(rule));
    store.Counted();
}

void Disarm(Armer armer, std::string_view call) {
    Store& store = TheStore();
    std::lock_guard lock(store.lock);
    std::erase_if(store.rules,
                  [&](const Rule& rule) { return rule.armer == armer && (call.empty() || rule.call == call); });
    store.Counted();
}

size_t ArmedCount(Armer armer) {
    Store& store = TheStore();
    std::lock_guard lock(store.lock);
    return static_cast<size_t>(
        std::count_if(store.rules.begin(), store.rules.end(), [&](const Rule& rule) { return rule.armer == armer; }));
}

bool AnyArmed() { return TheStore().count.load(std::memory_order_acquire) != 0; }

bool Fails(std::string_view call, std::wstring_view scope, int64_t& code) {
    Store& store = TheStore();
    if (store.count.load(std::memory_order_acquire) == 0) return false;
    std::lock_guard lock(store.lock);
    for (auto it = store.rules.begin(); it != store.rules.end(); ++it) {
        if (it->call != call || (!it->scope.empty() && it->scope != scope)) continue;
        if (it->skip > 0) {
            --it->skip;  // one of the calls this rule lets pass; a later rule may still fail it
            continue;
        }
        code = it->code;
        if (it->times > 0 && --it->times == 0) {
            store.rules.erase(it);
            store.Counted();
        }
        return true;
    }
    return false;
}

}  // namespace zqplatform::faults
