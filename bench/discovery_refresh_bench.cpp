// How long a device change stops monitoring: Refresh (the microphone list discovered again,
// the capture devices listed and the first opened, the streams restarted) with 1, 4 and 16 of
// the maker's microphones, each a simulated bridge whose version query waits for its 150 ms
// read time-out in real time, paired with a capture endpoint of its container.
//
// Run: bench/discovery_refresh_bench
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "zqCoreAudio.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/bridges.h"
#include "zqplatform/vm/module_path.h"

namespace {

constexpr const char* kProductTable = R"(<config>
  <product device_name="KV-1 USB Microphone" friendly_name="KV-1 Studio" api="5" fw="0x12" editor="kv1edit"/>
</config>)";

GUID ContainerOf(int n) {
    return GUID{0x4B560000u, 0x1234, 0x5678, {0x9A, 0xBC, 0, 0, 0, 0, 0, static_cast<unsigned char>(n)}};
}

void BM_Refresh(benchmark::State& state) {
    const int microphones = static_cast<int>(state.range(0));
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    zqvm::Reset();
    zqvm::RemoveAllBridges();
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "zq_refresh_bench";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "config.xml") << kProductTable;
    zqvm::SetHostModulePath((folder / "zqHost").wstring());

    zqvm::EndpointSpec speaker;
    speaker.flow = eRender;
    speaker.name = L"Speakers";
    speaker.defaultFor = {eConsole, eMultimedia, eCommunications};
    zqvm::AddEndpoint(speaker);
    for (int n = 0; n < microphones; ++n) {
        zqvm::BridgeDescription bridge;
        bridge.product = "KV-1 USB Microphone";
        const std::string serial = "KV1-" + std::to_string(n);
        bridge.serial = serial.c_str();
        bridge.containerId = ContainerOf(n);
        zqvm::AddBridge(bridge);
        zqvm::EndpointSpec mic;
        mic.flow = eCapture;
        mic.name = L"Microphone " + std::to_wstring(n);
        mic.container = ContainerOf(n);
        zqvm::AddEndpoint(mic);
    }
    zqvm::SetBridgeTiming(zqvm::BridgeTiming::RealTime);

    auto* core = new CZQCoreAudio;
    core->Init(nullptr);
    core->Start();
    for (auto _ : state) core->Refresh();
    state.counters["microphones_listed"] = core->GetHidCaptureDeviceCount();

    core->Shutdown();
    delete core;
    g_pCore = nullptr;
    zqvm::SetBridgeTiming(zqvm::BridgeTiming::Instant);
    zqvm::RemoveAllBridges();
    zqvm::Reset();
    zqvm::ResetHostModulePath();
    std::filesystem::remove_all(folder);
    CoUninitialize();
}
BENCHMARK(BM_Refresh)->Arg(1)->Arg(4)->Arg(16)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
