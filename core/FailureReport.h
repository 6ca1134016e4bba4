// How the system tells of a failing platform call: the text, with the call's code, formatted
// once. Where the failure belongs in the host's log (the stream engines' opens and starts), it
// is logged as an error and written to the debug output; where the host's log stays quiet by
// design (the listings, the pairing, the bridges, the product table, the parts Init builds
// once), it goes to the debug output alone, where a support engineer's debug viewer sees it.
#pragma once

#include "zqPlatform.h"

// Formats format with one integer argument (an HRESULT for "%x", a system error or a status
// for "%d").
void ReportEngineFailure(const wchar_t* format, long long code);
void ReportQuietFailure(const wchar_t* format, long long code);
