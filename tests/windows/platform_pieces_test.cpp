// What zqplatform.dll supplies on Windows, on the Windows API as Wine implements it: the
// framework's CStringW with Microsoft's printf rules, CZqLog writing its file in UTF-8, the
// attributes' real security descriptor, and the bridge library over the HID API.
#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

#include "windows_test_support.h"
#include "zqCoreAudio.h"

namespace {

TEST(WindowsCStringW, FormatsWithMicrosoftRules) {
    CStringW text;
    // %s is a wide string in a wide format and %S a narrow one; %ld is 32 bits, %I64d 64.
    text.Format(L"[%s|%S|%5d|%-4x|%ld|%I64d|%c|%C|%.2f]", L"w\u00e9", "narrow", 42, 0xab, -7L,
                static_cast<__int64>(-1) << 40, L'\u00fc', 'n', 2.345);
    EXPECT_STREQ(L"[w\u00e9|narrow|   42|ab  |-7|-1099511627776|\u00fc|n|2.35]", text.GetString());
    text.AppendFormat(L"%s", L" more");
    EXPECT_EQ(text.Right(5), CStringW(L" more"));
    // A character beyond the Basic Multilingual Plane is two UTF-16 units here.
    text.Format(L"%s", L"\U0001F3A4");
    EXPECT_EQ(2, text.GetLength());
}

TEST(WindowsCStringW, AgreesWithTheCRuntimesOwnFormatting) {
    // The same formats through msvcrt's _snwprintf, the reference for Microsoft's rules.
    wchar_t expected[128];
    const int n = _snwprintf(expected, 128, L"%s/%S/%08.3f/%X", L"wide", "narrow", 3.14159, 0xbeefu);
    ASSERT_GT(n, 0);
    CStringW text;
    text.Format(L"%s/%S/%08.3f/%X", L"wide", "narrow", 3.14159, 0xbeefu);
    EXPECT_STREQ(expected, text.GetString());
}

std::wstring TempFile(const wchar_t* name) {
    wchar_t folder[MAX_PATH];
    const DWORD n = GetTempPathW(MAX_PATH, folder);
    return std::wstring(folder, n) + name + std::to_wstring(GetCurrentProcessId()) + L".log";
}

TEST(WindowsZqLog, WritesItsFileInOrderAsUtf8) {
    const std::wstring path = TempFile(L"zq log \u00e4 ");  // a name beyond ASCII: _wfopen, not the ANSI page
    DeleteFileW(path.c_str());
    CZqLog log;
    ASSERT_TRUE(log.OpenFile(L"test", path.c_str()));
    SYSTEMTIME noon = {2026, 11, 4, 26, 12, 34, 56, 789};
    FILETIME stamp;
    ASSERT_TRUE(SystemTimeToFileTime(&noon, &stamp));
    const __int64 time = (static_cast<__int64>(stamp.dwHighDateTime) << 32) | stamp.dwLowDateTime;
    log.Log(zqLogEventInfo, time, L"first");
    log.Log(zqLogEventWarning, time, L"second \u00e9\U0001F3A4");
    log.Log(zqLogEventError, time, L"third");
    ASSERT_TRUE(log.Flush(5000));
    log.Close();
    const std::string text = zqwintest::ReadWhole(path);
    DeleteFileW(path.c_str());
    // The file is opened in text mode, as a Windows program writes its log: CR LF line ends.
    EXPECT_EQ("2026-11-26 12:34:56.789 INFO  first\r\n"
              "2026-11-26 12:34:56.789 WARN  second \xc3\xa9\xf0\x9f\x8e\xa4\r\n"
              "2026-11-26 12:34:56.789 ERROR third\r\n",
              text);
}

// The writer sleeps between lines: every line and every flush after it must wake it again,
// also while other threads log (a lost wake-up shows as a flush that times out).
TEST(WindowsZqLog, WakesItsWriterForEveryLineAfterItSlept) {
    CZqLog log;
    std::atomic<int> written{0};
    ASSERT_TRUE(log.OpenSink(L"test", [&written](const _ZQ_LOG_EVENT&) { written.fetch_add(1); }));
    constexpr int kRounds = 20000;
    std::thread other([&log] {
        for (int i = 0; i < kRounds; ++i) log.Log(zqLogEventInfo, 0, L"other");
    });
    int timedOut = 0;
    for (int i = 0; i < kRounds; ++i) {
        log.Log(zqLogEventInfo, 0, L"line");
        if (!log.Flush(2000)) ++timedOut;
    }
    other.join();
    EXPECT_EQ(0, timedOut);
    ASSERT_TRUE(log.Flush(5000));
    EXPECT_EQ(2 * kRounds, written.load());
    log.Close();
}

TEST(WindowsSecurityAttributes, GuardAKernelObjectWithARealDescriptor) {
    CSecurityAttributesRW attributes;
    ASSERT_TRUE(attributes.Create());
    _SECURITY_ATTRIBUTES* sa = attributes.GetSecurityAttributes();
    ASSERT_NE(nullptr, sa->lpSecurityDescriptor);
    EXPECT_TRUE(IsValidSecurityDescriptor(sa->lpSecurityDescriptor));
    BOOL present = FALSE, defaulted = FALSE;
    PACL dacl = nullptr;
    ASSERT_TRUE(GetSecurityDescriptorDacl(sa->lpSecurityDescriptor, &present, &dacl, &defaulted));
    EXPECT_TRUE(present);
    ASSERT_NE(nullptr, dacl);
    EXPECT_EQ(1, dacl->AceCount);  // everyone: read and write
    const HANDLE event = CreateEventW(sa, TRUE, FALSE, nullptr);
    EXPECT_NE(nullptr, event);
    if (event != nullptr) CloseHandle(event);
}

// Each DLL carries its own copy of the MinGW runtime (linked statically): an exception thrown
// in zqCoreAudio.dll must still be caught by type in the host, and a CStringW made in one
// module freed in another.
TEST(WindowsRuntime, ExceptionsAndStringsCrossTheDllBoundary) {
    CZQCoreAudio core;  // before Init: the getters still check their bin
    EXPECT_THROW(core.GetSpectrumAmpIn(4096), std::out_of_range);
    EXPECT_THROW(core.GetSpectrumAmpPeakOut(-1), std::out_of_range);
    EXPECT_EQ(0.0f, core.GetSpectrumAmpIn(100));
    CStringW made = Str2Guid(L"{5B2C7E41-9A3D-4C68-B1F0-2E8D6A4C9B37}") == GUID_NULL ? L"null" : L"parsed";
    made += L" here";
    EXPECT_EQ(CStringW(L"parsed here"), made);
}

// The maker's bridges: vendor 10c4, product eab0.
constexpr WORD kBridgeVid = 0x10c4;
constexpr WORD kBridgePid = 0xeab0;

TEST(WindowsHidUart, AnswersNoDeviceWhereThereIsNoBridge) {
    DWORD count = 99;
    ASSERT_EQ(HID_UART_SUCCESS, HidUart_GetNumDevices(&count, kBridgeVid, kBridgePid));
    EXPECT_EQ(0u, count);
    char text[HID_UART_DEVICE_STRLEN];
    EXPECT_EQ(HID_UART_DEVICE_NOT_FOUND, HidUart_GetString(0, kBridgeVid, kBridgePid, text, HID_UART_GET_SERIAL_STR));
    HID_UART_DEVICE device = nullptr;
    EXPECT_EQ(HID_UART_DEVICE_NOT_FOUND, HidUart_Open(&device, 0, kBridgeVid, kBridgePid));
    EXPECT_EQ(HID_UART_INVALID_PARAMETER, HidUart_GetNumDevices(nullptr, 0, 0));
    EXPECT_EQ(HID_UART_INVALID_PARAMETER, HidUart_GetString(0, 0, 0, text, 0x7f));
    // A handle the library never gave out is refused, not followed.
    int notAHandle = 0;
    EXPECT_EQ(HID_UART_INVALID_DEVICE_OBJECT, HidUart_Close(&notAHandle));
    DWORD timeout = 0;
    EXPECT_EQ(HID_UART_INVALID_DEVICE_OBJECT, HidUart_GetTimeouts(&notAHandle, &timeout, &timeout));
}

TEST(WindowsHidUart, NamesEveryListedHidInterface) {
    DWORD count = 0;
    ASSERT_EQ(HID_UART_SUCCESS, HidUart_GetNumDevices(&count, 0, 0));
    if (count == 0) {
        GTEST_SKIP() << "HID devices: Wine's HID stack (winebus.sys) lists none on this machine, so the "
                        "SetupAPI listing, HidD_GetAttributes and the string functions have nothing to name";
    }
    for (DWORD i = 0; i < count; ++i) {
        char vid[HID_UART_DEVICE_STRLEN] = {};
        char pid[HID_UART_DEVICE_STRLEN] = {};
        char path[HID_UART_DEVICE_STRLEN] = {};
        EXPECT_EQ(HID_UART_SUCCESS, HidUart_GetString(i, 0, 0, vid, HID_UART_GET_VID_STR)) << i;
        EXPECT_EQ(HID_UART_SUCCESS, HidUart_GetString(i, 0, 0, pid, HID_UART_GET_PID_STR)) << i;
        EXPECT_EQ(4u, std::string(vid).size()) << i;
        EXPECT_EQ(HID_UART_SUCCESS, HidUart_GetString(i, 0, 0, path, HID_UART_GET_PATH_STR)) << i;
        EXPECT_EQ(std::string("\\\\?\\"), std::string(path).substr(0, 4)) << "a device interface path: " << path;
        std::printf("HID interface %lu: %s:%s %s\n", static_cast<unsigned long>(i), vid, pid, path);
        if (std::string(vid) == "10C4") continue;  // possibly a bridge of the maker's family
        // Any other device fails the part check (or cannot be opened): no handle is given out.
        HID_UART_DEVICE device = nullptr;
        EXPECT_NE(HID_UART_SUCCESS, HidUart_Open(&device, i, 0, 0)) << path;
    }
}

}  // namespace
