// The debugger output channel. Here it goes to standard error, each text on a line of its own
// (a newline is added where the text has none), and tests can observe it.
#pragma once

#include "zqplatform/win/wintypes.h"

extern "C" {
ZQPLATFORM_API void OutputDebugStringW(LPCWSTR lpOutputString);
ZQPLATFORM_API void OutputDebugStringA(LPCSTR lpOutputString);
}
