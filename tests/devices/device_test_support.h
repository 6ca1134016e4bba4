// Helpers of the devices suite: a scratch folder that acts as the host application's folder,
// the simulated machine put back as it was after each test, and the core's private loaders.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "zqCoreAudio.h"
#include "zqplatform/vm/bridges.h"
#include "zqplatform/vm/module_path.h"
#include "zqplatform/vm/registry.h"

namespace zqtest {

// A path as wide text and back, in UTF-8 as the platform names files (not the C locale's
// encoding, which the standard library's own conversions use).
std::wstring Wide(const std::filesystem::path& path);
std::filesystem::path PathOf(const std::wstring& text);

// A fresh folder under the system's temporary folder, removed with everything in it.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    // Writes the bytes to a file in the folder (sub-folders created) and returns its path.
    std::filesystem::path Write(const std::string& name, const std::string& bytes) const;

private:
    std::filesystem::path m_path;
};

// Makes the platform report a host executable inside `folder` (or no module name at all, for
// an empty path) for as long as it lives.
class HostModuleScope {
public:
    explicit HostModuleScope(const std::wstring& modulePath);
    explicit HostModuleScope(const std::filesystem::path& folder) : HostModuleScope(Wide(folder / "zqHost")) {}
    ~HostModuleScope();
    HostModuleScope(const HostModuleScope&) = delete;
    HostModuleScope& operator=(const HostModuleScope&) = delete;
};

// No bridges, no registry values, reads that do not wait, no recorded calls: before and after.
class CleanMachine {
public:
    CleanMachine();
    ~CleanMachine();
    CleanMachine(const CleanMachine&) = delete;
    CleanMachine& operator=(const CleanMachine&) = delete;

private:
    static void Reset();
};

// Init runs these among everything else it starts; the tests here call them on their own.
void LoadConfig(CZQCoreAudio& core);
void LoadPlugins(CZQCoreAudio& core);
bool IsDeviceInConfig(CZQCoreAudio& core, const CStringW& product);

// Wide text as UTF-16 code units (pairs for characters above U+FFFF).
std::u16string Utf16(const std::wstring& text);

}  // namespace zqtest
