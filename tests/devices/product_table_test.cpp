// The product table: where config.xml is found, how its entries are read, and the queries.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <tuple>

#include "device_test_support.h"
#include "devices/ProductTable.h"
#include "log_recorder.h"
#include "zqCoreAudio.h"

namespace {

using zqtest::HostModuleScope;
using zqtest::LogRecorder;
using zqtest::ScratchFolder;

const char kTwoProducts[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<config>\n"
    "  <product device_name=\"KV-1 USB\" friendly_name=\"KV Studio\" api=\"1\" fw=\"0x20\" editor=\"KvEdit.exe\"/>\n"
    "  <product device_name=\"KV-2 USB\" friendly_name=\"KV Stage\" api=\"2\" fw=\"7\" editor=\"KvStage.exe\"/>\n"
    "</config>\n";

class ProductTable : public ::testing::Test {
protected:
    // Puts config.xml beside the host executable and lets the core read it.
    void Load(const std::string& bytes) {
        folder.Write("config.xml", bytes);
        zqtest::LoadConfig(core);
    }
    // The entry at an index as the getters give it: product, friendly name, api, fw.
    using Entry = std::tuple<std::wstring, std::wstring, int, int>;
    Entry EntryAt(int index) {
        return {core.GetProductNameByIndex(index).GetString(), core.GetProductFriendlyNameByIndex(index).GetString(),
                core.GetProductAPI(index), core.GetProductFW(index)};
    }

    ScratchFolder folder;
    HostModuleScope host{folder.Path()};
    CZQCoreAudio core;
};

TEST_F(ProductTable, ReadsEveryAttributeOfEachEntryInFileOrderAndNothingOutsideThem) {
    Load(kTwoProducts);
    ASSERT_EQ(core.GetProductCount(), 2);
    EXPECT_EQ(EntryAt(0), Entry(L"KV-1 USB", L"KV Studio", 1, 0x20));
    EXPECT_EQ(core.GetEditorExeByProduct(L"KV Studio"), L"KvEdit.exe");
    EXPECT_EQ(EntryAt(1), Entry(L"KV-2 USB", L"KV Stage", 2, 7));
    EXPECT_EQ(core.GetEditorExeByProduct(L"KV Stage"), L"KvStage.exe");
    // Indexes outside the table give empty texts and zeros.
    for (int index : {-1, 2, INT_MAX, INT_MIN}) EXPECT_EQ(EntryAt(index), Entry()) << index;
}

// The file is looked for beside the host executable, and logged; a missing one leaves the table
// empty and logs nothing more.
TEST_F(ProductTable, LogsTheFileItLooksForBesideTheHostExecutableWhetherOrNotItIsThere) {
    LogRecorder recorder;
    core.SetLog(&recorder.Log());
    const std::vector<std::wstring> expected = {
        L"CoreAudio: load config.xml", L"CoreAudio: config.xml path " + zqtest::Wide(folder.Path() / "config.xml")};
    zqtest::LoadConfig(core);  // nothing written
    EXPECT_EQ(core.GetProductCount(), 0);
    EXPECT_EQ(recorder.Texts(), expected);
    recorder.Clear();
    Load(kTwoProducts);
    EXPECT_EQ(core.GetProductCount(), 2);
    EXPECT_EQ(recorder.Texts(), expected);
    core.SetLog(nullptr);
}

TEST(ProductTableLocation, WithoutAModuleNameNothingIsLoadedAndThePathIsNotLogged) {
    ScratchFolder cwd;
    cwd.Write("config.xml", kTwoProducts);
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(cwd.Path());  // a config.xml in the current folder must not be read
    {
        HostModuleScope noModule(std::wstring{});
        LogRecorder recorder;
        CZQCoreAudio core;
        core.SetLog(&recorder.Log());
        zqtest::LoadConfig(core);
        EXPECT_EQ(core.GetProductCount(), 0);
        EXPECT_EQ(recorder.Texts(), std::vector<std::wstring>{L"CoreAudio: load config.xml"});
        core.SetLog(nullptr);
    }
    std::filesystem::current_path(previous);
}

TEST_F(ProductTable, VersionsAreReadAsIntegersAndKeepTheirLowEightBits) {
    struct Case {
        const char* text;
        int expected;
    };
    const Case cases[] = {
        {"0x1F", 31}, {"300", 44},        {"255", 255},         {"256", 0},           {"-1", 255},
        {"  12", 12}, {"+7", 7},          {"0X1f", 31},         {"12abc", 12},        {"abc", 0},
        {"", 0},      {"0x1FF", 255},     {"1e3", 1},           {"-0x10", 240},       {"99999999999", 255},
        {"-99999999999", 0}, {"0x", 0},   {"\t\n 9", 9},        {"077", 77},          {"-", 0},
    };
    std::string xml = "<config>";
    for (const Case& c : cases) xml += std::string("<p api=\"") + c.text + "\" fw=\"" + c.text + "\"/>";
    xml += "<p/></config>";  // no attributes: versions 0
    Load(xml);
    ASSERT_EQ(core.GetProductCount(), static_cast<int>(std::size(cases)) + 1);
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(core.GetProductAPI(static_cast<int>(i)), cases[i].expected) << "api=\"" << cases[i].text << "\"";
        EXPECT_EQ(core.GetProductFW(static_cast<int>(i)), cases[i].expected) << "fw=\"" << cases[i].text << "\"";
    }
    EXPECT_EQ(core.GetProductAPI(static_cast<int>(std::size(cases))), 0);
}

TEST_F(ProductTable, EveryChildNodeOfConfigMakesAnEntryWhateverItsName) {
    Load("<config>"
         "<product device_name=\"A\"/>"
         "<microphone device_name=\"B\"><nested device_name=\"ignored\"/>content</microphone>"
         "<!-- comments are not kept -->"
         "<?pi not kept either?>"
         "loose text"
         "<![CDATA[cdata]]>"
         "<x device_name=\"C\" unknown=\"ignored\"/>"
         "</config>");
    ASSERT_EQ(core.GetProductCount(), 5);
    EXPECT_EQ(core.GetProductNameByIndex(0), L"A");
    EXPECT_EQ(core.GetProductNameByIndex(1), L"B");
    for (int textNode : {2, 3}) EXPECT_EQ(EntryAt(textNode), Entry()) << textNode;  // the text and the CDATA section
    EXPECT_EQ(core.GetProductNameByIndex(4), L"C");
}

TEST_F(ProductTable, EachLoadAppendsToTheTable) {
    Load(kTwoProducts);
    Load(kTwoProducts);
    ASSERT_EQ(core.GetProductCount(), 4);
    EXPECT_EQ(core.GetProductNameByIndex(2), L"KV-1 USB");
    EXPECT_EQ(core.GetGroupId(L"KV Stage"), 2);  // the first of the two wins
}

TEST_F(ProductTable, SearchesIgnoreAsciiLetterCaseAndTheFirstMatchWins) {
    Load("<config>"
         "<p device_name=\"KV-1 USB\" friendly_name=\"KV Studio\" api=\"1\" fw=\"2\" editor=\"First.exe\"/>"
         "<p device_name=\"kv-1 usb\" friendly_name=\"KV Studio Twin\" api=\"1\" fw=\"2\" editor=\"Second.exe\"/>"
         "<p device_name=\"KV-1 USB\" friendly_name=\"KV Studio Mk2\" api=\"3\" fw=\"4\" editor=\"Mk2.exe\"/>"
         "<p device_name=\"\xC3\x84rger\" friendly_name=\"\xC3\x84rger\" api=\"0\" fw=\"0\"/>"
         "</config>");
    EXPECT_EQ(core.FindFriendlyNameDevice(1, 2, L"KV-1 USB"), L"KV Studio");
    EXPECT_EQ(core.FindFriendlyNameDevice(1, 2, L"KV-1 usb"), L"KV Studio");
    EXPECT_EQ(core.FindFriendlyNameDevice(3, 4, L"kv-1 USB"), L"KV Studio Mk2");
    EXPECT_TRUE(core.FindFriendlyNameDevice(1, 4, L"KV-1 USB").IsEmpty());  // versions compare exactly
    EXPECT_TRUE(core.FindFriendlyNameDevice(1, 2, L"KV-1").IsEmpty());

    EXPECT_EQ(core.GetGroupId(L"KV STUDIO MK2"), 3);
    EXPECT_EQ(core.GetGroupId(L"kv studio twin"), 2);
    EXPECT_EQ(core.GetGroupId(L"Unknown"), 0);
    EXPECT_EQ(core.GetEditorExeByProduct(L"kv studio"), L"First.exe");

    // Only ASCII letters fold: the C runtime's default locale.
    EXPECT_EQ(core.GetGroupId(L"\u00C4rger"), 4);
    EXPECT_EQ(core.GetGroupId(L"\u00E4rger"), 0);
    EXPECT_EQ(core.GetGroupId(L"\u00C4RGER"), 4);
}

TEST_F(ProductTable, ProductStringsAndFriendlyNamesAreDifferentKeys) {
    Load(kTwoProducts);
    // The editor and the group are found by the name the host shows, not the USB product string.
    EXPECT_TRUE(core.GetEditorExeByProduct(L"KV-1 USB").IsEmpty());
    EXPECT_EQ(core.GetGroupId(L"KV-1 USB"), 0);
    EXPECT_TRUE(zqtest::IsDeviceInConfig(core, L"kv-1 usb"));
    EXPECT_FALSE(zqtest::IsDeviceInConfig(core, L"KV Studio"));
    // A product known to the table with versions no microphone reports: in the table, unnamed.
    EXPECT_TRUE(zqtest::IsDeviceInConfig(core, L"KV-2 USB"));
    EXPECT_TRUE(core.FindFriendlyNameDevice(0, 0, L"KV-2 USB").IsEmpty());
}

// Without a table every query answers nothing; an entry without names then matches empty keys.
TEST_F(ProductTable, WithoutATableEveryQueryAnswersNothingAndAnEntryWithEmptyNamesMatchesEmptyKeys) {
    zqtest::LoadConfig(core);
    EXPECT_EQ(core.GetProductCount(), 0);
    EXPECT_EQ(core.GetGroupId(L""), 0);
    EXPECT_TRUE(core.GetEditorExeByProduct(L"").IsEmpty());
    EXPECT_TRUE(core.FindFriendlyNameDevice(0, 0, L"").IsEmpty());
    EXPECT_FALSE(zqtest::IsDeviceInConfig(core, L""));
    Load("<config><p/></config>");
    EXPECT_EQ(core.GetGroupId(L""), 1);
    EXPECT_TRUE(zqtest::IsDeviceInConfig(core, L""));
}

// ---- files that give no entries ----

// Only a top-level config element spelled exactly counts. For the malformed files the parser
// stops at the error with the entries before it in place: they must not be taken.
TEST_F(ProductTable, OtherRootsAndMalformedFilesLeaveTheTableEmpty) {
    for (const char* document : {"<Config><p device_name=\"A\"/></Config>",
                                 "<root><config><p device_name=\"A\"/></config></root>", "<config/>",
                                 "<config><p device_name=\"A\"></config>", "<config><p device_name=A/></config>"}) {
        CZQCoreAudio fresh;
        folder.Write("config.xml", document);
        zqtest::LoadConfig(fresh);
        EXPECT_EQ(fresh.GetProductCount(), 0) << '"' << document << '"';
    }
}

}  // namespace
