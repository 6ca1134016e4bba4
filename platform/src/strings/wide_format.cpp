// Wide formatting with the Microsoft printf rules, written out here because the C library's
// wide printf reads "%s" as a narrow string and stops at the first unconvertible byte.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include <string>

#include "utf8.h"
#include "zqplatform/win/wstring.h"

namespace {

using zqplatform::BadUtf8;
using zqplatform::WideFromUtf8;

// Collects output up to a capacity and counts everything, so one pass both writes and measures.
class Sink {
public:
    Sink(wchar_t* out, size_t capacity) : m_out(out), m_capacity(capacity) {}
    void Put(wchar_t ch) {
        if (m_out != nullptr && m_count + 1 < m_capacity) m_out[m_count] = ch;
        ++m_count;
    }
    void Repeat(wchar_t ch, long long n) {
        for (long long i = 0; i < n; ++i) Put(ch);
    }
    void Terminate() {
        if (m_out == nullptr || m_capacity == 0) return;
        m_out[m_count < m_capacity ? m_count : m_capacity - 1] = L'\0';
    }
    long long Count() const { return static_cast<long long>(m_count); }

private:
    wchar_t* m_out;
    size_t m_capacity;
    size_t m_count = 0;
};

enum class Length { None, Short, Char, Long, LongLong, Size, IntMax, PtrDiff, Wide, LongDouble };

struct Conversion {
    bool leftAlign = false;
    char flags[8] = {};
    int flagCount = 0;
    int width = -1;
    int precision = -1;
    Length length = Length::None;
    wchar_t conversion = 0;
};

// Values of width and precision are capped so that a hostile format cannot ask for gigabytes.
constexpr int kMaxField = 1 << 20;

int ReadNumber(const wchar_t*& p) {
    long long value = 0;
    while (*p >= L'0' && *p <= L'9') {
        value = value * 10 + (*p - L'0');
        if (value > kMaxField) value = kMaxField;
        ++p;
    }
    return static_cast<int>(value);
}

bool ParseConversion(const wchar_t*& p, Conversion& conv, va_list& args) {
    for (;; ++p) {
        if (*p == L'-') conv.leftAlign = true;
        else if (*p == L'+' || *p == L' ' || *p == L'#' || *p == L'0') {
            if (conv.flagCount < 6) conv.flags[conv.flagCount++] = static_cast<char>(*p);
        } else break;
    }
    if (*p == L'*') {
        int w = va_arg(args, int);
        if (w < 0) {
            conv.leftAlign = true;
            w = w == INT_MIN ? kMaxField : -w;
        }
        conv.width = w > kMaxField ? kMaxField : w;
        ++p;
    } else if (*p >= L'0' && *p <= L'9') {
        conv.width = ReadNumber(p);
    }
    if (*p == L'.') {
        ++p;
        if (*p == L'*') {
            int prec = va_arg(args, int);
            conv.precision = prec < 0 ? -1 : (prec > kMaxField ? kMaxField : prec);
            ++p;
        } else {
            conv.precision = ReadNumber(p);
        }
    }
    switch (*p) {
        case L'h':
            ++p;
            conv.length = Length::Short;
            if (*p == L'h') { conv.length = Length::Char; ++p; }
            break;
        case L'l':
            ++p;
            conv.length = Length::Long;
            if (*p == L'l') { conv.length = Length::LongLong; ++p; }
            break;
        case L'w': ++p; conv.length = Length::Wide; break;
        case L'L': ++p; conv.length = Length::LongDouble; break;
        case L'j': ++p; conv.length = Length::IntMax; break;
        case L'z': ++p; conv.length = Length::Size; break;
        case L't': ++p; conv.length = Length::PtrDiff; break;
        case L'I':
            ++p;
            if (p[0] == L'6' && p[1] == L'4') { conv.length = Length::LongLong; p += 2; }
            else if (p[0] == L'3' && p[1] == L'2') { conv.length = Length::None; p += 2; }
            else conv.length = Length::Size;
            break;
        default: break;
    }
    conv.conversion = *p;
    if (*p != L'\0') ++p;
    return true;
}

void Pad(Sink& sink, const Conversion& conv, long long contentLength, bool before) {
    if (conv.width <= contentLength || conv.leftAlign == before) return;
    sink.Repeat(L' ', conv.width - contentLength);
}

void PutWideString(Sink& sink, const Conversion& conv, const wchar_t* s) {
    if (s == nullptr) s = L"(null)";
    long long len = static_cast<long long>(std::wcslen(s));
    if (conv.precision >= 0 && conv.precision < len) len = conv.precision;
    Pad(sink, conv, len, true);
    for (long long i = 0; i < len; ++i) sink.Put(s[i]);
    Pad(sink, conv, len, false);
}

// Narrow text is UTF-8 on this platform, whatever the C library's locale; a byte that does not
// decode stands for the character of its code, as the Microsoft "C" locale reads it.
void PutNarrowString(Sink& sink, const Conversion& conv, const char* s) {
    if (s == nullptr) s = "(null)";
    const std::wstring wide = WideFromUtf8(s, BadUtf8::Keep);
    PutWideString(sink, conv, wide.c_str());
}

void PutChar(Sink& sink, const Conversion& conv, wchar_t ch) {
    Pad(sink, conv, 1, true);
    sink.Put(ch);
    Pad(sink, conv, 1, false);
}

// Numbers go through the C library's narrow formatter, one conversion at a time. The format is
// built here from a parsed, validated conversion, so it is not a literal by design.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename T>
void PutNumber(Sink& sink, const Conversion& conv, const char* lengthText, char conversion, T value) {
    char format[32];
    int n = 0;
    format[n++] = '%';
    if (conv.leftAlign) format[n++] = '-';
    for (int i = 0; i < conv.flagCount; ++i) format[n++] = conv.flags[i];
    format[n++] = '*';
    format[n++] = '.';
    format[n++] = '*';
    for (const char* l = lengthText; *l; ++l) format[n++] = *l;
    format[n++] = conversion;
    format[n] = '\0';
    int width = conv.width < 0 ? 0 : conv.width;
    char small[128];
    int needed = std::snprintf(small, sizeof small, format, width, conv.precision, value);
    if (needed < 0) return;
    if (static_cast<size_t>(needed) < sizeof small) {
        for (int i = 0; i < needed; ++i) sink.Put(static_cast<unsigned char>(small[i]));
        return;
    }
    // Only a very wide field gets here; it is rare enough to allocate.
    std::string big(static_cast<size_t>(needed) + 1, '\0');
    std::snprintf(big.data(), big.size(), format, width, conv.precision, value);
    for (int i = 0; i < needed; ++i) sink.Put(static_cast<unsigned char>(big[static_cast<size_t>(i)]));
}
#pragma GCC diagnostic pop

bool PutInteger(Sink& sink, const Conversion& conv, char conversion, va_list& args) {
    const bool isSigned = conversion == 'd' || conversion == 'i';
    switch (conv.length) {
        case Length::LongLong:
        case Length::IntMax:
            if (isSigned) PutNumber(sink, conv, "ll", conversion, va_arg(args, long long));
            else PutNumber(sink, conv, "ll", conversion, va_arg(args, unsigned long long));
            return true;
        case Length::Size:
        case Length::PtrDiff:
            if (isSigned) PutNumber(sink, conv, "ll", conversion, static_cast<long long>(va_arg(args, intptr_t)));
            else PutNumber(sink, conv, "ll", conversion, static_cast<unsigned long long>(va_arg(args, uintptr_t)));
            return true;
        case Length::Short:
            PutNumber(sink, conv, "h", conversion, va_arg(args, int));
            return true;
        case Length::Char:
            PutNumber(sink, conv, "hh", conversion, va_arg(args, int));
            return true;
        default:
            // "%ld" is 32 bits wide on Windows, and so is every LONG the system passes.
            if (isSigned) PutNumber(sink, conv, "", conversion, va_arg(args, int));
            else PutNumber(sink, conv, "", conversion, va_arg(args, unsigned int));
            return true;
    }
}

bool FormatOne(Sink& sink, Conversion& conv, va_list& args) {
    const bool narrowSide = conv.length == Length::Short || conv.length == Length::Char;
    const bool wideSide = conv.length == Length::Long || conv.length == Length::Wide;
    switch (conv.conversion) {
        case L's':
            if (narrowSide) PutNarrowString(sink, conv, va_arg(args, const char*));
            else PutWideString(sink, conv, va_arg(args, const wchar_t*));
            return true;
        case L'S':
            if (wideSide) PutWideString(sink, conv, va_arg(args, const wchar_t*));
            else PutNarrowString(sink, conv, va_arg(args, const char*));
            return true;
        case L'c':
            if (narrowSide) {
                unsigned char byte = static_cast<unsigned char>(va_arg(args, int));
                PutChar(sink, conv, static_cast<wchar_t>(byte));
            } else {
                PutChar(sink, conv, static_cast<wchar_t>(va_arg(args, int)));
            }
            return true;
        case L'C':
            if (wideSide) {
                PutChar(sink, conv, static_cast<wchar_t>(va_arg(args, int)));
            } else {
                unsigned char byte = static_cast<unsigned char>(va_arg(args, int));
                PutChar(sink, conv, static_cast<wchar_t>(byte));
            }
            return true;
        case L'd': case L'i': case L'u': case L'x': case L'X': case L'o':
            return PutInteger(sink, conv, static_cast<char>(conv.conversion), args);
        case L'e': case L'E': case L'f': case L'F': case L'g': case L'G': case L'a': case L'A':
            // Windows' long double is a double, so "%Lf" takes a double too.
            PutNumber(sink, conv, "", static_cast<char>(conv.conversion), va_arg(args, double));
            return true;
        case L'p':
            conv.flagCount = 0;
            PutNumber(sink, conv, "", 'p', va_arg(args, void*));
            return true;
        default:
            return false;  // "%n", "%Z", an unknown or a missing conversion
    }
}

}  // namespace

