// Plug-in discovery with real shared libraries built for the tests, copied into a scratch
// folder that stands for the host application's folder.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

#include "../plugins/src/fixture_plugin.h"
#include "device_test_support.h"
#include "devices/PluginFile.h"
#include "zqCoreAudio.h"

namespace {

namespace fs = std::filesystem;
using zqtest::HostModuleScope;
using zqtest::ScratchFolder;

constexpr unsigned kSeedA = 65;  // the plug-ins' patterns, as tests/plugins/CMakeLists.txt builds them

const fs::path kBuiltPlugins = ZQ_FIXTURE_PLUGIN_DIR;

// The path field as UTF-16 text, up to its NUL.
std::u16string PathField(const _ZQ_PLUGIN_INFO& info) {
    const auto* end = std::find(std::begin(info.szPath), std::end(info.szPath), u'\0');
    return std::u16string(std::begin(info.szPath), end);
}

// Whether the dynamic loader still holds the library (asked without loading it).
bool Resident(const fs::path& library) {
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) return false;
    dlclose(handle);
    return true;
}

void ExpectDescriptionOf(unsigned seed, const _ZQ_PLUGIN_INFO& info) {
    for (unsigned i = 0; i < ZQ_FIXTURE_DESCRIPTION_SIZE; ++i) {
        ASSERT_EQ(info.abPluginData[i], zq_fixture_byte(seed, i)) << "byte " << i;
    }
}

class PluginScan : public ::testing::Test {
protected:
    fs::path Install(const std::string& built, const std::string& as) const {
        const fs::path target = folder.Path() / as;
        fs::copy_file(kBuiltPlugins / (built + ".so"), target);
        return target;
    }

    ScratchFolder folder;
    HostModuleScope host{folder.Path()};
    CZQCoreAudio core;
};

TEST_F(PluginScan, OnlyAPluginThatDescribesItselfIsListedWithItsPath) {
    const fs::path a = Install("zqPlugin_A", "zqPlugin_A.so");
    const fs::path b = Install("zqPlugin_B", "zqPlugin_B.so");     // declines
    const fs::path c = Install("zqPlugin_C", "zqPlugin_C.so");     // no entry point
    const fs::path d = Install("zqplugin_D", "zqplugin_D.so");     // prefix in the wrong case
    const fs::path other = Install("Other", "Other.so");           // not a plug-in's name
    fs::create_directory(folder.Path() / "zqPlugin_E.so");         // a folder, not a file

    const zqvm::LoaderCounts before = zqvm::GetLoaderCounts();
    zqtest::LoadPlugins(core);
    const zqvm::LoaderCounts after = zqvm::GetLoaderCounts();

    ASSERT_EQ(core.GetPluginCount(), 1);
    const _ZQ_PLUGIN_INFO info = core.GetPlugin(0);
    ExpectDescriptionOf(kSeedA, info);
    EXPECT_EQ(PathField(info), zqtest::Utf16(zqtest::Wide(a)));  // what follows it: PluginPathField

    // A, B and C were loaded, each once; D, Other and the folder never were.
    EXPECT_EQ(after.loads - before.loads, 3u);
    EXPECT_EQ(after.unloads - before.unloads, 3u);
    EXPECT_TRUE(zqvm::LoadedLibraries().empty());
    for (const fs::path& library : {a, b, c, d, other}) EXPECT_FALSE(Resident(library)) << library;
}

// Every scan appends what it finds; outside the list GetPlugin gives a record of zeros.
TEST_F(PluginScan, EveryScanAppendsWhatItFindsAndOutsideTheListARecordIsZeros) {
    Install("zqPlugin_A", "zqPlugin_A.so");
    zqtest::LoadPlugins(core);
    zqtest::LoadPlugins(core);
    ASSERT_EQ(core.GetPluginCount(), 2);
    const _ZQ_PLUGIN_INFO first = core.GetPlugin(0);
    const _ZQ_PLUGIN_INFO second = core.GetPlugin(1);
    EXPECT_EQ(std::memcmp(&first, &second, sizeof(_ZQ_PLUGIN_INFO)), 0);
    const _ZQ_PLUGIN_INFO zeros{};
    for (int index : {-1, 2, 1000}) {
        const _ZQ_PLUGIN_INFO info = core.GetPlugin(index);
        EXPECT_EQ(std::memcmp(&info, &zeros, sizeof(info)), 0) << index;
    }
}

