// LoadLibraryW, GetProcAddress, FreeLibrary and GetModuleFileNameW over the system's dynamic
// loader, with the host module path and the counts of loads and unloads.
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "../strings/utf8.h"
#include "zqplatform/vm/module_path.h"
#include "zqplatform/win/libloader.h"

namespace {

// UTF-8 of a wide path; nothing for a character that is not a Unicode scalar value.
std::optional<std::string> Utf8Path(const std::wstring& path) {
    bool exact = true;
    std::string narrow = zqplatform::Utf8FromWide(path, &exact);
    if (!exact) return std::nullopt;
    return narrow;
}

// Wide text of a UTF-8 path; a byte that does not decode stands for the character of its code.
std::wstring WidePath(const std::string& path) { return zqplatform::WideFromUtf8(path, zqplatform::BadUtf8::Keep); }

std::wstring RunningExecutable() {
    std::string buffer(4096, '\0');
    const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (n <= 0) return std::wstring();
    buffer.resize(static_cast<size_t>(n));
    return WidePath(buffer);
}

struct LoadedModule {
    std::wstring path;  // the file the loader mapped
    uint64_t count;     // loads not yet freed
};

struct Loader {
    std::mutex mutex;
    std::optional<std::wstring> hostPath;  // unset: the running executable
    std::map<void*, LoadedModule> modules;
    uint64_t loads = 0;
    uint64_t unloads = 0;
};

Loader& TheLoader() {
    static Loader* loader = new Loader;  // used until the last library is freed, statics included
    return *loader;
}

// The file of a module the loader holds (as the loader recorded it).
std::wstring MappedPath(void* handle, const std::wstring& fallback) {
    link_map* map = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr && map->l_name != nullptr &&
        map->l_name[0] != '\0') {
        return WidePath(map->l_name);
    }
    return fallback;
}

DWORD CopyName(const std::wstring& name, LPWSTR out, DWORD size) {
    if (name.size() < size) {
        std::wmemcpy(out, name.c_str(), name.size() + 1);
        SetLastError(ERROR_SUCCESS);
        return static_cast<DWORD>(name.size());
    }
    std::wmemcpy(out, name.c_str(), size - 1);
    out[size - 1] = L'\0';
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

}  // namespace

extern "C" {

HMODULE LoadLibraryW(LPCWSTR lpLibFileName) {
    if (lpLibFileName == nullptr || lpLibFileName[0] == L'\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const std::wstring name(lpLibFileName);
    const std::optional<std::string> narrow = Utf8Path(name);
    if (!narrow) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    // The library's initialisers run inside dlopen: no lock of ours is held meanwhile, so a
    // library that loads another one from its initialiser does not deadlock.
    void* handle = dlopen(narrow->c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    const std::wstring mapped = MappedPath(handle, name);
    Loader& loader = TheLoader();
    std::lock_guard<std::mutex> lock(loader.mutex);
    auto& module = loader.modules[handle];
    if (module.count == 0) module.path = mapped;
    ++module.count;
    ++loader.loads;
    return static_cast<HMODULE>(handle);
}

FARPROC GetProcAddress(HMODULE hModule, LPCSTR lpProcName) {
    void* handle = static_cast<void*>(hModule);
    {
        Loader& loader = TheLoader();
        std::lock_guard<std::mutex> lock(loader.mutex);
        if (loader.modules.find(handle) == loader.modules.end()) {
            SetLastError(ERROR_INVALID_HANDLE);
            return nullptr;
        }
    }
    // Names below 0x10000 are ordinals on Windows; this loader has none.
    if (reinterpret_cast<uintptr_t>(lpProcName) < 0x10000u) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    void* symbol = dlsym(handle, lpProcName);
    // dlsym also searches the library's dependencies; GetProcAddress only the module's exports.
    link_map* own = nullptr;
    link_map* found = nullptr;
    Dl_info info;
    if (symbol != nullptr && dlinfo(handle, RTLD_DI_LINKMAP, &own) == 0 &&
        dladdr1(symbol, &info, reinterpret_cast<void**>(&found), RTLD_DL_LINKMAP) != 0 && found != own) {
        symbol = nullptr;
    }
    if (symbol == nullptr) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return symbol;
}

BOOL FreeLibrary(HMODULE hLibModule) {
    void* handle = static_cast<void*>(hLibModule);
    {
        Loader& loader = TheLoader();
        std::lock_guard<std::mutex> lock(loader.mutex);
        auto it = loader.modules.find(handle);
        if (it == loader.modules.end()) {
            SetLastError(ERROR_INVALID_HANDLE);
            return FALSE;
        }
        if (--it->second.count == 0) loader.modules.erase(it);
        ++loader.unloads;
    }
    // Finalisers run outside our lock, as initialisers do.
    dlclose(handle);
    return TRUE;
}

DWORD GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize) {
    if (lpFilename == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::wstring name;
    {
        Loader& loader = TheLoader();
        std::lock_guard<std::mutex> lock(loader.mutex);
        if (hModule == nullptr) {
            name = loader.hostPath ? *loader.hostPath : RunningExecutable();
        } else {
            auto it = loader.modules.find(static_cast<void*>(hModule));
            if (it != loader.modules.end()) name = it->second.path;
        }
    }
    if (name.empty()) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    if (nSize == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    return CopyName(name, lpFilename, nSize);
}

}  // extern "C"

namespace zqvm {

void SetHostModulePath(const std::wstring& path) {
    Loader& loader = TheLoader();
    std::lock_guard<std::mutex> lock(loader.mutex);
    loader.hostPath = path;
}

void ResetHostModulePath() {
    Loader& loader = TheLoader();
    std::lock_guard<std::mutex> lock(loader.mutex);
    loader.hostPath.reset();
}

std::wstring HostModulePath() {
    Loader& loader = TheLoader();
    std::lock_guard<std::mutex> lock(loader.mutex);
    return loader.hostPath ? *loader.hostPath : RunningExecutable();
}

LoaderCounts GetLoaderCounts() {
    Loader& loader = TheLoader();
    std::lock_guard<std::mutex> lock(loader.mutex);
    return LoaderCounts{loader.loads, loader.unloads};
}

std::vector<std::wstring> LoadedLibraries() {
    Loader& loader = TheLoader();
    std::lock_guard<std::mutex> lock(loader.mutex);
    std::vector<std::wstring> paths;
    for (const auto& entry : loader.modules) {
        for (uint64_t i = 0; i < entry.second.count; ++i) paths.push_back(entry.second.path);
    }
    return paths;
}

}  // namespace zqvm
