// A fixture for tests that drive the core and its engines through the virtual audio engine:
// a live core object with a recorded log, an empty virtual machine, the stepped platform clock,
// COM joined on the test thread, and a check that no engine object outlives the test.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "log_recorder.h"
#include "message_window.h"
#include "scoped_environment.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/clock.h"
#include "zqplatform/vm/debug_output.h"

namespace zqtest {

// Every wait for a stream thread is bounded by this.
constexpr uint32_t kStreamWaitMs = 5000;

class AudioMachineTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Endpoints of the virtual machine.
    std::wstring AddCapture(uint32_t rate, uint16_t channels, zqvm::SampleFormat format,
                            const zqvm::CaptureSource& source, const wchar_t* name = L"Microphone (test)");
    std::wstring AddRender(uint32_t rate, uint16_t channels, zqvm::SampleFormat format,
                           const wchar_t* name = L"Speakers (test)", bool makeDefault = true);
    // The endpoint as the system's enumerator hands it out (one reference, owned by the result).
    CComPtr<IMMDevice> Device(const std::wstring& id);
    // Moves the stepped clock by whole device periods of 10 ms.
    static void StepPeriods(int periods);

    // One step of opening a device stream (an "Interface::Method", or "Interface::Method/
    // Interface" for one requested interface) and what its failure reports.
    struct FailingStep {
        const char* method;
        const wchar_t* text;
    };
    // Makes each step fail once with injected, then the creation of each of the stream's two
    // events: every failed open is reported (the step's text logged as an error and written to
    // the debug output), and the next open succeeds.
    void ExpectEachFailingStepReported(const std::wstring& endpoint, HRESULT injected,
                                       const std::vector<FailingStep>& steps, const std::function<HRESULT()>& open);

    std::unique_ptr<LogRecorder> recorder;
    std::unique_ptr<MessageWindow> window;
    std::unique_ptr<CZQCoreAudio> core;
    zqvm::DebugOutputRecorder debugOutput;
    long baselineObjects = 0;
};

// The engines' conversions and queue exactly, frame by frame: without the monitoring path's
// rate control (switched off before the core opens its devices).
class ExactMonitoringTest : public AudioMachineTest {
protected:
    ScopedEnvironment rateControlOff{"ZQ_MONITOR_RATE_CONTROL", "0"};
};

}  // namespace zqtest
