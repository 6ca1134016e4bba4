// Calls out of order through the exported interface, on a machine with one of the maker's
// microphones: the lifecycle and device members before Init and after Shutdown, Init twice,
// and the getters' indices in every phase of the core object's life. Under AddressSanitizer
// the leak check runs once the core object is gone.
#include <gtest/gtest.h>

#include <stdexcept>

#include "microphone_machine.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using zqtest::MicrophoneMachineTest;

class CallsOutOfOrder : public MicrophoneMachineTest {
protected:
    void SetUp() override {
        MicrophoneMachineTest::SetUp();
        AddRender(48000, 2, zqvm::SampleFormat::Float32);
        microphone = AddMicrophone("KV1-ORDER");
    }

    // Destroys the core object; under AddressSanitizer, then finds no memory that nothing points
    // to any more (records a half-done call listed, engines a second Init replaced).
    void DestroyCoreAndCheckLeaks() {
        core.reset();
#if defined(__SANITIZE_ADDRESS__)
        EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0) << "leaks (reported above)";
#endif
    }

    static std::wstring NothingDone(const wchar_t* member) {
        return std::wstring(L"CoreAudio: ") + member + L": not initialised (before Init or after Shutdown), nothing done";
    }

    // Every member that needs the components, called without them: nothing is listed, opened or
    // started, the bridge is not even asked, and the log says so for each.
    void ExpectMembersWithoutComponentsDoNothing() {
        const int opens = zqvm::GetBridgeState(microphone.bridge)->opens;
        const size_t queries = zqvm::BridgeCalls().size();
        recorder->Clear();
        core->Refresh();
        core->RebuildCapture();
        core->RebuildRender();
        core->DestroyCapture();
        core->DestroyRender();
        core->Start();
        EXPECT_FALSE(core->FillDevicesZQ());
        EXPECT_FALSE(core->SetCaptureDevice(Device(microphone.endpoint)));
        core->Stop();

        EXPECT_EQ(core->GetHidCaptureDeviceCount(), 0u);
        EXPECT_EQ(core->GetCaptureDeviceCount(), 0u);
        EXPECT_EQ(core->GetRenderDeviceCount(), 0u);
        EXPECT_FALSE(core->IsStarted());
        EXPECT_EQ(core->GetCaptureEngine(), nullptr);
        EXPECT_EQ(zqvm::GetBridgeState(microphone.bridge)->opens, opens);
        EXPECT_EQ(zqvm::BridgeCalls().size(), queries) << "no bridge was asked for anything";
        for (const wchar_t* member :
             {L"Refresh", L"RebuildCapture", L"RebuildRender", L"DestroyCapture", L"DestroyRender", L"Start", L"FillDevicesZQ"}) {
            EXPECT_TRUE(recorder->Contains(zqLogEventWarning, NothingDone(member))) << CStringW(member).ToUtf8();
        }
        EXPECT_TRUE(recorder->TextsContaining(L"ClearDeviceZQ").empty());
        EXPECT_EQ(recorder->TextsContaining(L"CoreAudio: Stop"), std::vector<std::wstring>{L"CoreAudio: Stop"});
    }

    zqtest::Microphone microphone;
};

TEST_F(CallsOutOfOrder, BeforeInitAndAfterShutdownTheMembersThatNeedTheComponentsDoNothingAndLeakNothing) {
    {
        SCOPED_TRACE("before Init");
        ExpectMembersWithoutComponentsDoNothing();
    }
    core->Init(window->Handle());
    ASSERT_EQ(core->GetHidCaptureDeviceCount(), 1u);
    core->Start();
    ASSERT_TRUE(core->IsStarted());
    core->Shutdown();
    {
        SCOPED_TRACE("after Shutdown");
        ExpectMembersWithoutComponentsDoNothing();
    }
    // What such a call listed would be left to no one now.
    DestroyCoreAndCheckLeaks();
}

TEST_F(CallsOutOfOrder, ASecondInitWithoutShutdownLeavesTheRunningCoreAsItIs) {
    core->Init(window->Handle());
    core->Start();
    ASSERT_TRUE(core->IsStarted());
    CAudioCapture* capture = core->GetCaptureEngine();
    CAudioRender* render = core->GetRenderEngine();
    CWMAudioDevice* record = core->GetHidCaptureDevice(0);
    const int opens = zqvm::GetBridgeState(microphone.bridge)->opens;
    recorder->Clear();

    core->Init(window->Handle());
    EXPECT_EQ(recorder->Texts(), (std::vector<std::wstring>{L"CoreAudio: Init ...",
                                                            L"CoreAudio: Init: initialised already (Shutdown first), nothing done"}));
    EXPECT_TRUE(recorder->Contains(zqLogEventWarning, L"CoreAudio: Init: initialised already (Shutdown first), nothing done"));
    EXPECT_EQ(core->GetCaptureEngine(), capture);
    EXPECT_EQ(core->GetRenderEngine(), render);
    EXPECT_EQ(core->GetHidCaptureDevice(0), record);
    EXPECT_EQ(core->GetHidCaptureDeviceCount(), 1u);
    EXPECT_EQ(zqvm::GetBridgeState(microphone.bridge)->opens, opens) << "no second discovery";
    EXPECT_TRUE(core->IsStarted()) << "the streams were left running";
    core->Shutdown();
    DestroyCoreAndCheckLeaks();
}

// An index outside the spectrum (0..4095) or the waveform-peak history (0..4799) throws
// std::out_of_range whenever the host calls, not only while the analyzer is there; an index
// inside never throws.
TEST_F(CallsOutOfOrder, GetterIndicesOutsideTheArraysThrowBeforeInitWhileRunningAndAfterShutdown) {
    using Bin = float (CZQCoreAudio::*)(int);
    const auto expectIndicesChecked = [this] {
        for (Bin get : {&CZQCoreAudio::GetSpectrumAmpIn, &CZQCoreAudio::GetSpectrumAmpOut,
                        &CZQCoreAudio::GetSpectrumAmpPeakIn, &CZQCoreAudio::GetSpectrumAmpPeakOut}) {
            EXPECT_THROW((core.get()->*get)(-1), std::out_of_range);
            EXPECT_THROW((core.get()->*get)(4096), std::out_of_range);
            EXPECT_NO_THROW((core.get()->*get)(0));
            EXPECT_NO_THROW((core.get()->*get)(4095));
        }
        for (auto get : {&CZQCoreAudio::GetDataPeakIn, &CZQCoreAudio::GetDataPeakOut}) {
            EXPECT_THROW((core.get()->*get)(4800, 0), std::out_of_range);
            EXPECT_THROW((core.get()->*get)(-1, 0), std::out_of_range);
            EXPECT_THROW((core.get()->*get)(4799, -1), std::out_of_range) << "moved past the end";
            EXPECT_NO_THROW((core.get()->*get)(4799, 0));
            EXPECT_NO_THROW((core.get()->*get)(4799, 1)) << "wraps to place 1";
        }
    };
    {
        SCOPED_TRACE("before Init");
        expectIndicesChecked();
        EXPECT_EQ(core->GetSpectrumAmpIn(4095), 0.0f) << "no analyzer yet";
    }
    core->Init(window->Handle());
    core->Start();
    ASSERT_TRUE(core->IsStarted());
    {
        SCOPED_TRACE("running");
        expectIndicesChecked();
    }
    core->Shutdown();
    {
        SCOPED_TRACE("after Shutdown");
        expectIndicesChecked();
        EXPECT_EQ(core->GetDataPeakIn(0, 0), 0.0f) << "the analyzer is gone";
    }
}

}  // namespace
