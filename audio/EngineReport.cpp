#include "audio/EngineReport.h"

#include "zqCoreAudio.h"

void ReportEngineFailure(const wchar_t* format, long long code) {
    CStringW text;
    text.Format(format, static_cast<int>(code));
    // The finished text is the log's format: no further arguments.
    if (g_pCore != nullptr) g_pCore->LogError(text);
    OutputDebugStringW(text);
}
