#include "call_faults.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>

#include "zqplatform/vm/call_faults.h"
#include "zqplatform/win/wintypes.h"

namespace zqplatform::faults {
namespace {

const char* const kCalls[] = {
    "CoCreateInstance",        "HidUart_GetNumDevices",  "HidUart_GetString",   "HidUart_Open",
    "HidUart_Close",           "HidUart_SetUartConfig",  "HidUart_GetTimeouts", "HidUart_SetTimeouts",
    "HidUart_Write",           "HidUart_Read",           "RegOpenKeyExW",       "RegQueryValueExW",
    "RegCloseKey",             "CreateWaitableTimerW",   "SetWaitableTimer",    "DuplicateHandle",
    "AvSetMmThreadCharacteristicsW", "CreateEvent",      "CreateThread",
};

struct Armed {
    std::string call;
    uint32_t skip = 0;
    int64_t code = 0;
};

std::mutex g_mutex;
Armed g_armed;
std::atomic<bool> g_pending{false};

}  // namespace

bool TakeCallFailure(const char* call, int64_t& code) {
    if (!g_pending.load(std::memory_order_relaxed)) return false;
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_pending.load(std::memory_order_relaxed) || g_armed.call != call) return false;
    if (g_armed.skip > 0) {
        --g_armed.skip;
        return false;
    }
    code = g_armed.code;
    g_pending.store(false, std::memory_order_relaxed);
    return true;
}

bool FailsNowSettingLastError(const char* call) {
    int64_t code = 0;
    if (!TakeCallFailure(call, code)) return false;
    SetLastError(static_cast<DWORD>(code));
    return true;
}

}  // namespace zqplatform::faults

namespace zqvm {

using namespace zqplatform::faults;

std::vector<std::string> FaultableCalls() { return {std::begin(kCalls), std::end(kCalls)}; }

bool FailCall(const std::string& call, uint32_t skip, int64_t code) {
    if (std::find(std::begin(kCalls), std::end(kCalls), call) == std::end(kCalls)) return false;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_armed = Armed{call, skip, code};
    g_pending.store(true, std::memory_order_relaxed);
    return true;
}

bool CallFailurePending() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_pending.load(std::memory_order_relaxed);
}

void ClearCallFailure() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_pending.store(false, std::memory_order_relaxed);
}

}  // namespace zqvm
