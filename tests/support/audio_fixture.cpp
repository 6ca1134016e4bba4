#include "audio_fixture.h"

#include <algorithm>

#include "endpoint_queries.h"
#include "zqplatform/vm/kernel_faults.h"

namespace zqtest {

void AudioMachineTest::SetUp() {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    zqvm::Reset();
    zqvm::ClearFailures();
    zqvm::SetClockMode(zqvm::ClockMode::Stepped);
    baselineObjects = zqvm::LiveObjectCount();
    recorder = std::make_unique<LogRecorder>();
    window = std::make_unique<MessageWindow>();
    core = std::make_unique<CZQCoreAudio>();
    core->SetLog(&recorder->Log());
}

void AudioMachineTest::TearDown() {
    if (core) {
        if (core->GetCaptureEngine() != nullptr || core->GetRenderEngine() != nullptr) core->Shutdown();
        core.reset();
    }
    g_pCore = nullptr;  // the core leaves it set; nothing may run against a destroyed one
    zqvm::ClearFailures();
    EXPECT_EQ(zqvm::LiveObjectCount(), baselineObjects) << "engine objects leaked";
    zqvm::Reset();
    zqvm::SetClockMode(zqvm::ClockMode::RealTime);
    window.reset();
    recorder.reset();
    CoUninitialize();
}

std::wstring AudioMachineTest::AddCapture(uint32_t rate, uint16_t channels, zqvm::SampleFormat format,
                                          const zqvm::CaptureSource& source, const wchar_t* name) {
    return AddTestEndpoint(eCapture, name, rate, channels, format, source);
}

std::wstring AudioMachineTest::AddRender(uint32_t rate, uint16_t channels, zqvm::SampleFormat format,
                                         const wchar_t* name, bool makeDefault) {
    const std::wstring id = AddTestEndpoint(eRender, name, rate, channels, format);
    if (makeDefault) {
        for (ERole role : {eConsole, eMultimedia, eCommunications}) zqvm::SetDefaultEndpoint(eRender, role, id);
    }
    return id;
}

CComPtr<IMMDevice> AudioMachineTest::Device(const std::wstring& id) {
    CComPtr<IMMDeviceEnumerator> enumerator;
    EXPECT_TRUE(SUCCEEDED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                           reinterpret_cast<void**>(&enumerator))));
    CComPtr<IMMDevice> device;
    if (enumerator) {
        EXPECT_TRUE(SUCCEEDED(enumerator->GetDevice(id.c_str(), &device)));
    }
    return device;
}

void AudioMachineTest::ExpectEachFailingStepReported(const std::wstring& endpoint, HRESULT injected,
                                                     const std::vector<FailingStep>& steps,
                                                     const std::function<HRESULT()>& open) {
    for (const FailingStep& step : steps) {
        SCOPED_TRACE(step.method);
        recorder->Clear();
        debugOutput.Clear();
        ASSERT_TRUE(zqvm::InjectFailure(endpoint, step.method, injected, true));
        EXPECT_TRUE(FAILED(open()));
        EXPECT_TRUE(recorder->Contains(zqLogEventError, step.text)) << "not logged as an error";
        const std::vector<std::wstring> told = debugOutput.Texts();
        EXPECT_NE(std::find(told.begin(), told.end(), step.text), told.end()) << "not on the debug output";
        EXPECT_EQ(open(), S_OK);
    }
    for (uint32_t which = 0; which < 2; ++which) {
        recorder->Clear();
        zqvm::FailEventCreations(which, 1, ERROR_NOT_ENOUGH_MEMORY);
        EXPECT_EQ(open(), E_FAIL);
        EXPECT_TRUE(recorder->Contains(which == 0 ? L"Unable to create shutdown event: 8.\n"
                                                  : L"Unable to create samples ready event: 8.\n"))
            << which;
        EXPECT_EQ(open(), S_OK);
    }
}

void AudioMachineTest::StepPeriods(int periods) { zqvm::AdvanceClock(static_cast<int64_t>(periods) * 100000); }

}  // namespace zqtest