namespace zqplatform {

long long FormatWide(wchar_t* out, size_t outSize, const wchar_t* format, va_list args) {
    Sink sink(out, outSize);
    if (format == nullptr) {
        sink.Terminate();
        return -1;
    }
    va_list ap;
    va_copy(ap, args);
    long long result = 0;
    for (const wchar_t* p = format; *p != L'\0';) {
        if (*p != L'%') {
            sink.Put(*p++);
            continue;
        }
        ++p;
        if (*p == L'%') {
            sink.Put(*p++);
            continue;
        }
        Conversion conv;
        ParseConversion(p, conv, ap);
        if (!FormatOne(sink, conv, ap)) {
            result = -1;
            break;
        }
    }
    va_end(ap);
    sink.Terminate();
    return result < 0 ? -1 : sink.Count();
}

}  // namespace zqplatform

#if !defined(_WIN32)  // the C runtime of Windows has these
extern "C" {

int _vsnwprintf_s(wchar_t* buffer, size_t sizeOfBuffer, size_t count, const wchar_t* format, va_list args) {
    if (buffer == nullptr || sizeOfBuffer == 0 || format == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const size_t limit = count == _TRUNCATE ? sizeOfBuffer : (count + 1 < sizeOfBuffer ? count + 1 : sizeOfBuffer);
    const long long length = zqplatform::FormatWide(buffer, limit, format, args);
    if (length < 0) {
        buffer[0] = L'\0';
        errno = EINVAL;
        return -1;
    }
    if (static_cast<unsigned long long>(length) >= limit) {
        if (count != _TRUNCATE && count >= sizeOfBuffer) buffer[0] = L'\0';  // too small: no text at all
        return -1;
    }
    return static_cast<int>(length);
}

int _snwprintf_s(wchar_t* buffer, size_t sizeOfBuffer, size_t count, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    int r = _vsnwprintf_s(buffer, sizeOfBuffer, count, format, args);
    va_end(args);
    return r;
}

int swprintf_s(wchar_t* buffer, size_t sizeOfBuffer, const wchar_t* format, ...) {
    if (buffer == nullptr || sizeOfBuffer == 0 || format == nullptr) {
        errno = EINVAL;
        return -1;
    }
    va_list args;
    va_start(args, format);
    const long long length = zqplatform::FormatWide(buffer, sizeOfBuffer, format, args);
    va_end(args);
    // Unlike the truncating form, a text that does not fit leaves nothing at all.
    if (length < 0 || static_cast<unsigned long long>(length) >= sizeOfBuffer) {
        buffer[0] = L'\0';
        errno = length < 0 ? EINVAL : ERANGE;
        return -1;
    }
    return static_cast<int>(length);
}

int _wcsicmp(const wchar_t* a, const wchar_t* b) { return _wcsnicmp(a, b, static_cast<size_t>(-1)); }

int _wcsnicmp(const wchar_t* a, const wchar_t* b, size_t count) {
    if (a == nullptr || b == nullptr) {
        errno = EINVAL;
        return INT_MAX;
    }
    auto fold = [](wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c - L'A' + L'a') : c; };
    for (size_t i = 0; i < count; ++i) {
        const wchar_t ca = fold(a[i]);
        const wchar_t cb = fold(b[i]);
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca == L'\0') return 0;
    }
    return 0;
}

}  // extern "C"
#endif
