// The dynamic loader and module names.
//
// LoadLibraryW, GetProcAddress and FreeLibrary work over the system's dynamic loader; an
// HMODULE is the loader's handle of the library, counted as on Windows: each successful
// LoadLibraryW needs one FreeLibrary. Paths are UTF-8 in the file system of this platform.
//
// GetModuleFileNameW(nullptr, ...) names the host application's module: by default the
// running executable, or what the host or a test set (zqplatform/vm/module_path.h). With a
// module from LoadLibraryW it names that library's file.
//
// Every function may be called from any thread.
#pragma once

#include "zqplatform/win/wintypes.h"

extern "C" {
// Null on failure, with ERROR_INVALID_PARAMETER for a null or empty name and ERROR_MOD_NOT_FOUND
// when the library cannot be loaded.
ZQPLATFORM_API HMODULE LoadLibraryW(LPCWSTR lpLibFileName);
// Null with ERROR_PROC_NOT_FOUND when the module does not export the name, ERROR_INVALID_HANDLE
// for a module that LoadLibraryW did not return.
ZQPLATFORM_API FARPROC GetProcAddress(HMODULE hModule, LPCSTR lpProcName);
// FALSE with ERROR_INVALID_HANDLE for a module that is not loaded.
ZQPLATFORM_API BOOL FreeLibrary(HMODULE hLibModule);
// Copies the module's path and a NUL and returns its length. When the buffer is too small the
// path is cut to nSize - 1 characters and NUL-terminated, the result is nSize and the last
// error ERROR_INSUFFICIENT_BUFFER. 0 with ERROR_MOD_NOT_FOUND for an unknown module or when no
// host module name is available, ERROR_INVALID_PARAMETER for no buffer.
ZQPLATFORM_API DWORD GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize);
}
