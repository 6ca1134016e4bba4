// Str2Guid: a GUID from its registry spelling, as found in device instance values.
#include "zqplatform/zqSystem.h"

namespace {

constexpr int kGuidChars = 36;  // 8-4-4-4-12 hex digits with four dashes

int HexValue(wchar_t ch) {
    if (ch >= L'0' && ch <= L'9') return ch - L'0';
    if (ch >= L'a' && ch <= L'f') return ch - L'a' + 10;
    if (ch >= L'A' && ch <= L'F') return ch - L'A' + 10;
    return -1;
}

// Reads digits hex digits at text[pos]; false at the first character that is not one.
bool ReadHex(const wchar_t* text, int pos, int digits, uint64_t& value) {
    value = 0;
    for (int i = 0; i < digits; ++i) {
        const int v = HexValue(text[pos + i]);
        if (v < 0) return false;
        value = (value << 4) | static_cast<uint64_t>(v);
    }
    return true;
}

}  // namespace

GUID Str2Guid(CStringW strGuid) {
    const wchar_t* text = strGuid.GetString();
    int length = strGuid.GetLength();
    // Braces are optional, but only as a pair around the whole text.
    if (length == kGuidChars + 2 && text[0] == L'{' && text[length - 1] == L'}') {
        ++text;
        length -= 2;
    }
    if (length != kGuidChars) return GUID_NULL;
    for (int dash : {8, 13, 18, 23}) {
        if (text[dash] != L'-') return GUID_NULL;
    }

    GUID guid = GUID_NULL;
    uint64_t value = 0;
    if (!ReadHex(text, 0, 8, value)) return GUID_NULL;
    guid.Data1 = static_cast<uint32_t>(value);
    if (!ReadHex(text, 9, 4, value)) return GUID_NULL;
    guid.Data2 = static_cast<uint16_t>(value);
    if (!ReadHex(text, 14, 4, value)) return GUID_NULL;
    guid.Data3 = static_cast<uint16_t>(value);
    // The last two groups are the eight bytes of Data4 in text order.
    const int bytePos[8] = {19, 21, 24, 26, 28, 30, 32, 34};
    for (int i = 0; i < 8; ++i) {
        if (!ReadHex(text, bytePos[i], 2, value)) return GUID_NULL;
        guid.Data4[i] = static_cast<uint8_t>(value);
    }
    return guid;
}
