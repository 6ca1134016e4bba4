// The framework's wide string CStringW and the C runtime's wide formatting, with Microsoft's
// printf rules: in a wide format "%s" takes a wide string and "%S" a narrow one (the opposite
// of glibc), "%c"/"%C" likewise, "%ld"/"%lx" take 32-bit values (LONG is 32 bits).
#pragma once

#include <cstdarg>
#include <string>

#include "zqplatform/win/wintypes.h"

#if !defined(_WIN32)  // the C runtime of Windows has these
#define _TRUNCATE (static_cast<size_t>(-1))

extern "C" {
// Bounded formatting. With count == _TRUNCATE: writes at most sizeOfBuffer - 1 characters and
// the NUL; returns the length, or -1 when the text did not fit (the buffer then holds the
// truncated text). With another count: at most min(count, sizeOfBuffer - 1) characters.
// Returns -1 for a null buffer or format, a zero size, or an unconvertible argument.
ZQPLATFORM_API int _vsnwprintf_s(wchar_t* buffer, size_t sizeOfBuffer, size_t count, const wchar_t* format,
                                 va_list args);
ZQPLATFORM_API int _snwprintf_s(wchar_t* buffer, size_t sizeOfBuffer, size_t count, const wchar_t* format, ...);
ZQPLATFORM_API int swprintf_s(wchar_t* buffer, size_t sizeOfBuffer, const wchar_t* format, ...);
// Case-insensitive comparison as in the default "C" locale: ASCII letters fold, other
// characters compare by code.
ZQPLATFORM_API int _wcsicmp(const wchar_t* a, const wchar_t* b);
ZQPLATFORM_API int _wcsnicmp(const wchar_t* a, const wchar_t* b, size_t count);
// Splits a path into drive ("" on this platform), directory (with its trailing separator),
// file name and extension. Any output may be null with a size of 0. Returns 0 or EINVAL /
// ERANGE (outputs are then emptied).
ZQPLATFORM_API int _wsplitpath_s(const wchar_t* path, wchar_t* drive, size_t driveSize, wchar_t* dir,
                                 size_t dirSize, wchar_t* fname, size_t fnameSize, wchar_t* ext, size_t extSize);
}
#endif

namespace zqplatform {
// Formats with the Microsoft wide printf rules into out (at most outSize - 1 characters and a
// NUL when outSize > 0; out may be null when outSize is 0). Returns the full length of the
// text, whether or not it fitted, or -1 for a format that cannot be used ("%n", an unknown
// conversion). Narrow string arguments are converted by the C library's multibyte rules; a
// byte that does not convert stands for the character of the same code, as in the
// Microsoft "C" locale.
ZQPLATFORM_API long long FormatWide(wchar_t* out, size_t outSize, const wchar_t* format, va_list args);
}  // namespace zqplatform

// Wide string with value semantics.
class ZQPLATFORM_API CStringW {
public:
    typedef wchar_t XCHAR;
    typedef const wchar_t* PCXSTR;

    CStringW() = default;
    CStringW(const wchar_t* text);                  // NOLINT: implicit, as in the framework
    CStringW(const wchar_t* text, int length);
    CStringW(const char* narrow);                   // NOLINT: converted as by the C runtime
    CStringW(wchar_t ch, int repeat = 1);
    CStringW(const CStringW&) = default;
    CStringW(CStringW&&) noexcept = default;
    ~CStringW() = default;
    CStringW& operator=(const CStringW&) = default;
    CStringW& operator=(CStringW&&) noexcept = default;
    CStringW& operator=(const wchar_t* text);
    CStringW& operator=(const char* narrow);

    int GetLength() const { return static_cast<int>(m_str.size()); }
    bool IsEmpty() const { return m_str.empty(); }
    void Empty() { m_str.clear(); }
    const wchar_t* GetString() const { return m_str.c_str(); }
    operator const wchar_t*() const { return m_str.c_str(); }  // NOLINT: as in the framework
    wchar_t GetAt(int index) const;
    wchar_t operator[](int index) const { return GetAt(index); }
    void SetAt(int index, wchar_t ch);

    // Formats with the Microsoft rules; a text that cannot be formatted leaves the string empty.
    void Format(const wchar_t* format, ...);
    void FormatV(const wchar_t* format, va_list args);
    void AppendFormat(const wchar_t* format, ...);
    void Append(const wchar_t* text) { m_str.append(text ? text : L""); }

    CStringW& operator+=(const CStringW& other);
    CStringW& operator+=(const wchar_t* text);
    CStringW& operator+=(wchar_t ch);
    friend ZQPLATFORM_API CStringW operator+(const CStringW& a, const CStringW& b);
    friend ZQPLATFORM_API CStringW operator+(const CStringW& a, const wchar_t* b);
    friend ZQPLATFORM_API CStringW operator+(const wchar_t* a, const CStringW& b);

    int Compare(const wchar_t* other) const;
    int CompareNoCase(const wchar_t* other) const;
    friend bool operator==(const CStringW& a, const CStringW& b) { return a.m_str == b.m_str; }
    friend bool operator==(const CStringW& a, const wchar_t* b) { return a.Compare(b) == 0; }
    friend bool operator!=(const CStringW& a, const CStringW& b) { return !(a == b); }
    friend bool operator!=(const CStringW& a, const wchar_t* b) { return !(a == b); }
    friend bool operator<(const CStringW& a, const CStringW& b) { return a.m_str < b.m_str; }

    CStringW& MakeUpper();
    CStringW& MakeLower();
    int Replace(wchar_t oldCh, wchar_t newCh);
    int Replace(const wchar_t* oldText, const wchar_t* newText);
    int Find(wchar_t ch, int start = 0) const;
    int Find(const wchar_t* text, int start = 0) const;
    int ReverseFind(wchar_t ch) const;
    CStringW Left(int count) const;
    CStringW Right(int count) const;
    CStringW Mid(int first) const;
    CStringW Mid(int first, int count) const;
    CStringW& Trim();

    // Writable buffer of at least minLength characters; ReleaseBuffer(-1) takes the length
    // up to the first NUL.
    wchar_t* GetBuffer(int minLength = 0);
    void ReleaseBuffer(int newLength = -1);

    // UTF-8 form, for writing to files and streams.
    std::string ToUtf8() const;

private:
    std::wstring m_str;
};
