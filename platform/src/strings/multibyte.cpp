// MultiByteToWideChar over the platform's one UTF-8 conversion.
#include <cstring>
#include <cwchar>
#include <string>

#include "utf8.h"
#include "zqplatform/win/stringapiset.h"

extern "C" int MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                                   LPWSTR lpWideCharStr, int cchWideChar) {
    if (CodePage != CP_UTF8 || (dwFlags & ~static_cast<DWORD>(MB_ERR_INVALID_CHARS)) != 0 || lpMultiByteStr == nullptr ||
        cbMultiByte == 0 || cbMultiByte < -1 || cchWideChar < 0 || (lpWideCharStr == nullptr && cchWideChar != 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    // With -1 the NUL is part of the text, and so of the result.
    const size_t bytes = cbMultiByte == -1 ? std::strlen(lpMultiByteStr) + 1 : static_cast<size_t>(cbMultiByte);
    bool exact = true;
    const std::wstring wide =
        zqplatform::WideFromUtf8(std::string_view(lpMultiByteStr, bytes), zqplatform::BadUtf8::Replace, &exact);
    if (!exact && (dwFlags & MB_ERR_INVALID_CHARS) != 0) {
        SetLastError(ERROR_NO_UNICODE_TRANSLATION);
        return 0;
    }
    const int length = static_cast<int>(wide.size());
    if (cchWideChar == 0) return length;
    if (length > cchWideChar) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::wmemcpy(lpWideCharStr, wide.data(), wide.size());
    return length;
}
