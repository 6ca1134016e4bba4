#include "utf8.h"

#include <cstdint>

namespace zqplatform {
namespace {

bool IsScalar(uint32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

// The length of the well-formed sequence at s[0 .. n), with its value in code; 0 when the
// first byte starts none.
size_t Decode(const unsigned char* s, size_t n, uint32_t& code) {
    const unsigned char lead = s[0];
    const size_t len = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
    if (len == 0 || len > n) return 0;
    code = len == 1 ? lead : len == 2 ? (lead & 0x1Fu) : len == 3 ? (lead & 0x0Fu) : (lead & 0x07u);
    for (size_t k = 1; k < len; ++k) {
        if ((s[k] & 0xC0u) != 0x80u) return 0;
        code = (code << 6) | (s[k] & 0x3Fu);
    }
    static constexpr uint32_t kShortest[5] = {0, 0, 0x80, 0x800, 0x10000};
    return code >= kShortest[len] && IsScalar(code) ? len : 0;
}

}  // namespace

std::wstring WideFromUtf8(std::string_view text, BadUtf8 bad, bool* exact) {
    std::wstring out;
    out.reserve(text.size());
    bool whole = true;
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    for (size_t i = 0; i < text.size();) {
        uint32_t code = 0;
        const size_t len = Decode(s + i, text.size() - i, code);
        if (len == 0) {
            whole = false;
            out.push_back(bad == BadUtf8::Keep ? static_cast<wchar_t>(s[i]) : L'\uFFFD');
            ++i;
            continue;
        }
        out.push_back(static_cast<wchar_t>(code));  // wchar_t holds UTF-32 here
        i += len;
    }
    if (exact != nullptr) *exact = whole;
    return out;
}

std::string Utf8FromWide(std::wstring_view text, bool* exact) {
    std::string out;
    out.reserve(text.size());
    bool whole = true;
    for (const wchar_t ch : text) {
        uint32_t c = static_cast<uint32_t>(ch);
        if (!IsScalar(c)) {
            whole = false;
            c = 0xFFFD;
        }
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (c >> 12)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (c >> 18)));
            out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    if (exact != nullptr) *exact = whole;
    return out;
}

}  // namespace zqplatform
