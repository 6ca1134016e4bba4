// The stream threads' calls on the pulse backend, against a running sound server: what the
// capture thread does per packet (wait for the event, GetBuffer, ReleaseBuffer) and the render
// thread per refill (GetCurrentPadding, GetBuffer, ReleaseBuffer), timed without the wait, and
// the heap allocations those calls make (none is the promise: they touch only the stream's
// ring); and the allocations of the system's own capture, render and analyzer threads while the
// core monitors the test server's microphone on its speaker (every thread but the benchmark's,
// the feeder's and libpulse's main loop thread, which copies into the server's memory blocks).
// The system's own per-packet work does not depend on the backend: stream_threads_bench.
//
// Needs a server: the test server of scripts/pulse-server (source its env file first), whose
// kv1_mic is fed here through its FIFO, or any server with ZQ_BENCH_SOURCE / ZQ_BENCH_SINK
// naming a source that delivers and a sink.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "allocation_hooks.h"
#include "../platform/src/usb/usb_container.h"
#include "zqCoreAudio.h"
#include "zqPlatform.h"
#include "zqplatform/vm/audio_backend.h"
#include "zqplatform/vm/bridges.h"
#include "zqplatform/vm/module_path.h"

namespace {

thread_local bool t_measuring = false;  // the benchmark's thread, inside the timed calls
thread_local int t_otherThreads = -1;    // counted in the whole-core benchmark: unknown yet
std::atomic<bool> g_countOtherThreads{false};

// Threads of the system (and of the platform, but libpulse's) count; the benchmark's own and
// libpulse's main loop ("threaded-ml") do not. Inside malloc: prctl neither allocates nor locks.
bool IsCountedOtherThread() {
    if (t_otherThreads < 0) {
        char name[16] = {};
        prctl(PR_GET_NAME, name, 0, 0, 0);
        t_otherThreads = std::strncmp(name, "threaded-ml", 11) != 0 ? 1 : 0;
    }
    return t_otherThreads == 1;
}

}  // namespace

bool CountThisAllocation() {
    return t_measuring || (g_countOtherThreads.load(std::memory_order_relaxed) && IsCountedOtherThread());
}

namespace {

// The counter must see an allocation of the measured thread, or a 0 would mean nothing.
bool CounterWorks() {
    g_countedAllocations.store(0);
    t_measuring = true;
    void* volatile probe = std::malloc(16);
    std::free(probe);
    t_measuring = false;
    const bool seen = g_countedAllocations.load() != 0;
    g_countedAllocations.store(0);
    return seen;
}

std::wstring FromEnvironment(const char* name, const wchar_t* fallback) {
    const char* value = std::getenv(name);
    if (value == nullptr || value[0] == '\0') return fallback;
    return std::wstring(value, value + std::strlen(value));
}

// Silence into the test server's microphone FIFO at the speed it plays, while it lives.
class FifoFeeder {
public:
    FifoFeeder() {
        const char* fifo = std::getenv("ZQ_PULSE_MIC_FIFO");
        if (fifo == nullptr) return;
        m_fd = open(fifo, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (m_fd >= 0) m_thread = std::thread([this] { Run(); });
    }
    ~FifoFeeder() {
        m_stop.store(true);
        if (m_thread.joinable()) m_thread.join();
        if (m_fd >= 0) close(m_fd);
    }

private:
    void Run() {
        t_otherThreads = 0;
        std::vector<float> block(480);  // 10 ms of the 48 kHz mono microphone: 1 kHz at -6 dBFS
        for (size_t i = 0; i < block.size(); ++i) block[i] = 0.5f * std::sin(2.0f * 3.14159265f * i / 48.0f);
        const auto start = std::chrono::steady_clock::now();
        for (int n = 0; !m_stop.load(); ++n) {
            if (write(m_fd, block.data(), block.size() * sizeof(float)) < 0 && errno != EAGAIN) return;
            std::this_thread::sleep_until(start + std::chrono::milliseconds(10 * n));
        }
    }
    int m_fd = -1;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// An event-driven stream in the device's mix format on the pulse backend.
struct PulseStream {
    CComPtr<IAudioClient> client;
    WAVEFORMATEX* format = nullptr;
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    std::string error;

    PulseStream(const std::wstring& id, REFERENCE_TIME duration) {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        if (!zqvm::SelectAudioBackend("pulse", &error) || !zqvm::PulseServerReachable(&error)) return;
        CComPtr<IMMDeviceEnumerator> enumerator;
        CComPtr<IMMDevice> device;
        HRESULT hr = CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                      reinterpret_cast<void**>(&enumerator));
        if (SUCCEEDED(hr)) hr = enumerator->GetDevice(id.c_str(), &device);
        if (SUCCEEDED(hr)) hr = device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client));
        if (SUCCEEDED(hr)) hr = client->GetMixFormat(&format);
        if (SUCCEEDED(hr))
            hr = client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK, duration, 0, format, nullptr);
        if (SUCCEEDED(hr)) hr = client->SetEventHandle(event);
        if (FAILED(hr)) error = "cannot open the stream (0x" + std::to_string(static_cast<uint32_t>(hr)) + ")";
    }
    ~PulseStream() {
        if (client) client->Stop();
        client.Release();
        CoTaskMemFree(format);
        CloseHandle(event);
        CoUninitialize();
    }
};

