// The getters the host may call from any thread, hammered from two threads while a third runs
// the core's whole life over and over: before Init, during Init, Start, Refresh and Shutdown,
// and after Shutdown they read what is there or their empty value, never a component that
// is gone.
#include <gtest/gtest.h>

#include <atomic>
#include <shared_mutex>
#include <thread>

#include "microphone_machine.h"
#include "zqplatform/vm/clock.h"

namespace {

using zqtest::MicrophoneMachineTest;

constexpr int kRounds = 300;

// Every getter callable from any thread, once; what it returns is only summed, so that the
// calls are not optimised away.
float CallEveryGetter(CZQCoreAudio& core, int place) {
    float sum = core.GetPeakCapture() + core.GetPeakCaptureDBFS() + core.GetPeakRender() + core.GetPeakRenderDBFS();
    sum += core.GetCaptureVol() + core.GetRenderVol() + (core.IsRenderMute() ? 1.0f : 0.0f);
    sum += core.GetSpectrumAmpIn(place) + core.GetSpectrumAmpOut(place);
    sum += core.GetSpectrumAmpPeakIn(place) + core.GetSpectrumAmpPeakOut(place);
    sum += core.GetDataPeakIn(place, 1) + core.GetDataPeakOut(place, 0);
    return sum;
}

class CoreLifetime : public MicrophoneMachineTest {
protected:
    void SetUp() override {
        MicrophoneMachineTest::SetUp();
        // Each round makes its own core on the lifecycle thread: the fixture's is not used.
        core.reset();
        g_pCore = nullptr;
        AddRender(48000, 2, zqvm::SampleFormat::Float32);
        AddMicrophone("KV1-LIFE");
        zqvm::SetClockMode(zqvm::ClockMode::RealTime);  // the streams run while the getters read
    }
};

TEST_F(CoreLifetime, GettersOnTwoThreadsWhileTheCoreIsBuiltStartedRefreshedAndShutDown) {
    std::atomic<CZQCoreAudio*> current{nullptr};
    std::shared_mutex lifetime;  // held shared while a getter may use the object, exclusive to destroy it
    std::atomic<bool> done{false};
    std::atomic<long> calls{0};
    int wrongWhenEmpty = 0;  // getters of a core before Init or after Shutdown that read anything

    std::atomic<float> lastSum{0.0f};  // keeps the calls observable
    auto hammer = [&](int seed) {
        int place = seed;
        while (!done.load()) {
            std::shared_lock<std::shared_mutex> alive(lifetime);
            CZQCoreAudio* object = current.load();
            if (object == nullptr) continue;
            place = (place + 37) % 4096;
            lastSum.store(CallEveryGetter(*object, place), std::memory_order_relaxed);
            calls.fetch_add(1, std::memory_order_relaxed);
        }
    };
    std::thread first(hammer, 0);
    std::thread second(hammer, 2048);

    std::thread lifecycle([&] {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
        for (int round = 0; round < kRounds; ++round) {
            auto* object = new CZQCoreAudio;
            if (CallEveryGetter(*object, round) != 0.0f) ++wrongWhenEmpty;
            current.store(object);
            object->Init(nullptr);
            object->Start();
            object->Refresh();
            object->Start();
            object->Shutdown();
            if (CallEveryGetter(*object, round) != 0.0f) ++wrongWhenEmpty;
            {
                std::unique_lock<std::shared_mutex> gone(lifetime);
                current.store(nullptr);
                delete object;
                g_pCore = nullptr;
            }
        }
        CoUninitialize();
    });
    lifecycle.join();
    done.store(true);
    first.join();
    second.join();

    EXPECT_EQ(wrongWhenEmpty, 0) << "a getter read something other than its empty value before Init or after Shutdown";
    EXPECT_GT(calls.load(), kRounds) << "the getters hardly ran beside the lifecycle";
}

}  // namespace
