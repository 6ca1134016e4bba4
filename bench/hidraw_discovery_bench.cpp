// How long a discovery of the maker's microphones takes through hidraw: Refresh (the microphone
// list discovered again, the first capture device opened, the streams restarted) with 1 and 4
// microphones, each a bridge chip behind a hidraw node served through FUSE, so every report and
// poll passes through the kernel, and a capture endpoint of its USB device's container. One
// microphone in the second pair answers nothing and so waits out its read time-out.
//
// Run (as a user who may mount FUSE): bench/hidraw_discovery_bench
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

#include "../platform/src/usb/usb_container.h"
#include "bridge_chip.h"
#include "discovery_host.h"
#include "fake_usb_sysfs.h"
#include "fuse_hidraw_folder.h"
#include "scoped_environment.h"
#include "zqplatform/vm/bridges.h"

namespace {

namespace fs = std::filesystem;

// Microphones 0 .. count-1: each a KV-1 in the fake sysfs tree, its bridge chip behind node
// hidrawN, and a capture endpoint of its USB device's container; the last one silent if asked.
void AddMicrophones(const fs::path& sys, zqtest::FuseHidrawFolder& nodes, int microphones, bool oneSilent) {
    for (int n = 0; n < microphones; ++n) {
        zqvm::EndpointSpec mic;
        mic.flow = eCapture;
        mic.name = L"Microphone " + std::to_wstring(n);
        zqtest::FakeUsbBridge bridge;
        bridge.port = n + 1;
        bridge.node = n;
        bridge.serial = "KV1-" + std::to_string(n);
        mic.container = zqplatform::usb::ContainerIdOfUsbFolder(zqtest::AddFakeUsbBridge(sys, bridge).string());
        zqvm::AddEndpoint(mic);
        auto chip = std::make_shared<zqtest::BridgeChip>();
        if (oneSilent && n == microphones - 1) chip->SetReply({});
        nodes.Add("hidraw" + std::to_string(n), chip);
    }
}

void BM_RefreshOverHidraw(benchmark::State& state) {
    const int microphones = static_cast<int>(state.range(0));
    const bool oneSilent = state.range(1) != 0;
    zqtest::FuseHidrawFolder nodes;
    if (!nodes.Mounted()) {
        state.SkipWithError(("no FUSE: " + nodes.Why()).c_str());
        return;
    }
    // The fake sysfs tree lies in the host's folder, which is made below.
    const fs::path sys = fs::temp_directory_path() / "zq_hidraw_bench" / "sys";
    zqtest::ScopedEnvironment sysfsRoot("ZQ_SYSFS_ROOT", sys.c_str());
    zqtest::ScopedEnvironment devRoot("ZQ_DEV_ROOT", nodes.Path().c_str());
    std::string error;
    if (!zqvm::SelectBridgeBackend("hidraw", &error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    {
        DiscoveryHost host("zq_hidraw_bench");
        AddMicrophones(sys, nodes, microphones, oneSilent);
        host.Start();
        for (auto _ : state) host.core->Refresh();
        int named = 0;
        for (unsigned i = 0; i < host.core->GetHidCaptureDeviceCount(); ++i) {
            named += host.core->GetHidCaptureDevice(static_cast<int>(i))->GetFriendlyName() == L"KV-1 Studio" ? 1 : 0;
        }
        state.counters["microphones_listed"] = host.core->GetHidCaptureDeviceCount();
        state.counters["microphones_named"] = named;
    }
    zqvm::SelectBridgeBackend("simulated", &error);
}
BENCHMARK(BM_RefreshOverHidraw)
    ->ArgNames({"microphones", "one_silent"})
    ->Args({1, 0})
    ->Args({4, 0})
    ->Args({4, 1})
    ->Iterations(10)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