double Seconds(std::chrono::steady_clock::duration d) { return std::chrono::duration<double>(d).count(); }

void BM_PulseCapturePacket(benchmark::State& state) {
    FifoFeeder feeder;
    PulseStream stream(FromEnvironment("ZQ_BENCH_SOURCE", L"kv1_mic"), 200000);
    CComPtr<IAudioCaptureClient> capture;
    if (stream.error.empty() && FAILED(stream.client->GetService(IID_IAudioCaptureClient, reinterpret_cast<void**>(&capture))))
        stream.error = "no capture client";
    if (!stream.error.empty() || FAILED(stream.client->Start())) {
        state.SkipWithError(stream.error.empty() ? "cannot start" : stream.error.c_str());
        return;
    }
    if (!CounterWorks()) {
        state.SkipWithError("the allocation counter does not see this thread");
        return;
    }
    uint64_t frames = 0;
    for (auto _ : state) {
        if (WaitForSingleObject(stream.event, 2000) != WAIT_OBJECT_0) {
            state.SkipWithError("no packet within 2 s");
            break;
        }
        const auto start = std::chrono::steady_clock::now();
        t_measuring = true;
        BYTE* data = nullptr;
        UINT32 count = 0;
        DWORD flags = 0;
        const HRESULT got = capture->GetBuffer(&data, &count, &flags, nullptr, nullptr);
        if (SUCCEEDED(got)) capture->ReleaseBuffer(count);
        t_measuring = false;
        state.SetIterationTime(Seconds(std::chrono::steady_clock::now() - start));
        frames += count;
    }
    state.counters["allocations_per_packet"] =
        static_cast<double>(g_countedAllocations.load()) / static_cast<double>(std::max<int64_t>(1, state.iterations()));
    state.counters["frames_per_packet"] = static_cast<double>(frames) / static_cast<double>(std::max<int64_t>(1, state.iterations()));
}
BENCHMARK(BM_PulseCapturePacket)->UseManualTime()->Iterations(300)->Unit(benchmark::kMicrosecond);

