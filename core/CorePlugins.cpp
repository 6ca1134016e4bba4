// Plug-in discovery: the plug-in libraries beside the host application's executable are each
// loaded just long enough to ask for their description, which is kept with the file's path.
// Runs on the host's thread inside Init; the list does not change afterwards, so its getters
// take no lock. Nothing here is logged, and no failure ends the scan.
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "devices/HostFolder.h"
#include "devices/PluginFile.h"
#include "zqCoreAudio.h"

namespace {

// Every load is matched by one unload, whichever way the scan leaves a file.
class CLoadedLibrary {
public:
    explicit CLoadedLibrary(const wchar_t* pszPath) : m_hModule(LoadLibraryW(pszPath)) {}
    ~CLoadedLibrary() {
        if (m_hModule != nullptr) FreeLibrary(m_hModule);
    }
    CLoadedLibrary(const CLoadedLibrary&) = delete;
    CLoadedLibrary& operator=(const CLoadedLibrary&) = delete;

    bool IsLoaded() const { return m_hModule != nullptr; }
    PFN_ZQ_GET_PLUGIN_INFO EntryPoint() const {
        // Through the generic function pointer type: the entry point's own type is not FARPROC's.
        return reinterpret_cast<PFN_ZQ_GET_PLUGIN_INFO>(
            reinterpret_cast<void (*)()>(GetProcAddress(m_hModule, kPluginEntryPoint)));
    }

private:
    HMODULE m_hModule;
};

bool IsRegularFile(const std::filesystem::directory_entry& entry) {
    std::error_code ec;
    // symlink_status: a link is not followed, so links are skipped like directories.
    return entry.symlink_status(ec).type() == std::filesystem::file_type::regular && !ec;
}

}  // namespace

void CZQCoreAudio::LoadPlugins() {
    CStringW strFolder;
    if (!GetHostModuleFolder(strFolder)) return;  // no folder: no scan
    strFolder.Replace(L'\\', L'/');

    try {
        std::error_code ec;
        std::filesystem::directory_iterator it(PluginFolderPath(strFolder), ec);
        for (; !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
            if (!IsRegularFile(*it)) continue;
            const std::optional<std::wstring> name = PluginFileName(it->path());
            if (!name || !IsPluginFileName(name->c_str())) continue;

            const CStringW strPath = strFolder + name->c_str();
            CLoadedLibrary library(strPath.GetString());
            if (!library.IsLoaded()) continue;
            const PFN_ZQ_GET_PLUGIN_INFO pfnGetInfo = library.EntryPoint();
            if (pfnGetInfo == nullptr) continue;
            // Cleared although the plug-in must write its whole part: no stale stack bytes reach
            // the host from a plug-in that writes less.
            _ZQ_PLUGIN_INFO info;
            std::memset(&info, 0, sizeof(info));
            if (pfnGetInfo(&info) == 0) continue;
            StorePluginPath(info, strPath.GetString());
            m_vecPlugins.push_back(info);
        }
    } catch (const std::exception&) {
        // Out of memory while listing: the plug-ins found so far stay listed.
    }
}

int CZQCoreAudio::GetPluginCount() { return static_cast<int>(m_vecPlugins.size()); }

// Outside the list: a record of zeros.
_ZQ_PLUGIN_INFO CZQCoreAudio::GetPlugin(int nIndex) {
    _ZQ_PLUGIN_INFO info;
    std::memset(&info, 0, sizeof(info));
    if (nIndex >= 0 && static_cast<size_t>(nIndex) < m_vecPlugins.size()) info = m_vecPlugins[static_cast<size_t>(nIndex)];
    return info;
}
