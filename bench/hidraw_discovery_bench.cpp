// How long a discovery of the maker's microphones takes through hidraw: Refresh (the microphone
// list discovered again, the first capture device opened, the streams restarted) with 1 and 4
// microphones, each a bridge chip behind a hidraw node served through FUSE, so every report and
// poll passes through the kernel, and a capture endpoint of its USB device's container. One
// microphone in the second pair answers nothing and so waits out its read time-out.
//
// Run (as a user who may mount FUSE): bench/hidraw_discovery_bench
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "bridge_chip.h"
#include "fake_usb_sysfs.h"
#include "fuse_hidraw_folder.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/bridges.h"
#include "zqplatform/vm/module_path.h"

namespace zqplatform::usb {
GUID ContainerIdOfUsbFolder(const std::string& folder);
}

namespace {

namespace fs = std::filesystem;

constexpr const char* kProductTable = R"(<config>
  <product device_name="KV-1 USB Microphone" friendly_name="KV-1 Studio" api="5" fw="0x12" editor="kv1edit"/>
</config>)";

void BM_RefreshOverHidraw(benchmark::State& state) {
    const int microphones = static_cast<int>(state.range(0));
    const bool oneSilent = state.range(1) != 0;
    zqtest::FuseHidrawFolder nodes;
    if (!nodes.Mounted()) {
        state.SkipWithError(("no FUSE: " + nodes.Why()).c_str());
        return;
    }
    const fs::path folder = fs::temp_directory_path() / "zq_hidraw_bench";
    fs::remove_all(folder);
    const fs::path sys = folder / "sys";
    fs::create_directories(folder);
    std::ofstream(folder / "config.xml") << kProductTable;
    setenv("ZQ_SYSFS_ROOT", sys.c_str(), 1);
    setenv("ZQ_DEV_ROOT", nodes.Path().c_str(), 1);
    std::string error;
    if (!zqvm::SelectBridgeBackend("hidraw", &error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    zqvm::Reset();
    zqvm::SetHostModulePath((folder / "zqHost").wstring());
    zqvm::EndpointSpec speaker;
    speaker.flow = eRender;
    speaker.name = L"Speakers";
    speaker.defaultFor = {eConsole, eMultimedia, eCommunications};
    zqvm::AddEndpoint(speaker);
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

    auto* core = new CZQCoreAudio;
    core->Init(nullptr);
    core->Start();
    for (auto _ : state) core->Refresh();
    int named = 0;
    for (unsigned i = 0; i < core->GetHidCaptureDeviceCount(); ++i) {
        named += core->GetHidCaptureDevice(static_cast<int>(i))->GetFriendlyName() == L"KV-1 Studio" ? 1 : 0;
    }
    state.counters["microphones_listed"] = core->GetHidCaptureDeviceCount();
    state.counters["microphones_named"] = named;

    core->Shutdown();
    delete core;
    g_pCore = nullptr;
    zqvm::Reset();
    zqvm::ResetHostModulePath();
    zqvm::SelectBridgeBackend("simulated", &error);
    unsetenv("ZQ_SYSFS_ROOT");
    unsetenv("ZQ_DEV_ROOT");
    fs::remove_all(folder);
    CoUninitialize();
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