void BM_PulseRenderRefill(benchmark::State& state) {
    PulseStream stream(FromEnvironment("ZQ_BENCH_SINK", L"speaker48"), 300000);
    CComPtr<IAudioRenderClient> render;
    UINT32 bufferFrames = 0;
    if (stream.error.empty() && (FAILED(stream.client->GetService(IID_IAudioRenderClient, reinterpret_cast<void**>(&render))) ||
                                 FAILED(stream.client->GetBufferSize(&bufferFrames))))
        stream.error = "no render client";
    if (!stream.error.empty() || FAILED(stream.client->Start())) {
        state.SkipWithError(stream.error.empty() ? "cannot start" : stream.error.c_str());
        return;
    }
    const UINT32 channels = stream.format->nChannels;
    uint64_t frames = 0;
    uint64_t phase = 0;
    if (!CounterWorks()) {
        state.SkipWithError("the allocation counter does not see this thread");
        return;
    }
    for (auto _ : state) {
        if (WaitForSingleObject(stream.event, 2000) != WAIT_OBJECT_0) {
            state.SkipWithError("no refill request within 2 s");
            break;
        }
        const auto start = std::chrono::steady_clock::now();
        t_measuring = true;
        UINT32 padding = 0;
        BYTE* data = nullptr;
        UINT32 count = 0;
        if (SUCCEEDED(stream.client->GetCurrentPadding(&padding))) count = bufferFrames - padding;
        if (count > 0 && SUCCEEDED(render->GetBuffer(count, &data))) {
            auto* samples = reinterpret_cast<float*>(data);
            for (UINT32 i = 0; i < count; ++i, ++phase)
                for (UINT32 c = 0; c < channels; ++c) samples[i * channels + c] = 0.25f * std::sin(phase * 0.1309f);
            render->ReleaseBuffer(count, 0);
        }
        t_measuring = false;
        state.SetIterationTime(Seconds(std::chrono::steady_clock::now() - start));
        frames += count;
    }
    state.counters["allocations_per_refill"] =
        static_cast<double>(g_countedAllocations.load()) / static_cast<double>(std::max<int64_t>(1, state.iterations()));
    state.counters["frames_per_refill"] = static_cast<double>(frames) / static_cast<double>(std::max<int64_t>(1, state.iterations()));
}
BENCHMARK(BM_PulseRenderRefill)->UseManualTime()->Iterations(300)->Unit(benchmark::kMicrosecond);

// The core monitoring the test server's KV-1 microphone (kv1_mic, paired through the container
// of its USB device folder in the fake sysfs tree) on the default speaker, in real time.
void BM_PulseCoreThreadAllocationsPer10ms(benchmark::State& state) {
    t_otherThreads = 0;
    const char* sysfs = std::getenv("ZQ_SYSFS_ROOT");
    if (sysfs == nullptr) {
        state.SkipWithError("needs the test server of scripts/pulse-server (its env file)");
        return;
    }
    FifoFeeder feeder;
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::string error;
    CComPtr<IMMDeviceEnumerator> enumerator;  // loads the machine, whose bridges give way below
    if (!zqvm::SelectAudioBackend("pulse", &error) ||
        FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                reinterpret_cast<void**>(&enumerator)))) {
        state.SkipWithError("no pulse server");
        return;
    }
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "zq_pulse_bench";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "config.xml")
        << R"(<config><product device_name="KV-1 USB Microphone" friendly_name="KV-1" api="5" fw="0x12" editor="e"/></config>)";
    zqvm::SetHostModulePath((folder / "zqHost").wstring());
    zqvm::RemoveAllBridges();
    zqvm::BridgeDescription kv1;
    kv1.product = "KV-1 USB Microphone";
    kv1.serial = "KV1-2024-0001";
    kv1.containerId =
        zqplatform::usb::ContainerIdOfUsbFolder(std::string(sysfs) + "/devices/pci0000:00/0000:00:14.0/usb1/1-3");
    zqvm::AddBridge(kv1);
    auto* core = new CZQCoreAudio;
    core->Init(nullptr);
    core->Start();
    if (!core->IsStarted()) {
        state.SkipWithError("the core did not start both streams");
    } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));  // warm up: buffers sized
        // The counter must see an allocation made on another thread, or a 0 would mean nothing.
        g_countedAllocations.store(0);
        g_countOtherThreads.store(true);
        std::thread([] {
            void* volatile probe = std::malloc(16);
            std::free(probe);
        }).join();
        g_countOtherThreads.store(false);
        if (g_countedAllocations.load() == 0) state.SkipWithError("the allocation counter does not see other threads");
        g_countedAllocations.store(0);
        g_countOtherThreads.store(true);
        for (auto _ : state) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        g_countOtherThreads.store(false);
        state.counters["allocations_per_10ms"] =
            static_cast<double>(g_countedAllocations.load()) / static_cast<double>(std::max<int64_t>(1, state.iterations()));
        state.counters["allocations_total"] = static_cast<double>(g_countedAllocations.load());
        state.counters["capture_peak"] = core->GetPeakCaptureDBFS();
    }
    core->Shutdown();
    delete core;
    g_pCore = nullptr;
    zqvm::ResetHostModulePath();
    std::filesystem::remove_all(folder);
    enumerator.Release();
    CoUninitialize();
}
BENCHMARK(BM_PulseCoreThreadAllocationsPer10ms)->Iterations(300)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
