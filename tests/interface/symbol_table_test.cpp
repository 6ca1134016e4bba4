// The dynamic symbol tables of the built libraries: libzqCoreAudio.so exports every member of
// its interface and g_pCore, and nothing else (no internal class, no platform detail, no
// template instantiation, no third-party symbol). The inline members of the zqSystem classes
// that the interface lists live, on this platform, with those classes in libzqplatform.so and
// are looked for there.
//
// The tables are read with nm (binutils, which comes with the compiler) and compared by
// demangled name, as the platform spells it: HWND is HWND__*, DWORD is unsigned int.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#if !defined(ZQ_CORE_LIBRARY_FILE) || !defined(ZQ_PLATFORM_LIBRARY_FILE) || !defined(ZQ_NM)
#error "the build passes the libraries' paths and nm's"
#endif

namespace {

struct SymbolTable {
    std::set<std::string> names;
    std::string error;  // empty when the table was read
};

// Defined dynamic symbols of the file, demangled.
SymbolTable ReadDynamicSymbols(const std::string& file) {
    SymbolTable table;
    if (file.find('\'') != std::string::npos) {
        table.error = "cannot quote the path " + file;
        return table;
    }
    const std::string command = std::string("'") + ZQ_NM + "' -D --defined-only -C '" + file + "' 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        table.error = "cannot run " + command;
        return table;
    }
    std::string output;
    char buffer[4096];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
    const int status = pclose(pipe);
    if (status != 0) {
        table.error = command + " failed:\n" + output;
        return table;
    }
    // Each line: value, type letter, name (which may hold spaces).
    std::istringstream lines(output);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t typeAt = line.find(' ');
        if (typeAt == std::string::npos || typeAt + 3 > line.size() || line[typeAt + 2] != ' ') {
            table.error = "unexpected nm line: " + line;
            return table;
        }
        std::string name = line.substr(typeAt + 3);
        // A versioned symbol reads name@@VERSION or name@VERSION; C++ names hold no '@'.
        if (const size_t at = name.find('@'); at != std::string::npos) name.erase(at);
        table.names.insert(name);
    }
    return table;
}

// ---- the exported interface ------------------------------------------------------------------

std::vector<std::string> Qualified(const std::string& cls, const std::vector<std::string>& members) {
    std::vector<std::string> names;
    for (const std::string& m : members) names.push_back(cls + "::" + m);
    return names;
}

std::vector<std::string> CoreMembers() {
    return Qualified("CZQCoreAudio", {
        // lifecycle and main control
        "CZQCoreAudio()", "~CZQCoreAudio()", "Init(HWND__*)", "Shutdown()", "IsInit()", "Start()", "Stop()",
        "IsStarted()", "Refresh()", "DestroyRender()", "RebuildRender()", "DestroyCapture()", "RebuildCapture()",
        // engines, stream devices and handles
        "GetCaptureEngine()", "GetRenderEngine()", "SetCaptureDevice(IMMDevice*)", "SetRenderDevice(IMMDevice*)",
        "GetCaptureDeviceCount()", "GetCaptureDevice(int)", "GetRenderDeviceCount()", "GetRenderDevice(int)",
        "GetNotifyClient()", "GetHwnd()", "GetSA()",
        // settings
        "SetBypass(bool)", "IsBypass()", "SetWaveScale(int)", "GetWaveScale()", "SetWhichFunction(int)",
        "GetWhichFunction()", "SetSpectrumView(unsigned int)", "GetSpectrumView()",
        // logging
        "LogInfo(wchar_t const*, ...)", "LogWarning(wchar_t const*, ...)", "LogError(wchar_t const*, ...)",
        "SetLog(CZqLog*)", "GetDbgTextFIFO()",
        // device notifications
        "DoDeviceChange(wchar_t const*, unsigned int)", "DoDeviceAdded(wchar_t const*)",
        "DoDeviceRemoved(wchar_t const*)", "RemoveDevice(wchar_t const*)", "DoRenderChanged(wchar_t const*)",
        "DoCaptureChanged(wchar_t const*)",
        // the maker's microphones
        "ClearDeviceZQ()", "FillDevicesZQ()", "FindHidDevice(_GUID, CStringW&)", "GetHidCaptureDeviceCount()",
        "GetHidCaptureDevice(int)",
        // product table (LoadConfig and IsDeviceInConfig are private, exported with the class)
        "LoadConfig()", "GetProductCount()", "GetProductNameByIndex(int)", "GetProductFriendlyNameByIndex(int)",
        "GetProductAPI(int)", "GetProductFW(int)", "GetEditorExeByProduct(CStringW const&)",
        "GetGroupId(CStringW const&)", "FindFriendlyNameDevice(unsigned char, unsigned char, CStringW const&)",
        "IsDeviceInConfig(CStringW const&)",
        // plug-ins (LoadPlugins is private)
        "LoadPlugins()", "GetPluginCount()", "GetPlugin(int)",
        // level meters and volume
        "GetPeakCapture()", "GetPeakCaptureDBFS()", "GetPeakRender()", "GetPeakRenderDBFS()",
        "SetCaptureVol(float)", "GetCaptureVol()", "SetRenderVol(float)", "GetRenderVol()", "MuteRender(bool)",
        "IsRenderMute()", "GetDataPeakIn(int, int)", "GetDataPeakOut(int, int)",
        // spectrum
        "GetSpectrumAmpIn(int)", "GetSpectrumAmpOut(int)", "GetSpectrumAmpPeakIn(int)", "GetSpectrumAmpPeakOut(int)",
    });
}

