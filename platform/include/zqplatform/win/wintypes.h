// Windows base types, result codes and GUIDs as the system code expects them.
// Widths follow the Windows LLP64 model: LONG, ULONG and DWORD are 32 bits here too.
#pragma once

#if defined(_WIN32)
// The SDK has all of these; only the export macro is the platform layer's own.
#include <windows.h>

#include "zqplatform/export.h"
#else

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>

#include "zqplatform/export.h"

#define __int64 long long
#define STDMETHODCALLTYPE
#define WINAPI
#define CALLBACK
#define APIENTRY
#define FAR
#define _In_
#define _Out_
#define _Inout_

typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int32_t INT;
typedef uint32_t UINT;
typedef uint32_t UINT32;
typedef uint64_t UINT64;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef int BOOL;
typedef float FLOAT;
typedef char CHAR;
typedef wchar_t WCHAR;
typedef void VOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef void* PVOID;
typedef BYTE* LPBYTE;
typedef DWORD* LPDWORD;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef CHAR* LPSTR;
typedef const CHAR* LPCSTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t INT_PTR;
typedef uintptr_t ULONG_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t DWORD_PTR;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;
typedef int32_t HRESULT;
typedef void* HANDLE;
typedef HANDLE* PHANDLE;
typedef struct HWND__* HWND;
typedef struct HINSTANCE__* HINSTANCE;
typedef HINSTANCE HMODULE;
typedef struct HKEY__* HKEY;
typedef HKEY* PHKEY;
typedef DWORD REGSAM;
typedef LONG LSTATUS;
typedef void* FARPROC;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#ifndef MAX_PATH
#define MAX_PATH 260
#endif
#define INFINITE 0xFFFFFFFFu
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1)))

#define MAKE_HRESULT_U(v) (static_cast<HRESULT>(static_cast<uint32_t>(v)))
#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#define HRESULT_FROM_WIN32(x) \
    (static_cast<HRESULT>(x) <= 0 ? static_cast<HRESULT>(x) \
                                  : static_cast<HRESULT>((static_cast<uint32_t>(x) & 0x0000FFFFu) | 0x80070000u))

#define S_OK MAKE_HRESULT_U(0x00000000u)
#define S_FALSE MAKE_HRESULT_U(0x00000001u)
#define E_NOTIMPL MAKE_HRESULT_U(0x80004001u)
#define E_NOINTERFACE MAKE_HRESULT_U(0x80004002u)
#define E_POINTER MAKE_HRESULT_U(0x80004003u)
#define E_ABORT MAKE_HRESULT_U(0x80004004u)
#define E_FAIL MAKE_HRESULT_U(0x80004005u)
#define E_UNEXPECTED MAKE_HRESULT_U(0x8000FFFFu)
#define E_ACCESSDENIED MAKE_HRESULT_U(0x80070005u)
#define E_HANDLE MAKE_HRESULT_U(0x80070006u)
#define E_OUTOFMEMORY MAKE_HRESULT_U(0x8007000Eu)
#define E_INVALIDARG MAKE_HRESULT_U(0x80070057u)
#define E_NOTFOUND MAKE_HRESULT_U(0x80070490u)
#define CLASS_E_NOAGGREGATION MAKE_HRESULT_U(0x80040110u)
#define REGDB_E_CLASSNOTREG MAKE_HRESULT_U(0x80040154u)
#define CO_E_NOTINITIALIZED MAKE_HRESULT_U(0x800401F0u)
#define RPC_E_CHANGED_MODE MAKE_HRESULT_U(0x80010106u)

// Last-error codes used by the stand-ins.
#define ERROR_SUCCESS 0L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_DATA 13L
#define ERROR_OUTOFMEMORY 14L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_MOD_NOT_FOUND 126L
#define ERROR_PROC_NOT_FOUND 127L
#define ERROR_MORE_DATA 234L
#define ERROR_NO_MORE_ITEMS 259L
#define ERROR_INVALID_WINDOW_HANDLE 1400L

typedef struct _GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
} GUID;
typedef GUID IID;
typedef GUID CLSID;
typedef const GUID& REFGUID;
typedef const IID& REFIID;
typedef const CLSID& REFCLSID;
typedef GUID* LPGUID;

inline bool operator==(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }
inline bool operator!=(const GUID& a, const GUID& b) { return !(a == b); }
inline bool IsEqualGUID(const GUID& a, const GUID& b) { return a == b; }
inline bool IsEqualIID(const GUID& a, const GUID& b) { return a == b; }

inline constexpr GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

struct _SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
typedef _SECURITY_ATTRIBUTES SECURITY_ATTRIBUTES;
typedef _SECURITY_ATTRIBUTES* LPSECURITY_ATTRIBUTES;

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
typedef FILETIME* LPFILETIME;

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};
typedef SYSTEMTIME* LPSYSTEMTIME;

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

extern "C" {
ZQPLATFORM_API DWORD GetLastError();
ZQPLATFORM_API void SetLastError(DWORD dwErrCode);
}

#endif  // !_WIN32
