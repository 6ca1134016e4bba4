// A machine with the maker's microphones for discovery and notification tests: the core on the
// virtual audio engine, a product table beside a pretend host executable, and microphones made
// of a simulated bridge, its registry value and a capture endpoint of the same container.
#pragma once

#include <memory>
#include <string>

#include "audio_fixture.h"
#include "device_test_support.h"

namespace zqtest {

// Two variants of the KV-1 (told apart by their versions) and the KV-2.
extern const char* const kProductTable;

struct Microphone {
    zqvm::BridgeId bridge = 0;
    zqvm::BridgeDescription description;
    std::wstring endpoint;  // empty when the microphone has no capture endpoint
};

class MicrophoneMachineTest : public AudioMachineTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // A bridge with that serial number and product, its container published in the registry,
    // and (withEndpoint) an active capture endpoint named "Microphone (<serial>)" of the same
    // container. Containers are made from the serial number, so each microphone has its own.
    Microphone AddMicrophone(const std::string& serial, const char* product = "KV-1 USB Microphone",
                             bool withEndpoint = true);
    static GUID ContainerOf(const std::string& serial);
    // The serial numbers of the core's microphone list, in order.
    std::vector<std::wstring> ListedSerials();

    std::unique_ptr<CleanMachine> clean;
    ScratchFolder folder;
    std::unique_ptr<HostModuleScope> hostModule;
};

}  // namespace zqtest
