// Microsoft wide printf rules and the bounded formatter's truncation contract.
#include <gtest/gtest.h>

#include <string>

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

TEST(WideFormat, StringConversionsFollowMicrosoftRules) {
    EXPECT_EQ(Fmt(L"id: %s", L"{0.0.1.00000000}.{abc}"), L"id: {0.0.1.00000000}.{abc}");
    EXPECT_EQ(Fmt(L"[%S]", "narrow"), L"[narrow]");
    EXPECT_EQ(Fmt(L"%hs|%ls|%ws", "h", L"l", L"w"), L"h|l|w");
    EXPECT_EQ(Fmt(L"%c%C%lc%hc", L'W', 'n', L'x', 'y'), L"Wnxy");
    EXPECT_EQ(Fmt(L"%-6s|%6s|%.2s", L"ab", L"cd", L"efgh"), L"ab    |    cd|ef");
    EXPECT_EQ(Fmt(L"%s", static_cast<const wchar_t*>(nullptr)), L"(null)");
}

TEST(WideFormat, IntegersAre32BitAsOnWindows) {
    EXPECT_EQ(Fmt(L"%x", static_cast<HRESULT>(0x88890004u)), L"88890004");
    EXPECT_EQ(Fmt(L"%d %i %u", -5, 7, 4000000000u), L"-5 7 4000000000");
    EXPECT_EQ(Fmt(L"%ld %lx", static_cast<LONG>(-1), static_cast<LONG>(-1)), L"-1 ffffffff");
    EXPECT_EQ(Fmt(L"%I64d %lld %I64x", -1234567890123LL, 9000000000LL, 0x1122334455ULL),
              L"-1234567890123 9000000000 1122334455");
    EXPECT_EQ(Fmt(L"%08X|%-4d|%+d|%*d|%.*d", 0xBEEFu, 3, 3, 5, 42, 4, 7), L"0000BEEF|3   |+3|   42|0007");
    EXPECT_EQ(Fmt(L"%.2f %%", 0.125), L"0.12 %");
}

TEST(WideFormat, NarrowBytesThatDoNotConvertStandForTheirCode) {
    // The "C" locale cannot convert 0xE9; the Microsoft runtime reads it as U+00E9.
    EXPECT_EQ(Fmt(L"%S", "caf\xE9"), std::wstring(L"caf") + wchar_t(0xE9));
    EXPECT_EQ(CStringW("x\xFFy").GetLength(), 3);
}

TEST(WideFormat, UnusableFormatsFail) {
    wchar_t buf[16];
    int n = 0;
    EXPECT_EQ(_snwprintf_s(buf, 16, _TRUNCATE, L"a%n", &n), -1);
    EXPECT_EQ(_snwprintf_s(buf, 16, _TRUNCATE, L"%Q"), -1);
    EXPECT_EQ(_snwprintf_s(buf, 16, _TRUNCATE, L"trailing %"), -1);
    EXPECT_EQ(buf[0], L'\0');
    EXPECT_EQ(_snwprintf_s(nullptr, 16, _TRUNCATE, L"x"), -1);
    EXPECT_EQ(_snwprintf_s(buf, 0, _TRUNCATE, L"x"), -1);
    EXPECT_EQ(Fmt(L"%Q"), L"");
}

TEST(WideFormat, TruncateKeepsWhatFitsAndReportsMinusOne) {
    wchar_t buf[8];
    EXPECT_EQ(_snwprintf_s(buf, 8, _TRUNCATE, L"%s", L"1234567"), 7);
    EXPECT_STREQ(buf, L"1234567");
    EXPECT_EQ(_snwprintf_s(buf, 8, _TRUNCATE, L"%s", L"12345678"), -1);
    EXPECT_STREQ(buf, L"1234567");  // truncated and terminated
    EXPECT_EQ(_snwprintf_s(buf, 8, 3, L"%s", L"abcdef"), -1);
    EXPECT_STREQ(buf, L"abc");
    EXPECT_EQ(swprintf_s(buf, 8, L"%d", 12345678), -1);
    EXPECT_STREQ(buf, L"");  // swprintf_s leaves nothing of a text that does not fit
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
    EXPECT_EQ(b.Left(5).MakeUpper(), L"HELLO");
    EXPECT_EQ(b.Mid(7, 100), L"world");
    EXPECT_EQ(b.Right(99), b);
    EXPECT_EQ(CStringW(L"C:\\App\\").Replace(L'\\', L'/'), 2);
    EXPECT_EQ(CStringW(L"KESTRAVON").CompareNoCase(L"kestravon"), 0);
    EXPECT_NE(CStringW(L"\u00C9").CompareNoCase(L"\u00E9"), 0);  // only ASCII letters fold
    CStringW c;
    c.Format(L"%s-%d", L"x", 1);
    c.AppendFormat(L"+%S", "y");
    EXPECT_EQ(c, L"x-1+y");
    EXPECT_TRUE(CStringW(static_cast<const wchar_t*>(nullptr)).IsEmpty());
}

TEST(SplitPath, SeparatesDirectoryNameAndExtension) {
    wchar_t drive[3], dir[256], name[64], ext[16];
    ASSERT_EQ(_wsplitpath_s(L"/opt/app/zqmonitor.bin", drive, 3, dir, 256, name, 64, ext, 16), 0);
    EXPECT_STREQ(drive, L"");
    EXPECT_STREQ(dir, L"/opt/app/");
    EXPECT_STREQ(name, L"zqmonitor");
    EXPECT_STREQ(ext, L".bin");
    ASSERT_EQ(_wsplitpath_s(L"C:\\App\\host.exe", drive, 3, dir, 256, nullptr, 0, nullptr, 0), 0);
    EXPECT_STREQ(drive, L"C:");
    EXPECT_STREQ(dir, L"\\App\\");
    EXPECT_EQ(_wsplitpath_s(L"/a/very/long/dir/", drive, 3, dir, 4, nullptr, 0, nullptr, 0), ERANGE);
    EXPECT_STREQ(dir, L"");
}

}  // namespace
