// Text helpers of the virtual audio engine: UTF-8 from the machine description and for
// messages, GUID texts, task-memory copies. Internal to the platform library.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "zqplatform/win/com.h"

namespace zqplatform::audio {

std::wstring WideFromUtf8(std::string_view text);
std::string Utf8FromWide(std::wstring_view text);
// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper case, as Windows writes them.
std::wstring GuidText(const GUID& guid);
// With or without braces, either case.
std::optional<GUID> ParseGuid(std::string_view text);
// A NUL-terminated copy in task memory, for the caller to free with CoTaskMemFree; null when
// out of memory.
LPWSTR TaskMemCopy(std::wstring_view text);

}  // namespace zqplatform::audio
