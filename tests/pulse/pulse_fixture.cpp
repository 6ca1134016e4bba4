#include "pulse_fixture.h"

namespace zqtest::pulse {

void PulseTest::SetUp() {
    ZQ_REQUIRE_PULSE_SERVER();
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    comJoined = true;
    std::string error;
    ASSERT_TRUE(zqvm::SelectAudioBackend("pulse", &error)) << error;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                     reinterpret_cast<void**>(&enumerator)));
}

void PulseTest::TearDown() {
    enumerator.Release();
    if (comJoined) CoUninitialize();
}

CComPtr<IMMDevice> PulseTest::Device(const std::wstring& id) {
    CComPtr<IMMDevice> device;
    EXPECT_EQ(S_OK, enumerator->GetDevice(id.c_str(), &device));
    return device;
}

}  // namespace zqtest::pulse
