// Plug-in files: which names are plug-ins, and the path as the plug-in description keeps it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "zqCoreAudio.h"

// The extension of the platform's shared libraries, compared without regard to letter case.
#if defined(_WIN32)
inline constexpr wchar_t kPluginExtension[] = L".dll";
#else
inline constexpr wchar_t kPluginExtension[] = L".so";
#endif
// The stem begins with this, letter case as written.
inline constexpr wchar_t kPluginPrefix[] = L"zqPlugin_";
// The entry point every plug-in exports.
inline constexpr char kPluginEntryPoint[] = "zqGetPluginInfo";
typedef int (*PFN_ZQ_GET_PLUGIN_INFO)(_ZQ_PLUGIN_INFO* pInfo);

// Whether a file name (no folder) follows the plug-in pattern: split at its last dot, the stem
// begins with kPluginPrefix and the extension, dot included, is kPluginExtension.
bool IsPluginFileName(const wchar_t* pszName);

// Writes the path into the description's path field as UTF-16, whatever the width of wchar_t:
// at most 259 code units (a character that would not fit whole is left out with everything
// after it), then a NUL, and zeros to the end of the field.
void StorePluginPath(_ZQ_PLUGIN_INFO& info, const wchar_t* pszPath);

// File-system paths and wide text, converted without the C library's locale: wide text on
// Windows, UTF-8 elsewhere (as the platform's loader takes it). Nothing for a file name that
// is no valid text.
std::filesystem::path PluginFolderPath(const CStringW& strFolder);
std::optional<std::wstring> PluginFileName(const std::filesystem::path& file);
