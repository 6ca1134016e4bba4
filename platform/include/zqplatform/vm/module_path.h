// The host application's module as the platform reports it, and what the loader has done.
//
// GetModuleFileNameW(nullptr, ...) gives the host module path: the running executable until
// the host or a test sets another one (the library then finds config.xml and its plug-ins
// beside that path). The loader counts the libraries loaded and unloaded through
// LoadLibraryW and FreeLibrary, so that a test can check that each load was matched. All
// functions are thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zqplatform/export.h"

namespace zqvm {

// Sets the path GetModuleFileNameW reports for the host module. An empty path stands for a
// module whose name cannot be had: GetModuleFileNameW then fails.
ZQPLATFORM_API void SetHostModulePath(const std::wstring& path);
// Back to the running executable.
ZQPLATFORM_API void ResetHostModulePath();
// What GetModuleFileNameW(nullptr, ...) reports now (empty when it would fail).
ZQPLATFORM_API std::wstring HostModulePath();

struct LoaderCounts {
    uint64_t loads;    // successful LoadLibraryW calls
    uint64_t unloads;  // successful FreeLibrary calls
};
ZQPLATFORM_API LoaderCounts GetLoaderCounts();
// Paths of the libraries loaded through LoadLibraryW and not yet freed, once per load.
ZQPLATFORM_API std::vector<std::wstring> LoadedLibraries();

}  // namespace zqvm