TEST(PluginScanFolder, WithoutAFolderNothingIsScannedOrLoaded) {
    ScratchFolder cwd;
    fs::copy_file(kBuiltPlugins / "zqPlugin_A.so", cwd.Path() / "zqPlugin_A.so");
    const fs::path previous = fs::current_path();
    fs::current_path(cwd.Path());  // the current folder must not stand in for a missing one
    const zqvm::LoaderCounts before = zqvm::GetLoaderCounts();
    // No module name, one without a folder, and one in a folder that does not exist.
    for (const std::wstring& module : {std::wstring(), std::wstring(L"zqHost"),
                                       zqtest::Wide(cwd.Path() / "missing" / "zqHost")}) {
        HostModuleScope host(module);
        CZQCoreAudio core;
        zqtest::LoadPlugins(core);
        EXPECT_EQ(core.GetPluginCount(), 0) << CStringW(module.c_str()).ToUtf8();
    }
    EXPECT_EQ(zqvm::GetLoaderCounts().loads, before.loads);
    fs::current_path(previous);
}

TEST(PluginScanPath, ALongPathIsCutTo259CodeUnitsAndCharactersBeyondTheBmpBecomePairs) {
    ScratchFolder root;
    const fs::path folder = root.Path() / zqtest::PathOf(L"mic-\U0001F3A4-" + std::wstring(30, L'p'));
    fs::create_directories(folder);
    const fs::path plugin = folder / ("zqPlugin_" + std::string(200, 'x') + ".so");
    fs::copy_file(kBuiltPlugins / "zqPlugin_A.so", plugin);
    HostModuleScope host(folder);
    CZQCoreAudio core;
    zqtest::LoadPlugins(core);

    ASSERT_EQ(core.GetPluginCount(), 1);
    const std::u16string full = zqtest::Utf16(zqtest::Wide(plugin));
    ASSERT_GT(full.size(), 259u);
    const _ZQ_PLUGIN_INFO info = core.GetPlugin(0);
    EXPECT_EQ(PathField(info), full.substr(0, 259));
    EXPECT_EQ(info.szPath[259], u'\0');
    ExpectDescriptionOf(kSeedA, info);
}

// ---- the name pattern and the path field on their own ----

TEST(PluginFileName, FollowsTheStemAndExtensionRules) {
    for (const wchar_t* name : {L"zqPlugin_Echo.so", L"zqPlugin_Echo.SO", L"zqPlugin_Echo.sO", L"zqPlugin_.so",
                                L"zqPlugin_a.b.so"}) {
        EXPECT_TRUE(IsPluginFileName(name)) << CStringW(name).ToUtf8();
    }
    for (const wchar_t* name : {L"ZQPLUGIN_Echo.so", L"zqplugin_Echo.so", L"zqPlugin_Echo.so.bak", L"zqPlugin_Echo",
                                L"zqPlugin.so", L"zqPlugin_Echo.dll", L".so", L"", L"xzqPlugin_Echo.so",
                                L"zqPlugin_Echo.s"}) {
        EXPECT_FALSE(IsPluginFileName(name)) << CStringW(name).ToUtf8();
    }
    EXPECT_FALSE(IsPluginFileName(nullptr));
}

TEST(PluginPathField, APairThatWouldNotFitWholeIsLeftOut) {
    _ZQ_PLUGIN_INFO info;
    std::memset(&info, 0xAB, sizeof(info));
    StorePluginPath(info, (std::wstring(258, L'a') + L"\U0001F3A4").c_str());
    EXPECT_EQ(PathField(info), std::u16string(258, u'a'));
    for (size_t i = 258; i < std::size(info.szPath); ++i) ASSERT_EQ(info.szPath[i], u'\0') << i;
    EXPECT_EQ(info.abPluginData[523], 0xAB);  // the plug-in's part is not touched

    StorePluginPath(info, (std::wstring(257, L'a') + L"\U0001F3A4tail").c_str());
    EXPECT_EQ(PathField(info), std::u16string(257, u'a') + u"\U0001F3A4");

    StorePluginPath(info, L"/a/\u00E9/zqPlugin_A.so");
    EXPECT_EQ(PathField(info), u"/a/\u00E9/zqPlugin_A.so");
    StorePluginPath(info, nullptr);
    EXPECT_TRUE(PathField(info).empty());
}

}  // namespace
