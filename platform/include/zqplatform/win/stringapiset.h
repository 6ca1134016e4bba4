// MultiByteToWideChar: narrow text to wide text by a named code page. Narrow text on this
// platform is UTF-8, so the one code page served is CP_UTF8.
#pragma once

#include "zqplatform/win/wintypes.h"

#define CP_UTF8 65001
#define MB_ERR_INVALID_CHARS 0x00000008
#define ERROR_NO_UNICODE_TRANSLATION 1113L

extern "C" {
// As on Windows: cbMultiByte -1 takes the text up to and with its NUL; cchWideChar 0 asks for
// the length needed. Returns the characters written (or needed), or 0 with the last error:
// ERROR_INVALID_PARAMETER (another code page, flags other than MB_ERR_INVALID_CHARS, a null
// text, or a null buffer with a length), ERROR_INSUFFICIENT_BUFFER, or, with
// MB_ERR_INVALID_CHARS, ERROR_NO_UNICODE_TRANSLATION for bytes that are not UTF-8 (without
// it each such byte becomes U+FFFD).
ZQPLATFORM_API int MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                                       LPWSTR lpWideCharStr, int cchWideChar);
}