std::vector<std::string> DeviceMembers() {
    return Qualified("CWMAudioDevice", {
        "CWMAudioDevice()", "CWMAudioDevice(CWMAudioDevice const&)", "~CWMAudioDevice()",
        "operator=(CWMAudioDevice const&)", "Clear()", "GetDevice()", "SetDevice(IMMDevice*)", "GetName()",
        "SetName(wchar_t const*)", "GetFriendlyName()", "SetFriendlyName(wchar_t const*)", "GetManufacturer()",
        "SetManufacturer(wchar_t const*)", "GetProduct()", "SetProduct(wchar_t const*)", "GetSN()",
        "SetSN(wchar_t const*)", "GetHidContainerID()", "SetHidContainerID(_GUID)", "GetVerAPI()", "GetVerFW()",
        "InitVer(int)", "IsEditNow()", "MarkEditNow(bool)",
    });
}

std::vector<std::string> ConfigMembers() {
    return Qualified("_ZQ_CONFIG", {"_ZQ_CONFIG()", "_ZQ_CONFIG(_ZQ_CONFIG const&)", "~_ZQ_CONFIG()",
                                    "operator=(_ZQ_CONFIG const&)"});
}

// What libzqCoreAudio.so exports: the three classes' members and g_pCore.
std::vector<std::string> CoreLibraryExports() {
    std::vector<std::string> names = CoreMembers();
    for (const auto& list : {DeviceMembers(), ConfigMembers()}) names.insert(names.end(), list.begin(), list.end());
    names.push_back("g_pCore");
    return names;
}

// The zqSystem members the interface lists; on this platform they live in libzqplatform.so.
std::vector<std::string> SystemLibraryMembers() {
    return {"CZqLog::CZqLog(CZqLog const&)", "CZqLog::GetLogType()",
            "CSecurityAttributesRW::operator=(CSecurityAttributesRW const&)",
            "CSecurityAttributesRW::GetSecurityAttributes()"};
}

std::string Missing(const SymbolTable& table, const std::vector<std::string>& wanted) {
    std::string missing;
    for (const std::string& name : wanted) {
        if (table.names.count(name) == 0) missing += "\n  " + name;
    }
    return missing;
}

// ---- tests ---------------------------------------------------------------------------------

TEST(SymbolTable, CoreLibraryExportsEveryMemberOfTheInterfaceAndTheCorePointerAndNothingElse) {
    const SymbolTable table = ReadDynamicSymbols(ZQ_CORE_LIBRARY_FILE);
    ASSERT_TRUE(table.error.empty()) << table.error;
    const std::vector<std::string> exports = CoreLibraryExports();
    const std::string missing = Missing(table, exports);
    EXPECT_TRUE(missing.empty()) << ZQ_CORE_LIBRARY_FILE << " does not export:" << missing;
    const std::set<std::string> allowed(exports.begin(), exports.end());
    // Defined by the linker in every shared object, not by the library's code.
    const std::set<std::string> linkerDefined = {"_init", "_fini", "_edata", "_end", "__bss_start"};
    std::string leaked;
    for (const std::string& name : table.names) {
        if (allowed.count(name) == 0 && linkerDefined.count(name) == 0) leaked += "\n  " + name;
    }
    EXPECT_TRUE(leaked.empty()) << ZQ_CORE_LIBRARY_FILE << " exports what is not its interface:" << leaked;
}

// The platform stands in for the machine: it holds the inline members of the zqSystem classes
// the interface lists, and none of the system's own classes, which stay in the core.
TEST(SymbolTable, PlatformLibraryHoldsTheZqSystemMembersAndNoneOfTheCoresClasses) {
    const SymbolTable table = ReadDynamicSymbols(ZQ_PLATFORM_LIBRARY_FILE);
    ASSERT_TRUE(table.error.empty()) << table.error;
    const std::string missing = Missing(table, SystemLibraryMembers());
    EXPECT_TRUE(missing.empty()) << ZQ_PLATFORM_LIBRARY_FILE << " does not export:" << missing;
    std::string found;
    for (const std::string& name : table.names) {
        for (const char* cls : {"CZQCoreAudio", "CWMAudioDevice", "_ZQ_CONFIG", "g_pCore", "CAudioCapture",
                                "CAudioRender", "CAudioAnalyzer", "CAudioSharedMem", "CCircularBuffer",
                                "CMMNotificationClient", "CAudioSessionVolume"}) {
            if (name.find(cls) != std::string::npos) {
                found += "\n  " + name;
                break;
            }
        }
    }
    EXPECT_TRUE(found.empty()) << ZQ_PLATFORM_LIBRARY_FILE << " exports the core's symbols:" << found;
}

}  // namespace
