// Discovery of the maker's microphones against simulated bridges, the registry and the virtual
// audio engine: which HID devices are listed, with what, and how they pair with their
// capture endpoints.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "endpoint_queries.h"
#include "microphone_machine.h"

namespace {

using zqtest::MicrophoneMachineTest;

class Discovery : public MicrophoneMachineTest {
protected:
    zqvm::BridgeId AddBridge(const char* manufacturer, const char* product, const char* serial) {
        zqvm::BridgeDescription d;
        d.manufacturer = manufacturer;
        d.product = product;
        d.serial = serial;
        return zqvm::AddBridge(d);
    }
    size_t StringQueriesOf(int index) {
        const std::string prefix = "HidUart_GetString(" + std::to_string(index) + ",";
        const auto calls = zqvm::BridgeCalls();
        return static_cast<size_t>(std::count_if(calls.begin(), calls.end(), [&](const std::string& call) {
            return call.rfind(prefix, 0) == 0;
        }));
    }
};

TEST_F(Discovery, KeepsOnlyTheMakersBridgesWhoseProductIsInTheTable) {
    AddBridge("LOGITECH", "KV-1 USB Microphone", "LOGI-1");            // another maker, any case
    AddBridge("Silicon Laboratories", "KV-1 USB Microphone", "SILABS-1");  // the chip vendor's string
    AddBridge("KESTRAVON", "Unknown Mic", "UNKNOWN-1");                // not in the product table
    AddBridge("kestravon", "kv-2 usb microphone", "KV2-1");            // letter case does not matter
    AddBridge("Acme", "KV-1 USB Microphone", "ACME-1");                // neither of ours
    core->Init(window->Handle());

    EXPECT_EQ(ListedSerials(), (std::vector<std::wstring>{L"SILABS-1", L"KV2-1"}));
    // The other maker's device: its manufacturer read and logged, nothing else.
    EXPECT_EQ(StringQueriesOf(0), 1u);
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: HID_UART_GET_MANUFACTURER_STR [0]: LOGITECH"));
    EXPECT_EQ(recorder->TextsContaining(L"_STR [0]").size(), 1u);
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: HidUart_GetNumDevices: 5"));
    // The capture engine lists copies of exactly these.
    EXPECT_EQ(core->GetCaptureDeviceCount(), 2u);
    EXPECT_NE(core->GetCaptureDevice(0), core->GetHidCaptureDevice(0));
    EXPECT_EQ(core->GetCaptureDevice(0)->GetSN(), CStringW(L"SILABS-1"));
    EXPECT_EQ(core->GetHidCaptureDevice(-1), nullptr);
    EXPECT_EQ(core->GetHidCaptureDevice(2), nullptr);
}

TEST_F(Discovery, AReadTimeOutDoesNotExcludeADeviceButOtherFailuresDo) {
    zqvm::BridgeDescription timedOutWritten;
    timedOutWritten.product = "KV-1 USB Microphone";
    timedOutWritten.serial = zqvm::BridgeString("TIMEOUT-WRITTEN", HID_UART_READ_TIMED_OUT, true);
    zqvm::AddBridge(timedOutWritten);
    zqvm::BridgeDescription timedOutEmpty = timedOutWritten;
    timedOutEmpty.serial = zqvm::BridgeString("TIMEOUT-EMPTY", HID_UART_READ_TIMED_OUT, false);
    zqvm::AddBridge(timedOutEmpty);
    zqvm::BridgeDescription readError = timedOutWritten;
    readError.serial = zqvm::BridgeString("READ-ERROR", HID_UART_READ_ERROR, true);
    zqvm::AddBridge(readError);
    zqvm::BridgeDescription productTimedOut = timedOutWritten;
    productTimedOut.serial = "PRODUCT-TIMEOUT";
    productTimedOut.product = zqvm::BridgeString("KV-1 USB Microphone", HID_UART_READ_TIMED_OUT, true);
    zqvm::AddBridge(productTimedOut);
    core->Init(window->Handle());

    EXPECT_EQ(ListedSerials(), (std::vector<std::wstring>{L"TIMEOUT-WRITTEN", L"PRODUCT-TIMEOUT"}));
    // A timed-out string is not logged; a read one is.
    EXPECT_TRUE(recorder->TextsContaining(L"HID_UART_GET_SERIAL_STR [0]").empty());
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: HID_UART_GET_SERIAL_STR [3]: PRODUCT-TIMEOUT"));
}

// Serial numbers are compared without regard to letter case: a second bridge whose serial
// differs only in case is the same microphone, and is not even asked for its versions. A later
// discovery adds only the new microphones and leaves the records already listed as they are.
TEST_F(Discovery, ASerialInOtherLetterCaseIsNotListedTwiceAndALaterRunAddsOnlyNewOnes) {
    AddBridge("KESTRAVON", "KV-1 USB Microphone", "KV1-ab");
    const zqvm::BridgeId twin = AddBridge("KESTRAVON", "KV-1 USB Microphone", "kv1-AB");
    core->Init(window->Handle());
    EXPECT_EQ(ListedSerials(), std::vector<std::wstring>{L"KV1-ab"});
    EXPECT_EQ(zqvm::GetBridgeState(twin)->opens, 0) << "the first one wins, as one after the other";
    CWMAudioDevice* first = core->GetHidCaptureDevice(0);
    AddBridge("KESTRAVON", "KV-1 USB Microphone", "Kv1-Ab");
    AddMicrophone("KV1-B");
    EXPECT_TRUE(core->FillDevicesZQ());
    EXPECT_EQ(ListedSerials(), (std::vector<std::wstring>{L"KV1-ab", L"KV1-B"}));
    EXPECT_EQ(core->GetHidCaptureDevice(0), first);
}

// Two discoveries at once (a microphone plugged in while the host refreshes): each bridge is
// queried by one of them at a time, so every microphone is listed once, fully described.
TEST_F(Discovery, TwoDiscoveriesAtOnceListEachMicrophoneOnceWithItsVersionsAndName) {
    AddMicrophone("KV1-A");
    AddMicrophone("KV1-B");
    core->Init(window->Handle());
    for (int round = 0; round < 20; ++round) {
        core->ClearDeviceZQ();
        std::atomic<int> ready{0};
        auto discover = [&] {
            ready.fetch_add(1);
            while (ready.load() < 2) std::this_thread::yield();  // both start together
            core->FillDevicesZQ();
        };
        std::thread other(discover);
        discover();
        other.join();
        ASSERT_EQ(ListedSerials(), (std::vector<std::wstring>{L"KV1-A", L"KV1-B"})) << "round " << round;
        for (unsigned int i = 0; i < 2; ++i) {
            CWMAudioDevice* record = core->GetHidCaptureDevice(static_cast<int>(i));
            EXPECT_EQ(record->GetVerAPI(), 0x05) << "round " << round;
            EXPECT_EQ(record->GetVerFW(), 0x12) << "round " << round;
            EXPECT_EQ(record->GetFriendlyName(), CStringW(L"KV-1 Studio")) << "round " << round;
        }
    }
}

TEST_F(Discovery, VersionsChooseTheFriendlyNameAndAFailedQueryLeavesZeros) {
    zqtest::Microphone studio = AddMicrophone("KV1-STUDIO");
    zqvm::BridgeDescription mute = studio.description;
    mute.serial = "KV1-MUTE";
    mute.containerId.reset();
    mute.versionReply.clear();  // never answers
    zqvm::AddBridge(mute);
    core->Init(window->Handle());

    ASSERT_EQ(core->GetHidCaptureDeviceCount(), 2u);
    CWMAudioDevice* a = core->GetHidCaptureDevice(0);
    EXPECT_EQ(a->GetVerAPI(), 0x05);
    EXPECT_EQ(a->GetVerFW(), 0x12);
    EXPECT_EQ(a->GetFriendlyName(), CStringW(L"KV-1 Studio"));
    EXPECT_EQ(a->GetProduct(), CStringW(L"KV-1 USB Microphone"));
    EXPECT_EQ(a->GetManufacturer(), CStringW(L"KESTRAVON"));
    CWMAudioDevice* unanswered = core->GetHidCaptureDevice(1);
    EXPECT_EQ(unanswered->GetVerAPI(), 0);
    EXPECT_EQ(unanswered->GetVerFW(), 0);
    EXPECT_TRUE(unanswered->GetFriendlyName().IsEmpty());
    EXPECT_TRUE(recorder->Contains(L"CoreAudio: KESTRAVON Mic [0]: SN: KV1-STUDIO, Product: KV-1 USB Microphone, "
                                   L"Manufacturer: KESTRAVON, FriendlyName: KV-1 Studio, API:5, FW:12"));
}

TEST_F(Discovery, PairsEachMicrophoneWithTheCaptureEndpointOfItsContainer) {
    // Endpoints of other containers come first, and a disabled one of the right container.
    AddCapture(48000, 2, zqvm::SampleFormat::Float32, zqvm::CaptureSource::Silence(), L"Line In");
    zqvm::EndpointSpec disabled;
    disabled.flow = eCapture;
    disabled.name = L"Disabled twin";
    disabled.container = ContainerOf("KV1-PAIRED");
    disabled.state = DEVICE_STATE_DISABLED;
    ASSERT_FALSE(zqvm::AddEndpoint(disabled).empty());
    const zqtest::Microphone paired = AddMicrophone("KV1-PAIRED");
    core->Init(window->Handle());

    ASSERT_EQ(core->GetHidCaptureDeviceCount(), 1u);
    CWMAudioDevice* record = core->GetHidCaptureDevice(0);
    EXPECT_EQ(record->GetName(), CStringW(L"Microphone (KV1-PAIRED)"));
    ASSERT_NE(record->GetDevice(), nullptr);
    EXPECT_EQ(zqtest::IdOf(record->GetDevice()), paired.endpoint);
    EXPECT_TRUE(IsEqualGUID(record->GetHidContainerID(), ContainerOf("KV1-PAIRED")));

    // FindHidDevice hands its reference to the caller and leaves the name alone on no match.
    const long before = zqvm::EndpointRefCount(paired.endpoint);
    CStringW name = L"untouched";
    IMMDevice* found = core->FindHidDevice(ContainerOf("KV1-PAIRED"), name);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(name, CStringW(L"Microphone (KV1-PAIRED)"));
    EXPECT_EQ(zqvm::EndpointRefCount(paired.endpoint), before + 1);
    found->Release();
    EXPECT_EQ(zqvm::EndpointRefCount(paired.endpoint), before);
    name = L"untouched";
    EXPECT_EQ(core->FindHidDevice(ContainerOf("nobody"), name), nullptr);
    EXPECT_EQ(name, CStringW(L"untouched"));
}

TEST_F(Discovery, WithoutAReadableContainerIdTheMicrophoneIsListedUnpaired) {
    // No key at all, and a value that is read but spells no GUID; the values that are not read
    // (other types, no terminating NUL) take the no-key path, as the registry tests show.
    const std::wstring key = L"SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_10C4&PID_EAB0\\";
    const zqtest::Microphone noKey = AddMicrophone("KV1-NOKEY");
    zqvm::RegistryDeleteKey(HKEY_LOCAL_MACHINE, key + L"KV1-NOKEY");
    AddMicrophone("KV1-NOTGUID");
    zqvm::RegistrySetString(HKEY_LOCAL_MACHINE, key + L"KV1-NOTGUID", L"ContainerID", L"{not-a-guid}");
    core->Init(window->Handle());

    ASSERT_EQ(core->GetHidCaptureDeviceCount(), 2u);
    for (unsigned int i = 0; i < 2; ++i) {
        CWMAudioDevice* record = core->GetHidCaptureDevice(static_cast<int>(i));
        EXPECT_TRUE(IsEqualGUID(record->GetHidContainerID(), GUID_NULL)) << i;
        EXPECT_EQ(record->GetDevice(), nullptr) << i;
        EXPECT_TRUE(record->GetName().IsEmpty()) << i;
    }
    EXPECT_EQ(core->GetCaptureDeviceCount(), 2u);  // copied all the same
    EXPECT_EQ(zqvm::RegistryOpenHandleCount(), 0u);
    EXPECT_EQ(zqvm::EndpointRefCount(noKey.endpoint), 0);
}

TEST_F(Discovery, AMarkedRecordSurvivesClearingAsTheSamePointerAndIsNotListedTwice) {
    AddMicrophone("KV1-A");
    AddMicrophone("KV1-B");
    core->Init(window->Handle());
    CWMAudioDevice* marked = core->GetHidCaptureDevice(1);
    marked->MarkEditNow(true);
    core->ClearDeviceZQ();
    ASSERT_EQ(core->GetHidCaptureDeviceCount(), 1u);
    EXPECT_EQ(core->GetHidCaptureDevice(0), marked);
    core->FillDevicesZQ();
    EXPECT_EQ(ListedSerials(), (std::vector<std::wstring>{L"KV1-B", L"KV1-A"}));
    EXPECT_EQ(core->GetHidCaptureDevice(0), marked);
    // Shutdown leaves the marked record to the host; it deletes it when done editing.
    core->Shutdown();
    ASSERT_EQ(core->GetHidCaptureDeviceCount(), 1u);
    EXPECT_EQ(core->GetHidCaptureDevice(0), marked);
    delete marked;
}

TEST_F(Discovery, WithoutAProductTableNoMicrophoneIsListed) {
    hostModule = std::make_unique<zqtest::HostModuleScope>(std::wstring());  // no module name: no config.xml
    AddMicrophone("KV1-A");
    core->Init(window->Handle());
    EXPECT_EQ(core->GetHidCaptureDeviceCount(), 0u);
    EXPECT_EQ(core->GetCaptureDeviceCount(), 0u);
}

}  // namespace
