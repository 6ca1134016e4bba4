// The registry: keys opened by handle, values read with the real types and size rules.
//
// The key tree lives in the process (zqplatform/vm/registry.h fills it). Key and value names
// compare without regard to ASCII letter case; a sub-key path separates its keys with
// backslashes. Values are kept as the bytes they were stored with, whatever their type: a value
// can be of the wrong type, of odd length or without a terminating NUL, as on Windows. Text
// values are kept in the platform's wide characters (sizeof(wchar_t) bytes each).
//
// Every function may be called from any thread. A handle stays usable until RegCloseKey; if
// its key is deleted meanwhile, reads through it fail with ERROR_KEY_DELETED.
#pragma once

#include "zqplatform/win/wintypes.h"

#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000u))))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000001u))))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000002u))))
#define HKEY_USERS (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000003u))))

#define KEY_QUERY_VALUE 0x0001u
#define KEY_SET_VALUE 0x0002u
#define KEY_CREATE_SUB_KEY 0x0004u
#define KEY_ENUMERATE_SUB_KEYS 0x0008u
#define KEY_NOTIFY 0x0010u
#define KEY_WOW64_64KEY 0x0100u
#define KEY_WOW64_32KEY 0x0200u
#define KEY_READ 0x20019u
#define KEY_WRITE 0x20006u
#define KEY_ALL_ACCESS 0xF003Fu

#define REG_OPTION_OPEN_LINK 0x0008u

#define REG_NONE 0u
#define REG_SZ 1u
#define REG_EXPAND_SZ 2u
#define REG_BINARY 3u
#define REG_DWORD 4u
#define REG_DWORD_BIG_ENDIAN 5u
#define REG_LINK 6u
#define REG_MULTI_SZ 7u
#define REG_QWORD 11u

#define ERROR_BAD_PATHNAME 161L
#define ERROR_KEY_DELETED 1018L

extern "C" {
// Opens hKey\lpSubKey (a null or empty lpSubKey opens hKey itself again). ulOptions may be 0
// or REG_OPTION_OPEN_LINK. Returns ERROR_SUCCESS, ERROR_FILE_NOT_FOUND for a key that does not
// exist, ERROR_INVALID_HANDLE for a bad hKey, ERROR_INVALID_PARAMETER for a null phkResult or
// other options, ERROR_BAD_PATHNAME for a path that begins with a backslash. On failure
// *phkResult is set to null.
ZQPLATFORM_API LSTATUS RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                                     PHKEY phkResult);
// Reads the value lpValueName (null or empty: the key's default value). The key must have been
// opened with KEY_QUERY_VALUE (else ERROR_ACCESS_DENIED); lpReserved must be null.
// - lpType, when not null, receives the type (also with ERROR_MORE_DATA).
// - lpData null and lpcbData not null: *lpcbData receives the size in bytes; ERROR_SUCCESS.
// - lpData not null: lpcbData must not be null (else ERROR_INVALID_PARAMETER). If *lpcbData is
//   below the size, ERROR_MORE_DATA, the buffer is left untouched and *lpcbData receives the
//   size; otherwise the bytes are copied as stored and *lpcbData receives their count.
// A value that does not exist gives ERROR_FILE_NOT_FOUND.
ZQPLATFORM_API LSTATUS RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                        LPBYTE lpData, LPDWORD lpcbData);
// Stores cbData bytes (lpData may be null only with cbData 0) under lpValueName. The key must
// have been opened with KEY_SET_VALUE (else ERROR_ACCESS_DENIED).
ZQPLATFORM_API LSTATUS RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType,
                                      const BYTE* lpData, DWORD cbData);
// Closing a predefined root key does nothing and succeeds; ERROR_INVALID_HANDLE for a handle
// that is not open.
ZQPLATFORM_API LSTATUS RegCloseKey(HKEY hKey);
}
