#include "text.h"

#include <cstdint>

#include "zqCoreAudio.h"

namespace zqhost {

// The framework's own encoder: characters that are not Unicode scalar values become U+FFFD.
std::string Utf8(const wchar_t* text) { return text == nullptr ? std::string() : CStringW(text).ToUtf8(); }

std::wstring Wide(const std::string& utf8) {
    std::wstring out;
    size_t i = 0;
    while (i < utf8.size()) {
        const auto b = static_cast<unsigned char>(utf8[i]);
        int extra = b < 0x80 ? 0 : (b >> 5) == 0x6 ? 1 : (b >> 4) == 0xE ? 2 : (b >> 3) == 0x1E ? 3 : -1;
        if (extra < 0 || i + static_cast<size_t>(extra) >= utf8.size()) {
            out += L'\uFFFD';  // a stray or cut-short sequence
            ++i;
            continue;
        }
        uint32_t c = extra == 0 ? b : extra == 1 ? (b & 0x1Fu) : extra == 2 ? (b & 0x0Fu) : (b & 0x07u);
        bool ok = true;
        for (int k = 1; k <= extra; ++k) {
            const auto next = static_cast<unsigned char>(utf8[i + static_cast<size_t>(k)]);
            if ((next & 0xC0) != 0x80) ok = false;
            c = (c << 6) | (next & 0x3Fu);
        }
        if (!ok) {
            out += L'\uFFFD';
            ++i;
            continue;
        }
        out += static_cast<wchar_t>(c);
        i += static_cast<size_t>(extra) + 1;
    }
    return out;
}

}  // namespace zqhost
