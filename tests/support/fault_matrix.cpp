// The fault matrix's cases (fault_matrix.h).
#include "fault_matrix.h"

#include <gtest/gtest.h>

#include <cwctype>
#include <sstream>
#include <vector>

#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/bridges.h"
#include "zqplatform/vm/call_faults.h"
#include "zqplatform/vm/kernel_faults.h"
#include "zqplatform/vm/registry.h"

namespace zqtest {
namespace {

constexpr uint32_t kMaxCallsOfAKind = 40;  // more calls of one kind on one path would be a loop

const char* Name(FaultPhase phase) {
    switch (phase) {
        case FaultPhase::Init: return "Init";
        case FaultPhase::Refresh: return "Refresh";
        case FaultPhase::RebuildRender: return "RebuildRender";
        case FaultPhase::Start: return "Start";
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

class Cases {
public:
    explicit Cases(const FaultMatrixRig& rig) : m_rig(rig), m_core(*rig.core) {}

    // One case; false when the failure did not happen because the path makes fewer calls of
    // that kind.
    bool Run(FaultPhase phase, const Fault& fault, uint32_t skip, int caseNumber) {
        SCOPED_TRACE(std::string(Name(phase)) + ": " + fault.call + " #" + std::to_string(skip + 1));
        m_rig.recorder->Clear();
        m_rig.debugOutput->Clear();
        m_core = std::make_unique<CZQCoreAudio>();
        m_core->SetLog(&m_rig.recorder->Log());
        if (phase != FaultPhase::Init) {
            m_core->Init(m_rig.window->Handle());
            m_core->Start();
            m_rig.tick();
        }
        const int64_t code = CodeFor(fault, caseNumber);
        if (fault.engineMethod) {
            EXPECT_TRUE(zqvm::InjectFailureAfter(L"", fault.call, static_cast<HRESULT>(code), skip));
        } else {
            EXPECT_TRUE(zqvm::FailCall(fault.call, skip, code));
        }
        Enter(phase);
        if (phase != FaultPhase::Start) m_core->Start();
        m_rig.tick();
        const bool happened = fault.engineMethod ? zqvm::PendingFailures() == 0 : !zqvm::CallFailurePending();
        zqvm::ClearFailures();
        zqvm::ClearCallFailure();

        if (happened) {
            if (!IsStreamLoopCall(fault.call)) {
                EXPECT_TRUE(Told(code)) << "nothing in the log or the debug output carries the code";
            }
            ExpectTheNextAttemptWorks(phase);
        }
        m_core->Shutdown();
        m_core.reset();
        g_pCore = nullptr;
        EXPECT_EQ(zqvm::LiveObjectCount(), m_rig.baselineObjects) << "engine objects left alive";
        EXPECT_EQ(zqvm::OpenKernelHandleCount(), m_rig.baselineHandles) << "kernel handles left open";
        EXPECT_EQ(zqvm::BridgeOpenHandleCount(), 0u) << "a bridge left open";
        EXPECT_EQ(zqvm::RegistryOpenHandleCount(), 0u) << "a registry key left open";
        return happened;
    }

private:
    void Enter(FaultPhase phase) {
        switch (phase) {
            case FaultPhase::Init: m_core->Init(m_rig.window->Handle()); break;
            case FaultPhase::Refresh: m_core->Refresh(); break;
            case FaultPhase::RebuildRender: m_core->RebuildRender(); break;
            case FaultPhase::Start: m_core->Start(); break;
        }
    }

    void ExpectTheNextAttemptWorks(FaultPhase phase) {
        if (phase == FaultPhase::Init) {
            m_core->Shutdown();
            m_core->Init(m_rig.window->Handle());
        } else {
            Enter(phase);
        }
        m_core->Start();
        EXPECT_EQ(m_core->GetHidCaptureDeviceCount(), 1u);
        if (CWMAudioDevice* record = m_core->GetHidCaptureDevice(0)) {
            EXPECT_EQ(record->GetVerFW(), m_rig.firmware);
            EXPECT_EQ(record->GetFriendlyName(), CStringW(m_rig.friendlyName.c_str()));
        }
        EXPECT_EQ(m_core->GetCaptureDeviceCount(), m_rig.captureDevices);
        EXPECT_EQ(m_core->GetRenderDeviceCount(), m_rig.renderDevices);
        EXPECT_TRUE(m_core->IsStarted());
        EXPECT_TRUE(m_rig.soundFlows()) << "no sound from the microphone reached the speaker";
    }

    bool Told(int64_t code) {
        for (const std::wstring& text : m_rig.recorder->Texts())
            if (MentionsCode(text, code)) return true;
        for (const std::wstring& text : m_rig.debugOutput->Texts())
            if (MentionsCode(text, code)) return true;
        return false;
    }

    const FaultMatrixRig& m_rig;
    std::unique_ptr<CZQCoreAudio>& m_core;
};

}  // namespace

FaultMatrixRig RigOver(LogRecorder& recorder, MessageWindow& window, zqvm::DebugOutputRecorder& debugOutput,
                       std::unique_ptr<CZQCoreAudio>& core, std::function<void()> tick,
                       std::function<bool()> soundFlows) {
    FaultMatrixRig rig;
    rig.recorder = &recorder;
    rig.window = &window;
    rig.debugOutput = &debugOutput;
    rig.core = &core;
    rig.tick = std::move(tick);
    rig.soundFlows = std::move(soundFlows);
    return rig;
}

int RunFaultPhase(const FaultMatrixRig& rig, FaultPhase phase) {
    Cases cases(rig);
    int count = 0;
    for (const Fault& fault : EveryFault()) {
        for (uint32_t skip = 0; skip < kMaxCallsOfAKind; ++skip) {
            if (!cases.Run(phase, fault, skip, count)) break;
            ++count;
        }
    }
    std::printf("%s: %d failure cases\n", Name(phase), count);
    return count;
}

}  // namespace zqtest
