#include "devices/PluginFile.h"

#include <cwchar>

#if !defined(_WIN32)
#include <pugixml.hpp>
#endif

bool IsPluginFileName(const wchar_t* pszName) {
    if (pszName == nullptr) return false;
    const wchar_t* pszDot = std::wcsrchr(pszName, L'.');
    if (pszDot == nullptr) return false;
    const size_t nStem = static_cast<size_t>(pszDot - pszName);
    const size_t nPrefix = std::wcslen(kPluginPrefix);
    return nStem >= nPrefix && std::wcsncmp(pszName, kPluginPrefix, nPrefix) == 0 &&
           _wcsicmp(pszDot, kPluginExtension) == 0;
}

void StorePluginPath(_ZQ_PLUGIN_INFO& info, const wchar_t* pszPath) {
    constexpr size_t kCapacity = sizeof(info.szPath) / sizeof(info.szPath[0]) - 1;  // room for the NUL
    size_t nUnits = 0;
    for (const wchar_t* p = pszPath; p != nullptr && *p != L'\0'; ++p) {
        const auto c = static_cast<uint32_t>(*p);
        char16_t units[2];
        size_t nNeeded = 1;
        if (c >= 0x10000 && c <= 0x10FFFF) {  // only where wchar_t holds whole code points
            units[0] = static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            units[1] = static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
            nNeeded = 2;
        } else {
            units[0] = c > 0x10FFFF ? u'\uFFFD' : static_cast<char16_t>(c);
        }
        if (nUnits + nNeeded > kCapacity) break;
        for (size_t i = 0; i < nNeeded; ++i) info.szPath[nUnits++] = units[i];
    }
    for (size_t i = nUnits; i <= kCapacity; ++i) info.szPath[i] = u'\0';
}

#if defined(_WIN32)
std::filesystem::path PluginFolderPath(const CStringW& strFolder) { return std::filesystem::path(strFolder.GetString()); }

std::optional<std::wstring> PluginFileName(const std::filesystem::path& file) { return file.filename().wstring(); }
#else
std::filesystem::path PluginFolderPath(const CStringW& strFolder) {
    return std::filesystem::path(pugi::as_utf8(strFolder.GetString()));
}

std::optional<std::wstring> PluginFileName(const std::filesystem::path& file) {
    const std::string name = file.filename().native();
    std::wstring wide = pugi::as_wide(name.c_str());
    // as_wide passes over bytes that are no UTF-8; such a name would not come back the same.
    if (pugi::as_utf8(wide.c_str()) != name) return std::nullopt;
    return wide;
}
#endif
