// Microsoft wide printf rules and the bounded formatter's truncation contract.
#include <gtest/gtest.h>

#include <string>

#include "scoped_locale.h"
#include "zqPlatform.h"

namespace {

std::wstring Fmt(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    CStringW s;
    s.FormatV(format, args);
    va_end(args);
    return s.GetString();
}

// The widths and precisions the system formats with. The core's logging tests check %s, %S,
// %d, %i and an HRESULT's %x in whole log lines, and the bounded formatter's -1 for a text
// that does not fit.
TEST(WideFormat, WidthsAndPrecisionsFollowMicrosoftRules) {
    EXPECT_EQ(Fmt(L"%02x|%02X|%04X", 0xAu, 0xBu, 0xBEEFu), L"0a|0B|BEEF");
    EXPECT_EQ(Fmt(L"%.1f|%5.1f|%.2f %%", 2.06, -3.0, 0.125), L"2.1| -3.0|0.12 %");
}

TEST(WideFormat, NarrowBytesThatDoNotConvertStandForTheirCode) {
    // The "C" locale cannot convert 0xE9; the Microsoft runtime reads it as U+00E9.
    EXPECT_EQ(Fmt(L"%S", "caf\xE9"), std::wstring(L"caf") + wchar_t(0xE9));
    EXPECT_EQ(CStringW("x\xFFy").GetLength(), 3);
}

// Narrow text is UTF-8 on this platform: "%S" and CStringW's narrow constructor read it alike in
// the default "C" locale and in a UTF-8 one, and widths and precisions count characters.
TEST(WideFormat, NarrowUtf8ReadsAlikeInEveryLocale) {
    for (const char* name : zqtest::kHostLocales) {
        SCOPED_TRACE(name);
        const zqtest::ScopedLocale locale(name);
        if (!locale.Set()) continue;  // "C" is always there
        EXPECT_EQ(CStringW("Mikrofon S\xC3\xBC" "d"), CStringW(L"Mikrofon S\u00FCd"));
        EXPECT_EQ(Fmt(L"[%S]", "Lautsprecher (K\xC3\xBC" "che) \xF0\x9F\x8E\xA7"),
                  L"[Lautsprecher (K\u00FCche) \U0001F3A7]");
        EXPECT_EQ(Fmt(L"[%5.3S]", "S\xC3\xBC" "d!"), L"[  S\u00FCd]");
    }
}

// A finished text may be used as a format (the core logs its failure reports so): a stray
// '%' in it must fail the formatting, never write through an argument that is not there.
TEST(WideFormat, UnusableFormatsFail) {
    wchar_t buf[16];
    int n = 0;
    EXPECT_EQ(_snwprintf_s(buf, 16, _TRUNCATE, L"a%n", &n), -1);
    EXPECT_EQ(_snwprintf_s(buf, 16, _TRUNCATE, L"%Q"), -1);
    EXPECT_EQ(_snwprintf_s(buf, 16, _TRUNCATE, L"trailing %"), -1);
    EXPECT_EQ(buf[0], L'\0');
}

TEST(WideFormat, HugeFieldsAreBoundedNotCrashing) {
    wchar_t buf[32];
    EXPECT_EQ(_snwprintf_s(buf, 32, _TRUNCATE, L"%2000000000d", 1), -1);
    EXPECT_EQ(std::wstring(buf).size(), 31u);
    CStringW s;
    s.Format(L"%5000d", 1);
    EXPECT_EQ(s.GetLength(), 5000);
    EXPECT_EQ(s.Right(1), L"1");
}

TEST(CStringW, HasValueSemanticsAndTheFrameworksHelpers) {
    CStringW a(L"Hello");
    CStringW b = a;
    b += L", world";
    EXPECT_EQ(a, L"Hello");
    EXPECT_EQ(b, L"Hello, world");
    EXPECT_EQ(b.Find(L"world"), 7);
    EXPECT_EQ(CStringW(a).MakeUpper(), L"HELLO");
    EXPECT_EQ(CStringW(L"C:\\App\\").Replace(L'\\', L'/'), 2);
    EXPECT_EQ(CStringW(L"KESTRAVON").CompareNoCase(L"kestravon"), 0);
    EXPECT_NE(CStringW(L"\u00C9").CompareNoCase(L"\u00E9"), 0);  // only ASCII letters fold
    CStringW c;
    c.Format(L"%s-%d", L"x", 1);
    EXPECT_EQ(c, L"x-1");
    EXPECT_TRUE(CStringW(static_cast<const wchar_t*>(nullptr)).IsEmpty());
}

// As the host finds its folder: drive and directory only, of the module's path.
TEST(SplitPath, SeparatesDriveAndDirectory) {
    wchar_t drive[3], dir[256];
    ASSERT_EQ(_wsplitpath_s(L"/opt/app/zqmonitor.bin", drive, 3, dir, 256, nullptr, 0, nullptr, 0), 0);
    EXPECT_STREQ(drive, L"");
    EXPECT_STREQ(dir, L"/opt/app/");
    EXPECT_EQ(_wsplitpath_s(L"/a/very/long/dir/", drive, 3, dir, 4, nullptr, 0, nullptr, 0), ERANGE);
    EXPECT_STREQ(dir, L"");
}

}  // namespace
