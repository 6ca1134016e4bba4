// Microphones whose bridge strings are not ASCII (UTF-8, as the bridges hand them over), on the
// simulated bridges, seen through the exported interface in the default "C" locale and in a
// UTF-8 one: listed, named from config.xml, paired with their capture endpoint, and read back
// right in every getter and in the log.
#include <gtest/gtest.h>

#include "endpoint_queries.h"
#include "microphone_machine.h"
#include "scoped_locale.h"

namespace {

using zqtest::MicrophoneMachineTest;

// The product table in UTF-8, as config.xml is written.
constexpr char kNonAsciiProducts[] = R"(<config>
  <product device_name="KV-1 USB Microphone" friendly_name="KV-1 Studio" api="5" fw="0x12" editor="kv1edit"/>
  <product device_name="KV-1 Mikrofon Süd" friendly_name="KV-1 Grüß 🎤" api="5" fw="0x12" editor="kv1edit"/>
</config>)";

class NonAsciiMicrophone : public MicrophoneMachineTest, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        locale = std::make_unique<zqtest::ScopedLocale>(GetParam());
        if (!locale->Set()) GTEST_SKIP() << "this system has no locale " << GetParam();
        MicrophoneMachineTest::SetUp();
        folder.Write("config.xml", kNonAsciiProducts);
    }
    void TearDown() override {
        if (locale->Set()) MicrophoneMachineTest::TearDown();
        locale.reset();
    }

    std::unique_ptr<zqtest::ScopedLocale> locale;
};

TEST_P(NonAsciiMicrophone, IsListedNamedAndPairedAndReadsBackRightInEveryGetterAndTheLog) {
    zqvm::BridgeDescription other;  // another maker's bridge, with a non-ASCII manufacturer
    other.manufacturer = "Gerätebau Ačme";
    other.product = "KV-1 USB Microphone";
    other.serial = "ACME-1";
    zqvm::AddBridge(other);
    const zqtest::Microphone microphones[] = {AddMicrophone("KV1-ÜMLAUT-1"),  // the serial
                                              AddMicrophone("KV1-SÜD-2", "KV-1 Mikrofon Süd")};  // and the product
    AddRender(48000, 2, zqvm::SampleFormat::Float32);
    core->Init(window->Handle());

    struct Expected {
        const wchar_t* serial;
        const wchar_t* product;
        const wchar_t* friendlyName;
        const char* serialBytes;
    };
    const Expected expected[] = {{L"KV1-ÜMLAUT-1", L"KV-1 USB Microphone", L"KV-1 Studio", "KV1-ÜMLAUT-1"},
                                 {L"KV1-SÜD-2", L"KV-1 Mikrofon Süd", L"KV-1 Grüß 🎤", "KV1-SÜD-2"}};
    ASSERT_EQ(core->GetHidCaptureDeviceCount(), 2u) << "the other maker's bridge is not listed";
    ASSERT_EQ(core->GetCaptureDeviceCount(), 2u);
    for (int i = 0; i < 2; ++i) {
        const Expected& e = expected[i];
        SCOPED_TRACE(e.serialBytes);
        const std::wstring endpointName = std::wstring(L"Microphone (") + e.serial + L")";
        // The microphone list and the capture engine's copy of it alike.
        for (CWMAudioDevice* record : {core->GetHidCaptureDevice(i), core->GetCaptureDevice(i)}) {
            ASSERT_NE(record, nullptr);
            EXPECT_EQ(record->GetSN(), CStringW(e.serial));
            EXPECT_EQ(record->GetProduct(), CStringW(e.product));
            EXPECT_EQ(record->GetManufacturer(), CStringW(L"KESTRAVON"));
            EXPECT_EQ(record->GetFriendlyName(), CStringW(e.friendlyName)) << "named from config.xml";
            const GUID container = ContainerOf(e.serialBytes);
            EXPECT_EQ(record->GetHidContainerID(), container) << "its container read from its instance key";
            EXPECT_EQ(zqtest::IdOf(record->GetDevice()), microphones[i].endpoint) << "paired with its capture endpoint";
            EXPECT_EQ(record->GetName(), CStringW(endpointName.c_str()));
        }
        const std::wstring n = std::to_wstring(i + 1);
        EXPECT_TRUE(recorder->Contains(L"CoreAudio: HID_UART_GET_SERIAL_STR [" + n + L"]: " + e.serial));
        EXPECT_TRUE(recorder->Contains(L"CoreAudio: HID_UART_GET_PRODUCT_STR [" + n + L"]: " + e.product));
        EXPECT_TRUE(recorder->Contains(L"CoreAudio: KESTRAVON Mic [" + n + L"]: SN: " + e.serial + L", Product: " +
                                       e.product + L", Manufacturer: KESTRAVON, FriendlyName: " + e.friendlyName +
                                       L", API:5, FW:12"));
    }
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: HID_UART_GET_MANUFACTURER_STR [0]: Gerätebau Ačme"));
}

INSTANTIATE_TEST_SUITE_P(Locales, NonAsciiMicrophone, ::testing::ValuesIn(zqtest::kHostLocales),
                         [](const ::testing::TestParamInfo<const char*>& param) {
                             return param.index == 0 ? std::string("DefaultC") : std::string("CUtf8");
                         });

}  // namespace
