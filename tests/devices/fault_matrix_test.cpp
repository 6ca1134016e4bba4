// Every platform call on the paths of Init, Refresh, RebuildRender and Start, failed once in
// turn (each call of each kind, counted along the path), with the streams ticking after the
// phase so that a stream thread meets whatever the failed open left behind. For each failure:
// nothing crashes, the failure is told (the log or the debug output carries its code), the
// next attempt brings the whole chain back (microphone found and named, devices listed, sound
// from the microphone reaching the speaker), and after Shutdown nothing is left open.
#include <gtest/gtest.h>

#include <cwctype>
#include <sstream>

#include "microphone_machine.h"
#include "zqplatform/vm/call_faults.h"
#include "zqplatform/vm/kernel_faults.h"

namespace {

using zqtest::MicrophoneMachineTest;

constexpr uint32_t kWait = 5000;
constexpr uint32_t kMaxCallsOfAKind = 40;  // more calls of one kind on one path would be a loop

enum class Phase { Init, Refresh, RebuildRender, Start };
const char* Name(Phase phase) {
    switch (phase) {
        case Phase::Init: return "Init";
        case Phase::Refresh: return "Refresh";
        case Phase::RebuildRender: return "RebuildRender";
        case Phase::Start: return "Start";
    }
    return "?";
}

// A call to fail: an audio engine method (through the engine's rules) or another platform call.
struct Fault {
    std::string call;
    bool engineMethod;
};

std::vector<Fault> EveryFault() {
    std::vector<Fault> faults;
    for (const std::string& method : zqvm::InjectableMethods()) faults.push_back({method, true});
    for (const std::string& call : zqvm::FaultableCalls()) faults.push_back({call, false});
    return faults;
}

// The code a failure reports: an HRESULT for COM calls, a small status or system error for the
// others, distinct per case so that the log check cannot be met by another line.
int64_t CodeFor(const Fault& fault, int caseNumber) {
    const bool isCom = fault.engineMethod || fault.call == "CoCreateInstance";
    if (isCom) return static_cast<int64_t>(0x8889A000u + static_cast<uint32_t>(caseNumber % 0xFFF));
    if (fault.call.rfind("HidUart_", 0) == 0) return 0x11;  // HID_UART_DEVICE_IO_FAILED
    return 1000 + caseNumber % 8000;                         // a registry status or a last error
}

// The calls the stream threads make in their loops: one that fails once is skipped without a
// word, and the next wake-up goes on (a lasting failure is told, which the stream recovery tests
// cover). A failure of the same calls while a device opens is told by the open.
bool IsStreamLoopCall(const std::string& call) {
    for (const char* loopCall : {"IAudioCaptureClient::GetBuffer", "IAudioRenderClient::GetBuffer",
                                 "IAudioRenderClient::ReleaseBuffer", "IAudioClient::GetCurrentPadding",
                                 "IAudioClient::GetBufferSize"}) {
        if (call == loopCall) return true;
    }
    return false;
}

bool MentionsCode(const std::wstring& text, int64_t code) {
    std::wostringstream hex;
    hex << std::hex << static_cast<uint32_t>(code);
    std::wostringstream dec;
    dec << code;
    std::wstring lower = text;
    for (wchar_t& c : lower) c = static_cast<wchar_t>(std::towlower(c));
    return lower.find(hex.str()) != std::wstring::npos || lower.find(dec.str()) != std::wstring::npos;
}

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
        baselineHandles = zqvm::OpenKernelHandleCount();
    }
    void TearDown() override {
        zqvm::ClearCallFailure();
        zqvm::SetBridgeTiming(zqvm::BridgeTiming::RealTime);
        MicrophoneMachineTest::TearDown();
    }

    void Run(Phase phase) {
        switch (phase) {
            case Phase::Init: core->Init(window->Handle()); break;
            case Phase::Refresh: core->Refresh(); break;
            case Phase::RebuildRender: core->RebuildRender(); break;
            case Phase::Start: core->Start(); break;
        }
    }

    // A few device periods; when the microphone streams, until its thread has had packets.
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

    bool Told(int64_t code) {
        for (const std::wstring& text : recorder->Texts())
            if (MentionsCode(text, code)) return true;
        for (const std::wstring& text : debugOutput.Texts())
            if (MentionsCode(text, code)) return true;
        return false;
    }

    // One case; false when the failure did not happen because the path makes fewer calls of
    // that kind.
    bool RunCase(Phase phase, const Fault& fault, uint32_t skip, int caseNumber) {
        SCOPED_TRACE(std::string(Name(phase)) + ": " + fault.call + " #" + std::to_string(skip + 1));
        recorder->Clear();
        debugOutput.Clear();
        core = std::make_unique<CZQCoreAudio>();
        core->SetLog(&recorder->Log());
        if (phase != Phase::Init) {
            core->Init(window->Handle());
            core->Start();
            Tick();
        }
        const int64_t code = CodeFor(fault, caseNumber);
        if (fault.engineMethod) {
            EXPECT_TRUE(zqvm::InjectFailureAfter(L"", fault.call, static_cast<HRESULT>(code), skip));
        } else {
            EXPECT_TRUE(zqvm::FailCall(fault.call, skip, code));
        }
        Run(phase);
        if (phase != Phase::Start) core->Start();
        Tick();
        const bool happened = fault.engineMethod ? zqvm::PendingFailures() == 0 : !zqvm::CallFailurePending();
        zqvm::ClearFailures();
        zqvm::ClearCallFailure();

        if (happened) {
            if (!IsStreamLoopCall(fault.call)) {
                EXPECT_TRUE(Told(code)) << "nothing in the log or the debug output carries the code";
            }
            // The next attempt works all the way through.
            if (phase == Phase::Init) {
                core->Shutdown();
                core->Init(window->Handle());
            } else {
                Run(phase);
            }
            core->Start();
            EXPECT_EQ(core->GetHidCaptureDeviceCount(), 1u);
            if (CWMAudioDevice* record = core->GetHidCaptureDevice(0)) {
                EXPECT_EQ(record->GetVerFW(), 0x12);
                EXPECT_EQ(record->GetFriendlyName(), CStringW(L"KV-1 Studio"));
            }
            EXPECT_EQ(core->GetCaptureDeviceCount(), 1u);
            EXPECT_EQ(core->GetRenderDeviceCount(), 2u);
            EXPECT_TRUE(core->IsStarted());
            EXPECT_TRUE(SoundFlows()) << "no sound from the microphone reached the speaker";
        }
        core->Shutdown();
        core.reset();
        g_pCore = nullptr;
        EXPECT_EQ(zqvm::LiveObjectCount(), baselineObjects) << "engine objects left alive";
        EXPECT_EQ(zqvm::OpenKernelHandleCount(), baselineHandles) << "kernel handles left open";
        EXPECT_EQ(zqvm::BridgeOpenHandleCount(), 0u) << "a bridge left open";
        EXPECT_EQ(zqvm::RegistryOpenHandleCount(), 0u) << "a registry key left open";
        return happened;
    }

    void RunPhase(Phase phase) {
        int cases = 0;
        for (const Fault& fault : EveryFault()) {
            for (uint32_t skip = 0; skip < kMaxCallsOfAKind; ++skip) {
                if (!RunCase(phase, fault, skip, cases)) break;
                ++cases;
            }
        }
        std::printf("%s: %d failure cases\n", Name(phase), cases);
        EXPECT_GT(cases, 0);
    }

    std::wstring speaker;
    std::wstring mic;
    size_t baselineHandles = 0;
};

TEST_F(FaultMatrix, Init) { RunPhase(Phase::Init); }
TEST_F(FaultMatrix, Refresh) { RunPhase(Phase::Refresh); }
TEST_F(FaultMatrix, RebuildRender) { RunPhase(Phase::RebuildRender); }
TEST_F(FaultMatrix, Start) { RunPhase(Phase::Start); }

}  // namespace
