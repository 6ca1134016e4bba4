#include "text.h"

#include <cstdint>

namespace zqhost {

std::string Utf8(const wchar_t* text) {
    std::string out;
    if (text == nullptr) return out;
    for (; *text != L'\0'; ++text) {
        uint32_t c = static_cast<uint32_t>(*text);
        // Surrogate pairs, should a 16-bit text ever reach here.
        if (c >= 0xD800 && c <= 0xDBFF && text[1] >= 0xDC00 && text[1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<uint32_t>(text[1]) - 0xDC00);
            ++text;
        }
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

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
