// Logging of the audio components: through the core object's log functions, and only while
// there is a core object (in unit use there may be none, and g_pCore is then null).
#pragma once

#include "zqCoreAudio.h"

namespace audiolog {

template <typename... Args>
void Info(const wchar_t* format, Args... args) {
    if (CZQCoreAudio* core = g_pCore) core->LogInfo(format, args...);
}

template <typename... Args>
void Warning(const wchar_t* format, Args... args) {
    if (CZQCoreAudio* core = g_pCore) core->LogWarning(format, args...);
}

template <typename... Args>
void Error(const wchar_t* format, Args... args) {
    if (CZQCoreAudio* core = g_pCore) core->LogError(format, args...);
}

}  // namespace audiolog
