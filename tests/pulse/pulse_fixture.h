// The fixture of the pulse backend's interface tests: the test server required, COM joined,
// the pulse backend chosen, and small helpers over the Core Audio interfaces.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "endpoint_queries.h"
#include "pulse_test_support.h"
#include "recording_notification_client.h"
#include "zqPlatform.h"
#include "zqplatform/vm/audio_backend.h"

namespace zqtest::pulse {

class PulseTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    CComPtr<IMMDevice> Device(const std::wstring& id);
    std::vector<std::wstring> ActiveIds(EDataFlow flow) { return EndpointIds(enumerator, flow, DEVICE_STATE_ACTIVE); }

    CComPtr<IMMDeviceEnumerator> enumerator;
    bool comJoined = false;
};

}  // namespace zqtest::pulse
