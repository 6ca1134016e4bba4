// The platform's side of zqvm::FailCall: each faultable call asks at its entry whether it is to
// fail now, and with what.
#pragma once

#include <cstdint>

namespace zqplatform::faults {

// True when the armed failure is for this call and its turn has come; code is then what the
// call reports. Costs one relaxed load while nothing is armed.
bool TakeCallFailure(const char* call, int64_t& code);
// The same for a call that reports through GetLastError: the code becomes the last error.
bool FailsNowSettingLastError(const char* call);

}  // namespace zqplatform::faults
