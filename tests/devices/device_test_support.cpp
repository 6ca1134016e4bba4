#include "device_test_support.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include <pugixml.hpp>

namespace zqtest {

namespace {

// Names the private members in an explicit instantiation, where access is not checked; the
// friends defined here then call them. Confined to this file so it is instantiated once.
void CallLoadConfig(CZQCoreAudio& core);
void CallLoadPlugins(CZQCoreAudio& core);
bool CallIsDeviceInConfig(CZQCoreAudio& core, const CStringW& product);

template <void (CZQCoreAudio::*Config)(), void (CZQCoreAudio::*Plugins)(),
          bool (CZQCoreAudio::*InConfig)(const CStringW&)>
struct CorePrivateMembers {
    friend void CallLoadConfig(CZQCoreAudio& core) { (core.*Config)(); }
    friend void CallLoadPlugins(CZQCoreAudio& core) { (core.*Plugins)(); }
    friend bool CallIsDeviceInConfig(CZQCoreAudio& core, const CStringW& product) {
        return (core.*InConfig)(product);
    }
};
template struct CorePrivateMembers<&CZQCoreAudio::LoadConfig, &CZQCoreAudio::LoadPlugins,
                                   &CZQCoreAudio::IsDeviceInConfig>;

}  // namespace

void LoadConfig(CZQCoreAudio& core) { CallLoadConfig(core); }
void LoadPlugins(CZQCoreAudio& core) { CallLoadPlugins(core); }
bool IsDeviceInConfig(CZQCoreAudio& core, const CStringW& product) { return CallIsDeviceInConfig(core, product); }

std::wstring Wide(const std::filesystem::path& path) { return pugi::as_wide(path.native().c_str()); }
std::filesystem::path PathOf(const std::wstring& text) { return std::filesystem::path(pugi::as_utf8(text.c_str())); }

ScratchFolder::ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zq-devices-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot create a scratch folder");
    m_path = pattern;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
}

std::filesystem::path ScratchFolder::Write(const std::string& name, const std::string& bytes) const {
    const std::filesystem::path file = m_path / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + file.string());
    return file;
}

HostModuleScope::HostModuleScope(const std::wstring& modulePath) { zqvm::SetHostModulePath(modulePath); }
HostModuleScope::~HostModuleScope() { zqvm::ResetHostModulePath(); }

CleanMachine::CleanMachine() { Reset(); }
CleanMachine::~CleanMachine() { Reset(); }

void CleanMachine::Reset() {
    zqvm::RemoveAllBridges();
    zqvm::RegistryClear();
    zqvm::SetBridgeTiming(zqvm::BridgeTiming::Instant);
    zqvm::ClearBridgeCalls();
}

std::u16string Utf16(const std::wstring& text) {
    std::u16string out;
    for (wchar_t wc : text) {
        const auto c = static_cast<uint32_t>(wc);
        if (c >= 0x10000) {
            out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
    }
    return out;
}

}  // namespace zqtest
