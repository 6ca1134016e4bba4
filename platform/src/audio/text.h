// Text helpers of the virtual audio engine: UTF-8 from the machine description and for
// messages, GUID texts, task-memory copies. Internal to the platform library.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "../strings/utf8.h"
#include "zqplatform/win/com.h"

namespace zqplatform::audio {

// The platform's UTF-8 conversion (strings/utf8.h), under the names this engine has always used.
using zqplatform::Utf8FromWide;
using zqplatform::WideFromUtf8;
// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper case, as Windows writes them.
std::wstring GuidText(const GUID& guid);
// With or without braces, either case.
std::optional<GUID> ParseGuid(std::string_view text);
// A NUL-terminated copy in task memory, for the caller to free with CoTaskMemFree; null when
// out of memory.
LPWSTR TaskMemCopy(std::wstring_view text);

}  // namespace zqplatform::audio
