// The platform's one conversion between UTF-8, the encoding of every narrow text on this
// platform (file names, sysfs attributes, the bridges' USB strings, machine descriptions), and
// wide text (one wchar_t per Unicode scalar value here). Internal to the platform library; the
// system reaches it through MultiByteToWideChar / WideCharToMultiByte with CP_UTF8, "%S" and
// CStringW's narrow constructor, whatever the C library's locale.
#pragma once

#include <string>
#include <string_view>

namespace zqplatform {

// What becomes of a byte that does not start a well-formed UTF-8 sequence (a stray
// continuation byte, a sequence cut short, an overlong form, a surrogate, a value past U+10FFFF).
enum class BadUtf8 {
    Replace,  // U+FFFD, one per bad byte, as Windows' UTF-8 conversion does
    Keep,     // the character of the byte's code, so that a non-UTF-8 file name survives the round trip
};

// Wide text of UTF-8. *exact (when given) tells whether every byte decoded.
std::wstring WideFromUtf8(std::string_view text, BadUtf8 bad = BadUtf8::Replace, bool* exact = nullptr);
// UTF-8 of wide text; a wchar_t that is no Unicode scalar value becomes U+FFFD, and *exact
// (when given) tells whether none did.
std::string Utf8FromWide(std::wstring_view text, bool* exact = nullptr);

}  // namespace zqplatform
