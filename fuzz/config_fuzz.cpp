// libFuzzer target: any bytes as config.xml. Each input is read twice, from memory by the
// product table parser and from a file beside the host executable by the core's own loader;
// the two must agree, and the core's product queries are then asked about the names in the
// table and about texts taken from the input, against a plain reimplementation of their rules
// (first match wins, ASCII letters fold, versions compare exactly).
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "devices/ProductTable.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/module_path.h"

namespace {

[[noreturn]] void Fail(const char* what, const char* file, int line) {
    std::fprintf(stderr, "config_fuzz: check failed: %s (%s:%d)\n", what, file, line);
    std::abort();
}
#define FUZZ_CHECK(condition) ((condition) ? static_cast<void>(0) : Fail(#condition, __FILE__, __LINE__))

// The core's loader and IsDeviceInConfig are private; an explicit instantiation may name them
// (access is not checked there), and the friends defined in it call them.
void CallLoadConfig(CZQCoreAudio& core);
bool CallIsDeviceInConfig(CZQCoreAudio& core, const CStringW& product);

template <void (CZQCoreAudio::*Load)(), bool (CZQCoreAudio::*InConfig)(const CStringW&)>
struct CorePrivateMembers {
    friend void CallLoadConfig(CZQCoreAudio& core) { (core.*Load)(); }
    friend bool CallIsDeviceInConfig(CZQCoreAudio& core, const CStringW& product) { return (core.*InConfig)(product); }
};
template struct CorePrivateMembers<&CZQCoreAudio::LoadConfig, &CZQCoreAudio::IsDeviceInConfig>;

// A folder of our own under the temporary folder that acts as the host executable's folder for
// the whole run; config.xml is rewritten there for each input. Removed at exit.
class HostFolder {
public:
    HostFolder() {
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/zq-config-fuzz-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) Fail("mkdtemp", __FILE__, __LINE__);
        m_folder = pattern;
        m_config = m_folder + "/config.xml";
        zqvm::SetHostModulePath(pugi::as_wide(m_folder + "/host"));
    }
    ~HostFolder() {
        std::remove(m_config.c_str());
        std::remove(m_folder.c_str());
    }
    HostFolder(const HostFolder&) = delete;
    HostFolder& operator=(const HostFolder&) = delete;

    // A new file each time rather than the old one truncated: on ext4 rewriting a truncated
    // file forces it to disk at close, which would make the run wait on the disk.
    void WriteConfig(const uint8_t* data, size_t size) const {
        std::remove(m_config.c_str());
        std::FILE* file = std::fopen(m_config.c_str(), "wb");
        if (file == nullptr) Fail("cannot create config.xml", __FILE__, __LINE__);
        const bool written = size == 0 || std::fwrite(data, 1, size, file) == size;
        if (std::fclose(file) != 0 || !written) Fail("cannot write config.xml", __FILE__, __LINE__);
    }

private:
    std::string m_folder;
    std::string m_config;
};

// The comparison the queries promise: ASCII letters fold, everything else by code, up to the
// first NUL.
bool SameText(const CStringW& a, const CStringW& b) {
    auto fold = [](wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c - L'A' + L'a') : c; };
    const wchar_t* pa = a.GetString();
    const wchar_t* pb = b.GetString();
    for (;; ++pa, ++pb) {
        if (fold(*pa) != fold(*pb)) return false;
        if (*pa == L'\0') return true;
    }
}

// The same text with the case of its ASCII letters swapped: the queries must not notice.
CStringW SwapAsciiCase(const CStringW& text) {
    std::wstring out(text.GetString(), static_cast<size_t>(text.GetLength()));
    for (wchar_t& c : out) {
        if (c >= L'a' && c <= L'z') {
            c = static_cast<wchar_t>(c - L'a' + L'A');
        } else if (c >= L'A' && c <= L'Z') {
            c = static_cast<wchar_t>(c - L'A' + L'a');
        }
    }
    return CStringW(out.c_str(), static_cast<int>(out.size()));
}

int FirstFriendlyMatch(const std::vector<_ZQ_CONFIG>& table, const CStringW& friendly) {
    for (size_t i = 0; i < table.size(); ++i) {
        if (SameText(table[i].strFriendlyName, friendly)) return static_cast<int>(i);
    }
    return -1;
}

int FirstDeviceMatch(const std::vector<_ZQ_CONFIG>& table, const CStringW& product) {
    for (size_t i = 0; i < table.size(); ++i) {
        if (SameText(table[i].strDeviceName, product)) return static_cast<int>(i);
    }
    return -1;
}

int FirstVersionMatch(const std::vector<_ZQ_CONFIG>& table, unsigned char api, unsigned char fw,
                      const CStringW& product) {
    for (size_t i = 0; i < table.size(); ++i) {
        const _ZQ_CONFIG& e = table[i];
        if (e.nApi == api && e.nFw == fw && SameText(e.strDeviceName, product)) return static_cast<int>(i);
    }
    return -1;
}

