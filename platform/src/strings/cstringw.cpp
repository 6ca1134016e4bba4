// CStringW: the framework's wide string with value semantics.
#include <algorithm>
#include <cerrno>
#include <climits>

#include "utf8.h"
#include "zqplatform/win/wstring.h"

namespace {

std::wstring WidenNarrow(const char* narrow) {
    std::wstring out;
    if (narrow == nullptr) return out;
    // The same conversion as "%S", so a narrow text reads alike either way.
    struct Args {
        static long long Run(wchar_t* dst, size_t size, const char* s, ...) {
            va_list ap;
            va_start(ap, s);
            long long n = zqplatform::FormatWide(dst, size, L"%S", ap);
            va_end(ap);
            return n;
        }
    };
    long long n = Args::Run(nullptr, 0, narrow, narrow);
    if (n <= 0) return out;
    out.resize(static_cast<size_t>(n) + 1);
    Args::Run(out.data(), out.size(), narrow, narrow);
    out.resize(static_cast<size_t>(n));
    return out;
}

wchar_t FoldUpper(wchar_t c) { return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - L'a' + L'A') : c; }
wchar_t FoldLower(wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c - L'A' + L'a') : c; }

}  // namespace

CStringW::CStringW(const wchar_t* text) : m_str(text ? text : L"") {}
CStringW::CStringW(const wchar_t* text, int length) {
    if (text != nullptr && length > 0) m_str.assign(text, static_cast<size_t>(length));
}
CStringW::CStringW(const char* narrow) : m_str(WidenNarrow(narrow)) {}
CStringW::CStringW(wchar_t ch, int repeat) {
    if (repeat > 0) m_str.assign(static_cast<size_t>(repeat), ch);
}

CStringW& CStringW::operator=(const wchar_t* text) {
    m_str = text ? text : L"";
    return *this;
}
CStringW& CStringW::operator=(const char* narrow) {
    m_str = WidenNarrow(narrow);
    return *this;
}

wchar_t CStringW::GetAt(int index) const {
    return (index >= 0 && index < GetLength()) ? m_str[static_cast<size_t>(index)] : L'\0';
}
void CStringW::SetAt(int index, wchar_t ch) {
    if (index >= 0 && index < GetLength()) m_str[static_cast<size_t>(index)] = ch;
}

void CStringW::Format(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    FormatV(format, args);
    va_end(args);
}

void CStringW::FormatV(const wchar_t* format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    long long n = zqplatform::FormatWide(nullptr, 0, format, measure);
    va_end(measure);
    if (n <= 0 || n > INT_MAX / 4) {
        m_str.clear();
        return;
    }
    std::wstring text(static_cast<size_t>(n) + 1, L'\0');
    va_list write;
    va_copy(write, args);
    zqplatform::FormatWide(text.data(), text.size(), format, write);
    va_end(write);
    text.resize(static_cast<size_t>(n));
    m_str.swap(text);
}

void CStringW::AppendFormat(const wchar_t* format, ...) {
    CStringW tail;
    va_list args;
    va_start(args, format);
    tail.FormatV(format, args);
    va_end(args);
    m_str += tail.m_str;
}

CStringW& CStringW::operator+=(const CStringW& other) {
    m_str += other.m_str;
    return *this;
}
CStringW& CStringW::operator+=(const wchar_t* text) {
    m_str += text ? text : L"";
    return *this;
}
CStringW& CStringW::operator+=(wchar_t ch) {
    m_str += ch;
    return *this;
}
CStringW operator+(const CStringW& a, const CStringW& b) {
    CStringW r(a);
    r += b;
    return r;
}
CStringW operator+(const CStringW& a, const wchar_t* b) {
    CStringW r(a);
    r += b;
    return r;
}
CStringW operator+(const wchar_t* a, const CStringW& b) {
    CStringW r(a);
    r += b;
    return r;
}

int CStringW::Compare(const wchar_t* other) const {
    int c = std::wcscmp(m_str.c_str(), other ? other : L"");
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}
int CStringW::CompareNoCase(const wchar_t* other) const { return _wcsicmp(m_str.c_str(), other ? other : L""); }

CStringW& CStringW::MakeUpper() {
    std::transform(m_str.begin(), m_str.end(), m_str.begin(), FoldUpper);
    return *this;
}
CStringW& CStringW::MakeLower() {
    std::transform(m_str.begin(), m_str.end(), m_str.begin(), FoldLower);
    return *this;
}

int CStringW::Replace(wchar_t oldCh, wchar_t newCh) {
    int n = 0;
    for (auto& c : m_str) {
        if (c == oldCh) {
            c = newCh;
            ++n;
        }
    }
    return n;
}
int CStringW::Replace(const wchar_t* oldText, const wchar_t* newText) {
    if (oldText == nullptr || *oldText == L'\0') return 0;
    const std::wstring from(oldText);
    const std::wstring to(newText ? newText : L"");
    int n = 0;
    for (size_t pos = m_str.find(from); pos != std::wstring::npos; pos = m_str.find(from, pos + to.size())) {
        m_str.replace(pos, from.size(), to);
        ++n;
    }
    return n;
}

