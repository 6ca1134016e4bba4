#include "microphone_machine.h"


namespace zqtest {

const char* const kProductTable = R"(<config>
  <product device_name="KV-1 USB Microphone" friendly_name="KV-1 Studio" api="5" fw="0x12" editor="kv1edit"/>
  <product device_name="KV-1 USB Microphone" friendly_name="KV-1 Classic" api="5" fw="0x11" editor="kv1edit"/>
  <product device_name="KV-2 USB Microphone" friendly_name="KV-2" api="6" fw="1" editor="kv2edit"/>
</config>)";

void MicrophoneMachineTest::SetUp() {
    AudioMachineTest::SetUp();
    clean = std::make_unique<CleanMachine>();
    folder.Write("config.xml", kProductTable);
    hostModule = std::make_unique<HostModuleScope>(folder.Path());
}

void MicrophoneMachineTest::TearDown() {
    AudioMachineTest::TearDown();
    hostModule.reset();
    clean.reset();
}

GUID MicrophoneMachineTest::ContainerOf(const std::string& serial) {
    GUID guid = {0x4B560000u, 0x1234, 0x5678, {0x9A, 0xBC, 0, 0, 0, 0, 0, 0}};
    const size_t hash = std::hash<std::string>{}(serial);
    for (int i = 0; i < 6; ++i) guid.Data4[2 + i] = static_cast<unsigned char>(hash >> (8 * i));
    return guid;
}

Microphone MicrophoneMachineTest::AddMicrophone(const std::string& serial, const char* product, bool withEndpoint) {
    Microphone mic;
    mic.description.product = product;
    mic.description.serial = serial.c_str();
    mic.description.containerId = ContainerOf(serial);
    // The bridge first: a notification of the endpoint then finds the bridge it belongs to.
    mic.bridge = zqvm::AddBridge(mic.description);
    if (withEndpoint) {
        zqvm::EndpointSpec endpointSpec;
        endpointSpec.flow = eCapture;
        endpointSpec.name = L"Microphone (" + Wide(serial) + L")";  // serials are UTF-8, as bridges give them
        endpointSpec.container = ContainerOf(serial);
        endpointSpec.source = zqvm::CaptureSource::Fed();
        std::string error;
        mic.endpoint = zqvm::AddEndpoint(endpointSpec, &error);
        EXPECT_FALSE(mic.endpoint.empty()) << error;
    }
    return mic;
}

std::vector<std::wstring> MicrophoneMachineTest::ListedSerials() {
    std::vector<std::wstring> serials;
    for (unsigned int i = 0; i < core->GetHidCaptureDeviceCount(); ++i) {
        serials.emplace_back(core->GetHidCaptureDevice(static_cast<int>(i))->GetSN().GetString());
    }
    return serials;
}

}  // namespace zqtest
