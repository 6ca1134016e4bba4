// The multimedia class scheduler's task characteristics.
#pragma once

#include "zqplatform/win/wintypes.h"

extern "C" {
// Raises the calling thread to real-time scheduling where the system allows it, and leaves it
// as it is otherwise; the returned handle is never null on success.
ZQPLATFORM_API HANDLE AvSetMmThreadCharacteristicsW(LPCWSTR TaskName, LPDWORD TaskIndex);
ZQPLATFORM_API BOOL AvRevertMmThreadCharacteristics(HANDLE AvrtHandle);
}
