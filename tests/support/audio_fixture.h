// A fixture for tests that drive the core and its engines through the virtual audio engine:
// a live core object with a recorded log, an empty virtual machine, the stepped platform clock,
// COM joined on the test thread, and a check that no engine object outlives the test.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "log_recorder.h"
#include "message_window.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/clock.h"
#include "zqplatform/vm/debug_output.h"

namespace zqtest {

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

    std::unique_ptr<LogRecorder> recorder;
    std::unique_ptr<MessageWindow> window;
    std::unique_ptr<CZQCoreAudio> core;
    zqvm::DebugOutputRecorder debugOutput;
    long baselineObjects = 0;
    bool checkObjectsOnTearDown = true;
};

}  // namespace zqtest