// Every query keyed by a text, against the reference rules.
void CheckTextQueries(CZQCoreAudio& core, const std::vector<_ZQ_CONFIG>& table, const CStringW& text,
                      unsigned char api, unsigned char fw) {
    const int friendly = FirstFriendlyMatch(table, text);
    FUZZ_CHECK(core.GetGroupId(text) == friendly + 1);
    const CStringW editor = core.GetEditorExeByProduct(text);
    FUZZ_CHECK(friendly < 0 ? editor.IsEmpty() : editor == table[static_cast<size_t>(friendly)].strEditor);
    FUZZ_CHECK(CallIsDeviceInConfig(core, text) == (FirstDeviceMatch(table, text) >= 0));
    const int version = FirstVersionMatch(table, api, fw, text);
    const CStringW name = core.FindFriendlyNameDevice(api, fw, text);
    FUZZ_CHECK(version < 0 ? name.IsEmpty() : name == table[static_cast<size_t>(version)].strFriendlyName);
}

// Texts the input itself spells: its bytes one character each (NULs, controls and all), and
// its bytes read as UTF-8 the way pugixml reads attribute values.
std::vector<CStringW> TextsFromInput(const uint8_t* data, size_t size) {
    const size_t n = size < 128 ? size : 128;
    std::wstring bytes;
    for (size_t i = 0; i < n; ++i) bytes += static_cast<wchar_t>(data[i]);
    const std::string narrow(reinterpret_cast<const char*>(data), n);
    const std::wstring utf8 = pugi::as_wide(narrow.c_str());
    return {CStringW(bytes.c_str(), static_cast<int>(bytes.size())),
            CStringW(utf8.c_str(), static_cast<int>(utf8.size())), CStringW()};
}

constexpr size_t kCheckedEntries = 64;  // per-entry checks are linear in the table: bound them

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const HostFolder folder;

    // From memory: appends to what the table already holds, or leaves it untouched.
    std::vector<_ZQ_CONFIG> parsed(1);
    parsed[0].strDeviceName = L"sentinel";
    parsed[0].nApi = 7;
    const bool wellFormed = ParseProductTable(data, size, parsed);
    FUZZ_CHECK(parsed[0].strDeviceName == L"sentinel" && parsed[0].nApi == 7 && parsed[0].strFriendlyName.IsEmpty());
    if (!wellFormed) FUZZ_CHECK(parsed.size() == 1);
    parsed.erase(parsed.begin());

    // From the file, as Init loads it.
    folder.WriteConfig(data, size);
    CZQCoreAudio core;
    CallLoadConfig(core);
    FUZZ_CHECK(core.GetProductCount() == static_cast<int>(parsed.size()));
    for (size_t i = 0; i < parsed.size(); ++i) {
        const int index = static_cast<int>(i);
        const _ZQ_CONFIG& e = parsed[i];
        FUZZ_CHECK(core.GetProductNameByIndex(index) == e.strDeviceName);
        FUZZ_CHECK(core.GetProductFriendlyNameByIndex(index) == e.strFriendlyName);
        FUZZ_CHECK(core.GetProductAPI(index) == e.nApi);
        FUZZ_CHECK(core.GetProductFW(index) == e.nFw);
    }
    for (int index : {-1, static_cast<int>(parsed.size()), INT_MAX, INT_MIN}) {
        FUZZ_CHECK(core.GetProductNameByIndex(index).IsEmpty());
        FUZZ_CHECK(core.GetProductFriendlyNameByIndex(index).IsEmpty());
        FUZZ_CHECK(core.GetProductAPI(index) == 0 && core.GetProductFW(index) == 0);
    }

    // Queries about the table's own names, as written and with their letter case swapped.
    for (size_t i = 0; i < parsed.size() && i < kCheckedEntries; ++i) {
        const _ZQ_CONFIG& e = parsed[i];
        const int group = core.GetGroupId(e.strFriendlyName);
        FUZZ_CHECK(group >= 1 && group <= static_cast<int>(i) + 1);
        FUZZ_CHECK(core.GetGroupId(SwapAsciiCase(e.strFriendlyName)) == group);
        CheckTextQueries(core, parsed, e.strFriendlyName, e.nApi, e.nFw);
        CheckTextQueries(core, parsed, e.strDeviceName, e.nApi, e.nFw);
        CheckTextQueries(core, parsed, SwapAsciiCase(e.strDeviceName), e.nApi, e.nFw);
    }
    // And about texts taken from the input.
    const unsigned char api = size > 0 ? data[0] : 0;
    const unsigned char fw = size > 1 ? data[1] : 0;
    for (const CStringW& text : TextsFromInput(data, size)) CheckTextQueries(core, parsed, text, api, fw);
    return 0;
}
