#include "call_trace.h"

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "../strings/utf8.h"
#include "zqplatform/vm/audio_machine.h"

namespace zqplatform::coreaudio {
namespace {

struct Trace {
    std::atomic<bool> on{false};
    std::mutex lock;
    std::vector<std::string> calls;  // lock
};

Trace& TheTrace() {
    static Trace* trace = new Trace;  // never destroyed: stream threads may trace during exit
    return *trace;
}

}  // namespace

void TraceCall(std::wstring_view endpointId, std::string_view method) {
    Trace& trace = TheTrace();
    if (!trace.on.load(std::memory_order_relaxed)) return;
    std::string line(method);
    if (!endpointId.empty()) line += " on " + Utf8FromWide(endpointId);
    std::lock_guard held(trace.lock);
    trace.calls.push_back(std::move(line));
}

}  // namespace zqplatform::coreaudio

namespace zqvm {

void TraceCoreAudioCalls(bool on) { zqplatform::coreaudio::TheTrace().on.store(on, std::memory_order_relaxed); }

std::vector<std::string> CoreAudioCalls() {
    auto& trace = zqplatform::coreaudio::TheTrace();
    std::lock_guard held(trace.lock);
    return trace.calls;
}

void ClearCoreAudioCalls() {
    auto& trace = zqplatform::coreaudio::TheTrace();
    std::lock_guard held(trace.lock);
    trace.calls.clear();
}

}  // namespace zqvm
