// Control of the in-process registry that RegOpenKeyExW and RegQueryValueExW read
// (zqplatform/win/winreg.h). Tests and the host set values here, in any form a real registry
// could hold them, and check that every key the library opened was closed again.
//
// Paths are sub-key paths below a predefined root (HKEY_LOCAL_MACHINE and the like), with
// backslash separators; names compare without regard to ASCII letter case. All functions are
// thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "zqplatform/win/winreg.h"

namespace zqvm {

// Stores a value as raw bytes, creating the keys on the way; replaces a value of that name.
ZQPLATFORM_API void RegistrySetValue(HKEY root, const std::wstring& path, const std::wstring& name, DWORD type,
                                     const void* data, size_t size);
// A text value as Windows stores one: the characters and a terminating NUL, in the platform's
// wide characters. Type REG_SZ unless told otherwise.
ZQPLATFORM_API void RegistrySetString(HKEY root, const std::wstring& path, const std::wstring& name,
                                      const std::wstring& text, DWORD type = REG_SZ);
ZQPLATFORM_API void RegistrySetDword(HKEY root, const std::wstring& path, const std::wstring& name, DWORD value);
// Creates the key (and those on the way) without values.
ZQPLATFORM_API void RegistryCreateKey(HKEY root, const std::wstring& path);
// False when there was no such value or key. Deleting a key deletes its sub-keys; handles open
// on them stay valid but fail with ERROR_KEY_DELETED.
ZQPLATFORM_API bool RegistryDeleteValue(HKEY root, const std::wstring& path, const std::wstring& name);
ZQPLATFORM_API bool RegistryDeleteKey(HKEY root, const std::wstring& path);
// Empties every root.
ZQPLATFORM_API void RegistryClear();

// The stored bytes of a value; false when there is none.
ZQPLATFORM_API bool RegistryGetValue(HKEY root, const std::wstring& path, const std::wstring& name, DWORD& type,
                                     std::vector<uint8_t>& data);

// Handles returned by RegOpenKeyExW and not yet closed.
ZQPLATFORM_API size_t RegistryOpenHandleCount();

}  // namespace zqvm
