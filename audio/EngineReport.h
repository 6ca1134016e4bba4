// How the stream engines report a failing platform call: the text with its code is formatted
// once, logged as an error and written to the debug output.
#pragma once

#include "zqPlatform.h"

// Formats format with one integer argument (an HRESULT for "%x", a system error for "%d").
void ReportEngineFailure(const wchar_t* format, long long code);
