// The version queries of one discovery run side by side, one per bridge: every bridge of the
// discovery is open at once, and the records, their order and the log lines are those of one
// bridge after the other.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "microphone_machine.h"

namespace {

using zqtest::MicrophoneMachineTest;

class ParallelVersionQueries : public MicrophoneMachineTest {};

TEST_F(ParallelVersionQueries, EveryBridgeIsQueriedAtOnceAndListedInOrder) {
    const std::vector<std::string> serials = {"KV1-A", "KV1-B", "KV1-C", "KV1-D"};
    for (const std::string& serial : serials) AddMicrophone(serial);
    // The second answers as the other KV-1 variant, so each record must get its own versions.
    std::vector<zqvm::PresentBridge> present = zqvm::PresentBridges();
    present[1].description.versionReply = {0x00, 0x05, 0x11};
    ASSERT_TRUE(zqvm::ChangeBridge(present[1].id, present[1].description));
    core->Init(window->Handle());
    core->ClearDeviceZQ();
    recorder->Clear();

    // Reads wait for their 150 ms time-out in real time, so queries that overlap are seen open
    // together; one after the other never has more than one bridge open.
    zqvm::SetBridgeTiming(zqvm::BridgeTiming::RealTime);
    std::thread discovery([&] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);  // as the host's thread has
        core->FillDevicesZQ();
        CoUninitialize();
    });
    size_t mostOpen = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (mostOpen < serials.size() && std::chrono::steady_clock::now() < deadline) {
        mostOpen = std::max(mostOpen, zqvm::BridgeOpenHandleCount());
        std::this_thread::yield();
    }
    discovery.join();
    zqvm::SetBridgeTiming(zqvm::BridgeTiming::Instant);
    EXPECT_EQ(mostOpen, serials.size()) << "the four queries were open together";
    EXPECT_EQ(zqvm::BridgeOpenHandleCount(), 0u);
    for (const zqvm::PresentBridge& bridge : zqvm::PresentBridges()) EXPECT_EQ(zqvm::GetBridgeState(bridge.id)->opens, 2);

    ASSERT_EQ(ListedSerials(), (std::vector<std::wstring>{L"KV1-A", L"KV1-B", L"KV1-C", L"KV1-D"}));
    EXPECT_EQ(core->GetHidCaptureDevice(0)->GetFriendlyName(), CStringW(L"KV-1 Studio"));
    EXPECT_EQ(core->GetHidCaptureDevice(1)->GetFriendlyName(), CStringW(L"KV-1 Classic"));
    EXPECT_EQ(core->GetHidCaptureDevice(1)->GetVerFW(), 0x11);
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(core->GetHidCaptureDevice(i)->GetDevice() != nullptr) << i;

    // Each microphone's lines together, in list order, as when one bridge followed the other.
    std::vector<std::wstring> expected;
    for (size_t i = 0; i < serials.size(); ++i) {
        const std::wstring n = std::to_wstring(i);
        const std::wstring serial(serials[i].begin(), serials[i].end());
        expected.push_back(L"CoreAudio: HID_UART_GET_MANUFACTURER_STR [" + n + L"]: KESTRAVON");
        expected.push_back(L"CoreAudio: HID_UART_GET_SERIAL_STR [" + n + L"]: " + serial);
        expected.push_back(L"CoreAudio: HID_UART_GET_PRODUCT_STR [" + n + L"]: KV-1 USB Microphone");
        expected.push_back(L"CoreAudio: KESTRAVON Mic [" + n + L"]: SN: " + serial);
        expected.push_back(L"CoreAudio: KESTRAVON Mic [" + n + L"]: ContainerID: ");
        expected.push_back(L"CoreAudio: call FindHidDevice");
    }
    std::vector<std::wstring> logged;
    for (const std::wstring& text : recorder->Texts())
        if (text.rfind(L"CoreAudio: HID_UART", 0) == 0 || text.rfind(L"CoreAudio: KESTRAVON", 0) == 0 ||
            text == L"CoreAudio: call FindHidDevice")
            logged.push_back(text);
    ASSERT_EQ(logged.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(logged[i].rfind(expected[i], 0), 0u) << logged[i];
}

}  // namespace
