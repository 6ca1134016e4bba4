// The debugger output channel. Here it goes to standard error, and tests can observe it.
#pragma once

#include "zqplatform/win/wintypes.h"

extern "C" {
ZQPLATFORM_API void OutputDebugStringW(LPCWSTR lpOutputString);
ZQPLATFORM_API void OutputDebugStringA(LPCSTR lpOutputString);
}
