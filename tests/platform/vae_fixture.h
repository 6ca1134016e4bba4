// Shared set-up of the virtual audio engine tests: an empty machine, a stepped clock, COM on
// the test thread, and a check that no engine object outlives the test.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "endpoint_queries.h"
#include "zqPlatform.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/clock.h"

namespace vaetest {

constexpr int64_t kPeriod = 100000;  // one device period, 100-ns units
constexpr uint32_t kWaitMs = 5000;

class VirtualAudioTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
        zqvm::Reset();
        zqvm::SetClockMode(zqvm::ClockMode::Stepped);
        m_liveObjects = zqvm::LiveObjectCount();
    }

    void TearDown() override {
        EXPECT_TRUE(zqvm::WaitForNotificationsDelivered(kWaitMs));
        EXPECT_EQ(zqvm::LiveObjectCount(), m_liveObjects) << "engine objects outlived the test";
        zqvm::Reset();
        zqvm::SetClockMode(zqvm::ClockMode::RealTime);
        CoUninitialize();
    }

public:
    static void Step(int periods = 1) {
        for (int i = 0; i < periods; ++i) ASSERT_TRUE(zqvm::AdvanceClock(kPeriod));
    }

    static std::wstring Add(EDataFlow flow, uint32_t rate, uint16_t channels, zqvm::SampleFormat format,
                            zqvm::CaptureSource source = zqvm::CaptureSource::Silence(), bool extensible = false) {
        return zqtest::AddTestEndpoint(flow, flow == eCapture ? L"Test microphone" : L"Test speakers", rate, channels,
                                       format, source, extensible);
    }

    static CComPtr<IMMDeviceEnumerator> Enumerator() {
        CComPtr<IMMDeviceEnumerator> enumerator;
        EXPECT_EQ(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                   reinterpret_cast<void**>(&enumerator)),
                  S_OK);
        return enumerator;
    }

    static CComPtr<IMMDevice> Device(const std::wstring& id) {
        CComPtr<IMMDevice> device;
        CComPtr<IMMDeviceEnumerator> enumerator = Enumerator();
        if (enumerator) {
            EXPECT_EQ(enumerator->GetDevice(id.c_str(), &device), S_OK);
        }
        return device;
    }

private:
    long m_liveObjects = 0;
};

// An event-driven shared stream on the endpoint's mix format, expected to open.
struct TestStream : zqtest::EventStream {
    explicit TestStream(const std::wstring& id, REFERENCE_TIME duration = 200000)
        : EventStream(VirtualAudioTest::Device(id), duration) {
        EXPECT_EQ(opened, S_OK);
    }
};

// A capture packet as the client took it.
struct Packet {
    std::vector<BYTE> bytes;
    UINT32 frames = 0;
    DWORD flags = 0;
    UINT64 position = 0;
};

// Takes the next packet (asserting there is one) and releases it.
inline Packet Take(IAudioCaptureClient* capture, UINT32 blockAlign) {
    Packet packet;
    BYTE* data = nullptr;
    EXPECT_EQ(capture->GetBuffer(&data, &packet.frames, &packet.flags, &packet.position, nullptr), S_OK);
    if (data != nullptr) packet.bytes.assign(data, data + size_t{packet.frames} * blockAlign);
    EXPECT_EQ(capture->ReleaseBuffer(packet.frames), S_OK);
    return packet;
}

}  // namespace vaetest
