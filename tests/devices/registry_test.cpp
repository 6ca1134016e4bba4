// The registry stand-in's value types and size rules, and discovery's reading of a
// microphone's container identifier through it.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "device_test_support.h"
#include "devices/MicrophoneIdentity.h"
#include "zqCoreAudio.h"

namespace {

const wchar_t kKeyPath[] = L"SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_10C4&PID_EAB0\\SN0001";
const std::wstring kContainerText = L"{8c7ed206-3f8a-4827-b3ab-ae9e1faefc6c}";
const GUID kContainer = {0x8C7ED206, 0x3F8A, 0x4827, {0xB3, 0xAB, 0xAE, 0x9E, 0x1F, 0xAE, 0xFC, 0x6C}};

class Registry : public ::testing::Test {
protected:
    // Opens the test key for reading; the test closes it.
    HKEY Open(REGSAM access = KEY_READ) {
        HKEY key = nullptr;
        EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKeyPath, 0, access, &key), ERROR_SUCCESS);
        return key;
    }
    void TearDown() override { EXPECT_EQ(zqvm::RegistryOpenHandleCount(), 0u) << "a key was left open"; }

    zqtest::CleanMachine machine;
};

TEST_F(Registry, SizeRulesOfRegQueryValueExW) {
    zqvm::RegistrySetString(HKEY_LOCAL_MACHINE, kKeyPath, L"ContainerID", L"abc");
    const DWORD size = 4 * sizeof(wchar_t);  // three characters and the NUL
    HKEY key = Open();

    DWORD type = 0;
    DWORD cb = 0;
    EXPECT_EQ(RegQueryValueExW(key, L"ContainerID", nullptr, &type, nullptr, &cb), ERROR_SUCCESS);
    EXPECT_EQ(cb, size);  // no buffer: only the size
    EXPECT_EQ(type, REG_SZ);

    BYTE buffer[64];
    std::memset(buffer, 0xCD, sizeof(buffer));
    cb = size - 1;
    type = 0;
    EXPECT_EQ(RegQueryValueExW(key, L"ContainerID", nullptr, &type, buffer, &cb), ERROR_MORE_DATA);
    EXPECT_EQ(cb, size);
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(buffer[0], 0xCD);  // untouched

    cb = size;
    EXPECT_EQ(RegQueryValueExW(key, L"containerid", nullptr, nullptr, buffer, &cb), ERROR_SUCCESS);
    EXPECT_EQ(cb, size);
    EXPECT_EQ(std::wstring(reinterpret_cast<const wchar_t*>(buffer)), L"abc");
    EXPECT_EQ(buffer[size], 0xCD);  // nothing past the value

    EXPECT_EQ(RegQueryValueExW(key, L"ContainerID", nullptr, nullptr, buffer, nullptr), ERROR_INVALID_PARAMETER);
    DWORD reserved = 0;
    EXPECT_EQ(RegQueryValueExW(key, L"ContainerID", &reserved, nullptr, nullptr, &cb), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryValueExW(key, L"Missing", nullptr, nullptr, buffer, &cb), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegQueryValueExW(key, L"ContainerID", nullptr, &type, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegQueryValueExW(key, L"ContainerID", nullptr, nullptr, nullptr, &cb), ERROR_INVALID_HANDLE);
}

TEST_F(Registry, KeysOpenByPathIgnoringLetterCaseAndMissingOnesAreNotFound) {
    zqvm::RegistryCreateKey(HKEY_LOCAL_MACHINE, kKeyPath);
    HKEY key = reinterpret_cast<HKEY>(1);
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"system\\currentcontrolset\\enum\\usb\\vid_10c4&pid_eab0\\sn0001\\",
                            0, KEY_READ, &key),
              ERROR_SUCCESS);
    HKEY child = nullptr;
    EXPECT_EQ(RegOpenKeyExW(key, L"", 0, KEY_READ, &child), ERROR_SUCCESS);  // the same key again
    RegCloseKey(child);
    RegCloseKey(key);

    key = reinterpret_cast<HKEY>(1);
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\Missing", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"\\SYSTEM", 0, KEY_READ, &key), ERROR_BAD_PATHNAME);
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM", 0, KEY_READ, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"SYSTEM", 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegOpenKeyExW(reinterpret_cast<HKEY>(0x4242), L"SYSTEM", 0, KEY_READ, &key), ERROR_INVALID_HANDLE);
}

