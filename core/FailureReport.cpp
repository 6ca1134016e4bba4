#include "core/FailureReport.h"

#include "zqCoreAudio.h"

namespace {

CStringW FormatFailure(const wchar_t* format, long long code) {
    CStringW text;
    text.Format(format, static_cast<int>(code));
    return text;
}

}  // namespace

void ReportEngineFailure(const wchar_t* format, long long code) {
    const CStringW text = FormatFailure(format, code);
    // The finished text is the log's format: no further arguments.
    if (g_pCore != nullptr) g_pCore->LogError(text);
    OutputDebugStringW(text);
}

void ReportQuietFailure(const wchar_t* format, long long code) { OutputDebugStringW(FormatFailure(format, code)); }
