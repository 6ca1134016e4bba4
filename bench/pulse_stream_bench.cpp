// The stream threads' calls on the pulse backend, against a running sound server: what the
// capture thread does per packet (wait for the event, GetBuffer, ReleaseBuffer) and the render
// thread per refill (GetCurrentPadding, GetBuffer, ReleaseBuffer), timed without the wait, and
// the heap allocations those calls make (none is the promise: they touch only the stream's
// ring). The system's own per-packet work does not depend on the backend: stream_threads_bench.
//
// Needs a server: the test server of scripts/pulse-server (source its env file first), whose
// kv1_mic is fed here through its FIFO, or any server with ZQ_BENCH_SOURCE / ZQ_BENCH_SINK
// naming a source that delivers and a sink.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "allocation_hooks.h"
#include "zqPlatform.h"
#include "zqplatform/vm/audio_backend.h"

namespace {

thread_local bool t_measuring = false;  // the benchmark's thread, inside the timed calls

}  // namespace

bool CountThisAllocation() { return t_measuring; }

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
        const std::vector<float> block(480, 0.0f);  // 10 ms of the 48 kHz mono microphone
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

}  // namespace

BENCHMARK_MAIN();