// ---- the container identifier of a microphone ----

TEST_F(Registry, AContainerIdTextInEitherStringTypeIsRead) {
    for (DWORD type : {REG_SZ, REG_EXPAND_SZ}) {
        zqvm::RegistrySetString(HKEY_LOCAL_MACHINE, kKeyPath, L"ContainerID", kContainerText, type);
        CStringW text;
        ASSERT_TRUE(ReadContainerIdText(L"SN0001", text)) << type;
        EXPECT_EQ(text, CStringW(kContainerText.c_str()));
        EXPECT_EQ(ContainerIdFromText(text), kContainer);  // lower case converts too
    }
}

TEST_F(Registry, MalformedContainerIdValuesAreNotRead) {
    const std::wstring withNul = kContainerText + L'\0';
    const auto* bytes = reinterpret_cast<const BYTE*>(withNul.data());
    const size_t size = withNul.size() * sizeof(wchar_t);
    struct Case {
        const char* what;
        DWORD type;
        size_t length;
    };
    const Case cases[] = {
        {"binary type", REG_BINARY, size},
        {"number type", REG_DWORD, size},
        {"multi-string type", REG_MULTI_SZ, size},
        {"odd length", REG_SZ, size - 1},
        {"half a character more", REG_SZ, size + 2},
        {"no terminating NUL", REG_SZ, size - sizeof(wchar_t)},
        {"a single byte", REG_SZ, 1},
    };
    std::vector<BYTE> padded(bytes, bytes + size);
    padded.resize(size + 8, 0x41);
    for (const Case& c : cases) {
        zqvm::RegistrySetValue(HKEY_LOCAL_MACHINE, kKeyPath, L"ContainerID", c.type, padded.data(), c.length);
        CStringW text = L"unchanged";
        EXPECT_FALSE(ReadContainerIdText(L"SN0001", text)) << c.what;
        EXPECT_EQ(text, L"unchanged") << c.what;
    }
}

TEST_F(Registry, AnEmptyValueReadsAsAnEmptyTextThatNamesNoContainer) {
    zqvm::RegistrySetValue(HKEY_LOCAL_MACHINE, kKeyPath, L"ContainerID", REG_SZ, nullptr, 0);
    CStringW text = L"unchanged";
    ASSERT_TRUE(ReadContainerIdText(L"SN0001", text));
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_EQ(ContainerIdFromText(text), GUID_NULL);
}

TEST_F(Registry, AValueTooLongForTheBufferIsNotRead) {
    zqvm::RegistrySetString(HKEY_LOCAL_MACHINE, kKeyPath, L"ContainerID", std::wstring(MAX_PATH, L'7'));
    CStringW text;
    EXPECT_FALSE(ReadContainerIdText(L"SN0001", text));
    zqvm::RegistrySetString(HKEY_LOCAL_MACHINE, kKeyPath, L"ContainerID", std::wstring(MAX_PATH - 1, L'7'));
    EXPECT_TRUE(ReadContainerIdText(L"SN0001", text));  // 259 characters and the NUL just fit
    EXPECT_EQ(text.GetLength(), MAX_PATH - 1);
}

TEST_F(Registry, MissingKeysValuesAndUnusableSerialNumbersReadNothing) {
    CStringW text;
    EXPECT_FALSE(ReadContainerIdText(L"SN0001", text));  // no key
    zqvm::RegistryCreateKey(HKEY_LOCAL_MACHINE, kKeyPath);
    EXPECT_FALSE(ReadContainerIdText(L"SN0001", text));  // no value
    zqvm::RegistrySetString(HKEY_LOCAL_MACHINE, std::wstring(kKeyPath) + L"\\Sub", L"ContainerID", kContainerText);
    EXPECT_FALSE(ReadContainerIdText(L"SN0001\\Sub", text));  // a serial number cannot reach below its key
    EXPECT_FALSE(ReadContainerIdText(L"", text));
}

}  // namespace
