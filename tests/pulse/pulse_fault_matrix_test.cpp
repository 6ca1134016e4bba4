// The fault matrix (fault_matrix.h) on the pulse backend, against the test server: the server's
// kv1_mic, fed with a tone, is the microphone (the simulated KV-1 bridge of its USB device pairs
// with it), and the sound reaching the speaker is heard on speaker48's monitor. The streams run
// in real time: they tick while the monitor is recorded. The test reads nothing through the
// library (its meters would take the failure meant for the core).
#include <algorithm>
#include <cmath>

#include "fault_matrix.h"
#include "pulse_host_fixture.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/kernel_faults.h"

namespace zqtest::pulse {
namespace {

constexpr double kTickSeconds = 0.05;   // five device periods
constexpr double kListenSeconds = 0.2;  // one look for the tone at the speaker
constexpr int kListens = 15;            // the tone has 3 s to arrive
// The tone's peak at the speaker is 0.5, -3 dB from mono to stereo, at the session volume of the
// core (0.5): far above this.
constexpr float kHeard = 0.05f;

float PeakOf(const std::vector<float>& samples) {
    float peak = 0.0f;
    for (float sample : samples) peak = std::max(peak, std::fabs(sample));
    return peak;
}

class PulseFaultMatrix : public PulseHost {
protected:
    void SetUp() override {
        ports = {3};  // the KV-1 of kv1_mic's USB device only
        PulseHost::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        enumerator.Release();  // the cases' cores make their own
        // What a core lists on the server when nothing fails.
        ASSERT_EQ(1u, core->GetHidCaptureDeviceCount()) << "the KV-1 paired with kv1_mic";
        rig = zqtest::RigOver(*recorder, *window, debugOutput, core, [this] { Tick(); }, [this] { return SoundFlows(); });
        rig.captureDevices = core->GetCaptureDeviceCount();
        rig.renderDevices = core->GetRenderDeviceCount();
        rig.firmware = 0x12;
        rig.friendlyName = L"KV-1";
        core->Start();
        ASSERT_TRUE(SoundFlows()) << "the tone does not reach the speaker even without failures";
        core->Shutdown();
        core.reset();
        g_pCore = nullptr;
        rig.baselineObjects = zqvm::LiveObjectCount();
        rig.baselineHandles = zqvm::OpenKernelHandleCount();
    }

    void Tick() {
        Record("speaker48.monitor", 48000, 2, kTickSeconds);
        window->Pump();
    }

    bool SoundFlows() {
        for (int i = 0; i < kListens; ++i) {
            window->Pump();
            if (PeakOf(Record("speaker48.monitor", 48000, 2, kListenSeconds)) > kHeard) return true;
        }
        return false;
    }

    zqvm::DebugOutputRecorder debugOutput;
    zqtest::FaultMatrixRig rig;
};

TEST_F(PulseFaultMatrix, Init) { EXPECT_GT(zqtest::RunFaultPhase(rig, zqtest::FaultPhase::Init), 0); }
TEST_F(PulseFaultMatrix, Refresh) { EXPECT_GT(zqtest::RunFaultPhase(rig, zqtest::FaultPhase::Refresh), 0); }
TEST_F(PulseFaultMatrix, RebuildRender) {
    EXPECT_GT(zqtest::RunFaultPhase(rig, zqtest::FaultPhase::RebuildRender), 0);
}
TEST_F(PulseFaultMatrix, Start) { EXPECT_GT(zqtest::RunFaultPhase(rig, zqtest::FaultPhase::Start), 0); }

}  // namespace
}  // namespace zqtest::pulse