int CStringW::Find(wchar_t ch, int start) const {
    if (start < 0 || start >= GetLength()) return -1;
    size_t pos = m_str.find(ch, static_cast<size_t>(start));
    return pos == std::wstring::npos ? -1 : static_cast<int>(pos);
}
int CStringW::Find(const wchar_t* text, int start) const {
    if (text == nullptr || start < 0 || start > GetLength()) return -1;
    size_t pos = m_str.find(text, static_cast<size_t>(start));
    return pos == std::wstring::npos ? -1 : static_cast<int>(pos);
}
int CStringW::ReverseFind(wchar_t ch) const {
    size_t pos = m_str.rfind(ch);
    return pos == std::wstring::npos ? -1 : static_cast<int>(pos);
}

CStringW CStringW::Left(int count) const {
    count = std::clamp(count, 0, GetLength());
    return CStringW(m_str.c_str(), count);
}
CStringW CStringW::Right(int count) const {
    count = std::clamp(count, 0, GetLength());
    return CStringW(m_str.c_str() + (GetLength() - count), count);
}
CStringW CStringW::Mid(int first) const { return Mid(first, INT_MAX); }
CStringW CStringW::Mid(int first, int count) const {
    first = std::clamp(first, 0, GetLength());
    count = std::clamp(count, 0, GetLength() - first);
    return CStringW(m_str.c_str() + first, count);
}

CStringW& CStringW::Trim() {
    auto blank = [](wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; };
    size_t b = 0;
    while (b < m_str.size() && blank(m_str[b])) ++b;
    size_t e = m_str.size();
    while (e > b && blank(m_str[e - 1])) --e;
    m_str = m_str.substr(b, e - b);
    return *this;
}

wchar_t* CStringW::GetBuffer(int minLength) {
    if (minLength > GetLength()) m_str.resize(static_cast<size_t>(minLength), L'\0');
    return m_str.data();
}
void CStringW::ReleaseBuffer(int newLength) {
    if (newLength < 0) {
        m_str.resize(std::wcslen(m_str.c_str()));
    } else if (newLength <= GetLength()) {
        m_str.resize(static_cast<size_t>(newLength));
    }
}

std::string CStringW::ToUtf8() const { return zqplatform::Utf8FromWide(m_str); }

#if !defined(_WIN32)  // the C runtime of Windows has it
extern "C" int _wsplitpath_s(const wchar_t* path, wchar_t* drive, size_t driveSize, wchar_t* dir, size_t dirSize,
                             wchar_t* fname, size_t fnameSize, wchar_t* ext, size_t extSize) {
    auto clearAll = [&] {
        if (drive && driveSize) drive[0] = L'\0';
        if (dir && dirSize) dir[0] = L'\0';
        if (fname && fnameSize) fname[0] = L'\0';
        if (ext && extSize) ext[0] = L'\0';
    };
    if (path == nullptr || (drive == nullptr) != (driveSize == 0) || (dir == nullptr) != (dirSize == 0) ||
        (fname == nullptr) != (fnameSize == 0) || (ext == nullptr) != (extSize == 0)) {
        clearAll();
        return EINVAL;
    }
    const std::wstring p(path);
    size_t driveLen = 0;
    if (p.size() >= 2 && p[1] == L':') driveLen = 2;  // a Windows drive letter, kept if given
    const size_t lastSep = p.find_last_of(L"/\\");
    const size_t dirEnd = (lastSep == std::wstring::npos || lastSep < driveLen) ? driveLen : lastSep + 1;
    const std::wstring nameAndExt = p.substr(dirEnd);
    const size_t dot = nameAndExt.rfind(L'.');
    const std::wstring parts[4] = {p.substr(0, driveLen), p.substr(driveLen, dirEnd - driveLen),
                                   dot == std::wstring::npos ? nameAndExt : nameAndExt.substr(0, dot),
                                   dot == std::wstring::npos ? std::wstring() : nameAndExt.substr(dot)};
    wchar_t* outs[4] = {drive, dir, fname, ext};
    const size_t sizes[4] = {driveSize, dirSize, fnameSize, extSize};
    for (int i = 0; i < 4; ++i) {
        if (outs[i] != nullptr && parts[i].size() >= sizes[i]) {
            clearAll();
            return ERANGE;
        }
    }
    for (int i = 0; i < 4; ++i) {
        if (outs[i] != nullptr) std::wmemcpy(outs[i], parts[i].c_str(), parts[i].size() + 1);
    }
    return 0;
}
#endif
