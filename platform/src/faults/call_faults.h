// The hook of the platform's calls outside Core Audio (fault_rules.h): each faultable call asks
// at its entry whether it is to fail now, and with what. The bridge front end's one check.
#pragma once

#include <cstdint>

namespace zqplatform::faults {

// True when an armed failure is for this call and its turn has come; code is then what the
// call reports. Costs one relaxed load while nothing is armed.
bool TakeCallFailure(const char* call, int64_t& code);
// The same for a call that reports through GetLastError: the code becomes the last error.
bool FailsNowSettingLastError(const char* call);

}  // namespace zqplatform::faults
