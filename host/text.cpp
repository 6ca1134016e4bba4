#include "text.h"

#include "zqCoreAudio.h"

namespace zqhost {

// The framework's own encoder: characters that are not Unicode scalar values become U+FFFD.
std::string Utf8(const wchar_t* text) { return text == nullptr ? std::string() : CStringW(text).ToUtf8(); }

// The platform's decoder, as on Windows: a byte that starts no well-formed sequence becomes U+FFFD.
std::wstring Wide(const std::string& utf8) {
    if (utf8.empty()) return std::wstring();
    const int bytes = static_cast<int>(utf8.size());
    const int chars = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, nullptr, 0);
    std::wstring out(static_cast<size_t>(chars > 0 ? chars : 0), L'\0');
    if (chars > 0) MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, out.data(), chars);
    return out;
}

}  // namespace zqhost
