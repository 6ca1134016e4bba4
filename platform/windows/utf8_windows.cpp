// The platform's UTF-8 conversion (../src/strings/utf8.h) where wchar_t is UTF-16: the system's
// own conversion, so that characters beyond the Basic Multilingual Plane travel as surrogate
// pairs and a text reads in the log as Windows shows it.
#include <windows.h>

#include "../src/strings/utf8.h"

namespace zqplatform {
namespace {

// MultiByteToWideChar / WideCharToMultiByte take int sizes; a longer text is cut there.
int SizeOf(size_t n) { return n > 0x3FFFFFFF ? 0x3FFFFFFF : static_cast<int>(n); }

}  // namespace

std::wstring WideFromUtf8(std::string_view text, BadUtf8 bad, bool* exact) {
    std::wstring out;
    const int n = SizeOf(text.size());
    const bool whole = n == 0 || MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), n, nullptr, 0) > 0;
    if (exact != nullptr) *exact = whole;
    if (!whole && bad == BadUtf8::Keep) {
        // A name that is not UTF-8 keeps its bytes as characters of the same code.
        out.reserve(text.size());
        for (const char byte : text) out.push_back(static_cast<wchar_t>(static_cast<unsigned char>(byte)));
        return out;
    }
    const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), n, nullptr, 0);  // bad bytes: U+FFFD
    if (length <= 0) return out;
    out.resize(static_cast<size_t>(length));
    MultiByteToWideChar(CP_UTF8, 0, text.data(), n, out.data(), length);
    return out;
}

std::string Utf8FromWide(std::wstring_view text, bool* exact) {
    std::string out;
    const int n = SizeOf(text.size());
    // WC_ERR_INVALID_CHARS fails on a lone surrogate; without it one becomes U+FFFD.
    const bool whole = n == 0 || WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), n, nullptr, 0,
                                                     nullptr, nullptr) > 0;
    if (exact != nullptr) *exact = whole;
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), n, nullptr, 0, nullptr, nullptr);
    if (length <= 0) return out;
    out.resize(static_cast<size_t>(length));
    WideCharToMultiByte(CP_UTF8, 0, text.data(), n, out.data(), length, nullptr, nullptr);
    return out;
}

}  // namespace zqplatform
