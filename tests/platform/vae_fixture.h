// Shared set-up of the virtual audio engine tests: an empty machine, a stepped clock, COM on
// the test thread, and a check that no engine object outlives the test.
#pragma once

#include <gtest/gtest.h>

#include <string>

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
        zqvm::EndpointSpec endpointSpec;
        endpointSpec.flow = flow;
        endpointSpec.name = flow == eCapture ? L"Test microphone" : L"Test speakers";
        endpointSpec.rate = rate;
        endpointSpec.channels = channels;
        endpointSpec.format = format;
        endpointSpec.extensible = extensible;
        endpointSpec.source = std::move(source);
        std::string error;
        std::wstring id = zqvm::AddEndpoint(endpointSpec, &error);
        EXPECT_FALSE(id.empty()) << error;
        return id;
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

// An event-driven shared stream on the endpoint's mix format.
struct TestStream {
    CComPtr<IAudioClient> client;
    HANDLE event = nullptr;
    UINT32 bufferFrames = 0;

    TestStream() = default;
    explicit TestStream(const std::wstring& id, REFERENCE_TIME duration = 200000) { Open(id, duration); }
    TestStream(const TestStream&) = delete;
    TestStream& operator=(const TestStream&) = delete;
    ~TestStream() {
        if (event != nullptr) CloseHandle(event);
    }

    void Open(const std::wstring& id, REFERENCE_TIME duration = 200000) {
        CComPtr<IMMDevice> device = VirtualAudioTest::Device(id);
        ASSERT_TRUE(device);
        ASSERT_EQ(device->Activate(IID_IAudioClient, CLSCTX_INPROC_SERVER, nullptr, reinterpret_cast<void**>(&client)),
                  S_OK);
        WAVEFORMATEX* mix = nullptr;
        ASSERT_EQ(client->GetMixFormat(&mix), S_OK);
        const HRESULT hr = client->Initialize(AUDCLNT_SHAREMODE_SHARED,
                                              AUDCLNT_STREAMFLAGS_EVENTCALLBACK | AUDCLNT_STREAMFLAGS_NOPERSIST,
                                              duration, 0, mix, nullptr);
        CoTaskMemFree(mix);
        ASSERT_EQ(hr, S_OK);
        ASSERT_EQ(client->GetBufferSize(&bufferFrames), S_OK);
        event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        ASSERT_NE(event, nullptr);
        ASSERT_EQ(client->SetEventHandle(event), S_OK);
    }

    template <typename Service>
    CComPtr<Service> Get() {
        CComPtr<Service> service;
        EXPECT_EQ(client->GetService(zq_iid_of<Service>::get(), reinterpret_cast<void**>(&service)), S_OK);
        return service;
    }

    bool Signalled() const { return WaitForSingleObject(event, 0) == WAIT_OBJECT_0; }

    UINT32 Padding() const {
        UINT32 padding = 0;
        EXPECT_EQ(client->GetCurrentPadding(&padding), S_OK);
        return padding;
    }
};

}  // namespace vaetest
