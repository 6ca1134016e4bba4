// Conversions between the library's wide texts and the UTF-8 of terminals, files and JSON.
#pragma once

#include <string>

namespace zqhost {

std::string Utf8(const wchar_t* text);
inline std::string Utf8(const std::wstring& text) { return Utf8(text.c_str()); }
std::wstring Wide(const std::string& utf8);

}  // namespace zqhost
