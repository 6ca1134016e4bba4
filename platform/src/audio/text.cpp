// Text helpers of the virtual audio engine.
#include "text.h"

#include <cstdio>

namespace zqplatform::audio {

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
