// The stream threads on the virtual audio engine: the capture thread's work for one 10 ms packet
// (44.1 kHz stereo float in, 48 kHz stereo float out), and the heap allocations the capture and
// render threads make per packet once streaming.
//
// Allocations are counted by interposing malloc and its relatives for the whole process, so
// FFmpeg's own allocations count as well as ours. Only threads other than the benchmark's own
// are counted: while streaming, those are the capture and render threads (the engine's other
// threads are idle, and the stepped clock runs its periods on the benchmark's thread).
#include <benchmark/benchmark.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <thread>
#include <vector>

#include <malloc.h>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "stepped_monitoring.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/clock.h"

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
}

namespace {
std::atomic<bool> g_counting{false};
std::atomic<uint64_t> g_streamAllocations{0};
thread_local bool t_isBenchmarkThread = false;

void Count() {
    if (g_counting.load(std::memory_order_relaxed) && !t_isBenchmarkThread) {
        g_streamAllocations.fetch_add(1, std::memory_order_relaxed);
    }
}
}  // namespace

extern "C" {
void* malloc(size_t size) {
    Count();
    return __libc_malloc(size);
}
void* calloc(size_t n, size_t size) {
    Count();
    return __libc_calloc(n, size);
}
void* realloc(void* p, size_t size) {
    Count();
    return __libc_realloc(p, size);
}
void* memalign(size_t alignment, size_t size) {
    Count();
    return __libc_memalign(alignment, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
    Count();
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size) {
    Count();
    void* p = __libc_memalign(alignment, size);
    if (p == nullptr) return 12;  // ENOMEM
    *out = p;
    return 0;
}
}

namespace {

constexpr int64_t kPeriod = 100000;  // 10 ms in 100-ns units

// A core streaming a 1 kHz tone from a 44.1 kHz stereo float microphone to a 48 kHz stereo
// float speaker, on the stepped clock.
struct Streaming {
    Streaming() : machine(SpeakerSpec(), MicSpec()), mic(machine.mic), core(machine.core) { core->Start(); }
    static zqvm::EndpointSpec SpeakerSpec() {
        t_isBenchmarkThread = true;  // before anything is made: the machine is the benchmark's
        zqvm::EndpointSpec endpointSpec;
        endpointSpec.name = L"Speakers";
        endpointSpec.rate = 48000;
        return endpointSpec;
    }
    static zqvm::EndpointSpec MicSpec() {
        zqvm::EndpointSpec endpointSpec;
        endpointSpec.name = L"Microphone";
        endpointSpec.rate = 44100;
        endpointSpec.source = zqvm::CaptureSource::Tone(1000.0, 0.5);
        return endpointSpec;
    }
    // One device period of both streams, waited for until both threads have handled it.
    bool Period() {
        const uint64_t packets = zqvm::CapturePacketsReleased(mic);
        zqvm::AdvanceClock(kPeriod);
        return zqvm::WaitForCapturePacketsReleased(mic, packets + 1, 5000);
    }

    SteppedMonitoring machine;
    std::wstring mic;
    CZQCoreAudio* core;
};

void BM_CapturePacketWork(benchmark::State& state) {
    Streaming streaming;
    CAudioCapture* capture = streaming.core->GetCaptureEngine();
    streaming.core->Stop();  // the benchmark's thread does the capture thread's work alone
    std::vector<float> packet(441 * 2);
    for (size_t i = 0; i < 441; ++i) {
        const float v = 0.5f * static_cast<float>(std::sin(2.0 * M_PI * 1000.0 * static_cast<double>(i) / 44100.0));
        packet[2 * i] = v;
        packet[2 * i + 1] = v;
    }
    for (auto _ : state) {
        capture->ProcessPacket(reinterpret_cast<const BYTE*>(packet.data()), 441);
        // Keep the queues from filling up, as the render thread and the analyzer would.
        BYTE drain[8192];
        capture->WithQueue([&](CCircularBuffer& queue) {
            while (queue.Read(drain, sizeof drain) != 0) {
            }
        });
        while (capture->ReadFeed(CAudioCapture::Feed::Input, drain, sizeof drain) != 0) {
        }
        while (capture->ReadFeed(CAudioCapture::Feed::Output, drain, sizeof drain) != 0) {
        }
    }
    // Seconds per packet over the 10 ms a packet lasts, in percent: elapsed / (iterations / 1e4).
    state.counters["share_of_10ms_%"] = benchmark::Counter(static_cast<double>(state.iterations()) / 1e4,
                                                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_CapturePacketWork)->Unit(benchmark::kMicrosecond);

void BM_StreamThreadAllocationsPerPacket(benchmark::State& state) {
    Streaming streaming;
    for (int i = 0; i < 50; ++i) streaming.Period();  // warm up: buffers sized, queues primed
    // The counter must see an allocation made on another thread, or a 0 below would mean nothing.
    g_streamAllocations.store(0);
    g_counting.store(true);
    std::thread([] { std::free(std::malloc(16)); }).join();
    g_counting.store(false);
    if (g_streamAllocations.load() == 0) {
        state.SkipWithError("the allocation counter does not see other threads");
        return;
    }
    uint64_t packets = 0;
    g_streamAllocations.store(0);
    g_counting.store(true);
    for (auto _ : state) {
        if (!streaming.Period()) {
            state.SkipWithError("the capture thread did not handle its packet");
            break;
        }
        ++packets;
    }
    g_counting.store(false);
    state.counters["allocations_per_packet"] =
        packets == 0 ? 0.0 : static_cast<double>(g_streamAllocations.load()) / static_cast<double>(packets);
    state.counters["allocations_total"] = static_cast<double>(g_streamAllocations.load());
}
BENCHMARK(BM_StreamThreadAllocationsPerPacket)->Iterations(500)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
