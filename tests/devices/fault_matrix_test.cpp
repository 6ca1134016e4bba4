// The fault matrix (fault_matrix.h) on the virtual engine, with the stepped clock: the
// microphone plays a tone, and the speaker's released buffers show that the chain works.
#include <gtest/gtest.h>

#include "fault_matrix.h"
#include "microphone_machine.h"
#include "zqplatform/vm/call_faults.h"
#include "zqplatform/vm/kernel_faults.h"

namespace {

using zqtest::FaultPhase;
using zqtest::MicrophoneMachineTest;

constexpr uint32_t kWait = 5000;

class FaultMatrix : public MicrophoneMachineTest {
protected:
    void SetUp() override {
        MicrophoneMachineTest::SetUp();
        core.reset();  // every case makes its own
        g_pCore = nullptr;
        zqvm::SetBridgeTiming(zqvm::BridgeTiming::Instant);
        speaker = AddRender(48000, 2, zqvm::SampleFormat::Float32);
        // The microphone plays a tone, so that what reaches the speaker shows the chain works.
        AddMicrophone("KV1-FAULT", "KV-1 USB Microphone", false);
        zqvm::EndpointSpec endpointSpec;
        endpointSpec.flow = eCapture;
        endpointSpec.name = L"Microphone (KV1-FAULT)";
        endpointSpec.container = ContainerOf("KV1-FAULT");
        endpointSpec.source = zqvm::CaptureSource::Tone(1000.0, 0.5);
        mic = zqvm::AddEndpoint(endpointSpec);
        ASSERT_FALSE(mic.empty());

        rig = zqtest::RigOver(*recorder, *window, debugOutput, core, [this] { Tick(); }, [this] { return SoundFlows(); });
        rig.captureDevices = 1;
        rig.renderDevices = 2;  // Default and the speaker
        rig.firmware = 0x12;
        rig.friendlyName = L"KV-1 Studio";
        rig.baselineObjects = baselineObjects;
        rig.baselineHandles = zqvm::OpenKernelHandleCount();
    }
    void TearDown() override {
        zqvm::ClearCallFailure();
        zqvm::SetBridgeTiming(zqvm::BridgeTiming::RealTime);
        MicrophoneMachineTest::TearDown();
    }

    void Tick() {
        const uint64_t packets = zqvm::CapturePacketsReleased(mic);
        StepPeriods(3);
        if (zqvm::RunningStreams(mic) > 0) zqvm::WaitForCapturePacketsReleased(mic, packets + 1, kWait);
        window->Pump();
    }

    bool SoundFlows() {
        const uint64_t rendered = zqvm::RenderBuffersReleased(speaker);
        for (int i = 0; i < 6; ++i) {
            const uint64_t packets = zqvm::CapturePacketsReleased(mic);
            StepPeriods(1);
            if (!zqvm::WaitForCapturePacketsReleased(mic, packets + 1, kWait)) return false;
        }
        return zqvm::WaitForRenderBuffersReleased(speaker, rendered + 1, kWait);
    }

    std::wstring speaker;
    std::wstring mic;
    zqtest::FaultMatrixRig rig;
};

TEST_F(FaultMatrix, Init) { EXPECT_GT(zqtest::RunFaultPhase(rig, FaultPhase::Init), 0); }
TEST_F(FaultMatrix, Refresh) { EXPECT_GT(zqtest::RunFaultPhase(rig, FaultPhase::Refresh), 0); }
TEST_F(FaultMatrix, RebuildRender) { EXPECT_GT(zqtest::RunFaultPhase(rig, FaultPhase::RebuildRender), 0); }
TEST_F(FaultMatrix, Start) { EXPECT_GT(zqtest::RunFaultPhase(rig, FaultPhase::Start), 0); }

}  // namespace
