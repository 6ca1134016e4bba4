// Text helpers of the virtual audio engine.
#include "text.h"

#include <cstdio>

namespace zqplatform::audio {

std::wstring WideFromUtf8(std::string_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        int extra = 0;
        char32_t code = lead;
        if (lead >= 0xF0 && lead < 0xF8) {
            extra = 3;
            code = lead & 0x07u;
        } else if (lead >= 0xE0) {
            extra = lead < 0xF0 ? 2 : -1;
            code = lead & 0x0Fu;
        } else if (lead >= 0xC0) {
            extra = 1;
            code = lead & 0x1Fu;
        } else if (lead >= 0x80) {
            extra = -1;  // a continuation byte where a character should start
        }
        if (extra < 0 || i + static_cast<size_t>(extra) >= text.size()) {
            out.push_back(L'\uFFFD');  // malformed: one replacement character per bad byte
            ++i;
            continue;
        }
        bool ok = true;
        for (int k = 1; k <= extra; ++k) {
            const auto next = static_cast<unsigned char>(text[i + static_cast<size_t>(k)]);
            if ((next & 0xC0u) != 0x80u) {
                ok = false;
                break;
            }
            code = (code << 6) | (next & 0x3Fu);
        }
        if (!ok) {
            out.push_back(L'\uFFFD');
            ++i;
            continue;
        }
        out.push_back(static_cast<wchar_t>(code));  // wchar_t holds UTF-32 here
        i += static_cast<size_t>(extra) + 1;
    }
    return out;
}

std::string Utf8FromWide(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (const wchar_t ch : text) {
        const auto code = static_cast<char32_t>(ch);
        if (code < 0x80) {
            out.push_back(static_cast<char>(code));
        } else if (code < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (code >> 6)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else if (code < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (code >> 12)));
            out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (code >> 18)));
            out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        }
    }
    return out;
}

std::wstring GuidText(const GUID& guid) {
    char text[40];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1,
                  static_cast<unsigned>(guid.Data2), static_cast<unsigned>(guid.Data3),
                  static_cast<unsigned>(guid.Data4[0]), static_cast<unsigned>(guid.Data4[1]),
                  static_cast<unsigned>(guid.Data4[2]), static_cast<unsigned>(guid.Data4[3]),
                  static_cast<unsigned>(guid.Data4[4]), static_cast<unsigned>(guid.Data4[5]),
                  static_cast<unsigned>(guid.Data4[6]), static_cast<unsigned>(guid.Data4[7]));
    return WideFromUtf8(text);
}

std::optional<GUID> ParseGuid(std::string_view text) {
    if (text.size() == 38 && text.front() == '{' && text.back() == '}') text = text.substr(1, 36);
    if (text.size() != 36) return std::nullopt;
    uint8_t bytes[16];
    size_t n = 0;
    for (size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        int value = 0;
        for (int k = 0; k < 2; ++k) {
            const char c = text[i + static_cast<size_t>(k)];
            int digit;
            if (c >= '0' && c <= '9')
                digit = c - '0';
            else if (c >= 'a' && c <= 'f')
                digit = c - 'a' + 10;
            else if (c >= 'A' && c <= 'F')
                digit = c - 'A' + 10;
            else
                return std::nullopt;
            value = value * 16 + digit;
        }
        bytes[n++] = static_cast<uint8_t>(value);
        i += 2;
    }
    GUID guid{};
    guid.Data1 = (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) | (uint32_t{bytes[2]} << 8) | bytes[3];
    guid.Data2 = static_cast<uint16_t>((bytes[4] << 8) | bytes[5]);
    guid.Data3 = static_cast<uint16_t>((bytes[6] << 8) | bytes[7]);
    for (int k = 0; k < 8; ++k) guid.Data4[k] = bytes[8 + k];
    return guid;
}

LPWSTR TaskMemCopy(std::wstring_view text) {
    auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t)));
    if (copy == nullptr) return nullptr;
    text.copy(copy, text.size());
    copy[text.size()] = L'\0';
    return copy;
}

}  // namespace zqplatform::audio
