// zqvm::FailCall and the hook of the calls it fails, over the one store of fault_rules.h.
#include "call_faults.h"

#include <algorithm>
#include <string>

#include "fault_rules.h"
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

}  // namespace

bool TakeCallFailure(const char* call, int64_t& code) { return Fails(call, {}, code); }

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
    // One armed at a time: it replaces the one before.
    Disarm(Armer::Call);
    Arm(Rule{Armer::Call, call, {}, code, skip, 1});
    return true;
}

bool CallFailurePending() { return ArmedCount(Armer::Call) > 0; }

void ClearCallFailure() { Disarm(Armer::Call); }

}  // namespace zqvm
