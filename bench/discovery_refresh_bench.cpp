// How long a device change stops monitoring: Refresh (the microphone list discovered again,
// the capture devices listed and the first opened, the streams restarted) with 1, 4 and 16 of
// the maker's microphones, each a simulated bridge whose version query waits for its 150 ms
// read time-out in real time, paired with a capture endpoint of its container.
//
// Run: bench/discovery_refresh_bench
#include <benchmark/benchmark.h>

#include <string>

#include "discovery_host.h"
#include "zqplatform/vm/bridges.h"

namespace {

GUID ContainerOf(int n) {
    return GUID{0x4B560000u, 0x1234, 0x5678, {0x9A, 0xBC, 0, 0, 0, 0, 0, static_cast<unsigned char>(n)}};
}

void BM_Refresh(benchmark::State& state) {
    const int microphones = static_cast<int>(state.range(0));
    DiscoveryHost host("zq_refresh_bench");
    zqvm::RemoveAllBridges();
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

    host.Start();
    for (auto _ : state) host.core->Refresh();
    state.counters["microphones_listed"] = host.core->GetHidCaptureDeviceCount();
    zqvm::SetBridgeTiming(zqvm::BridgeTiming::Instant);
}
BENCHMARK(BM_Refresh)->Arg(1)->Arg(4)->Arg(16)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
