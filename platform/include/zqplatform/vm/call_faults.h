// Failure injection for the platform calls outside the audio engine (whose methods fail through
// InjectFailure): COM class creation, the bridge library, the registry, waitable timers, handle
// duplication, the scheduler's task characteristics, and event and thread creation. One
// failure is armed at a time, so that a test can fail each call of a path in turn.
//
// InjectFailure (audio_machine.h), FailCall and FailEventCreations / FailThreadCreations
// (kernel_faults.h) arm rules of one store, which every injectable call asks at its entry
// (platform/src/faults/fault_rules.h documents it); each clears only what it armed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zqplatform/export.h"

namespace zqvm {

// The names FailCall takes.
ZQPLATFORM_API std::vector<std::string> FaultableCalls();
// Lets `skip` calls of that name succeed, then makes the next one fail with `code`: its
// HRESULT, bridge status or registry status, or, for a call that reports through
// GetLastError, the last error it leaves. Replaces a failure armed before. False for a name
// that is not in FaultableCalls.
ZQPLATFORM_API bool FailCall(const std::string& call, uint32_t skip, int64_t code);
// Whether the armed failure has not happened yet.
ZQPLATFORM_API bool CallFailurePending();
ZQPLATFORM_API void ClearCallFailure();

}  // namespace zqvm
