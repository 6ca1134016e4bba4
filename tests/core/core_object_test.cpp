// The core object without components: construction, g_pCore, defaults, accessors, and the
// sequences that are safe before Init.
#include <gtest/gtest.h>

#include <memory>

#include "log_recorder.h"
#include "zqCoreAudio.h"

namespace {

using zqtest::LogRecorder;

TEST(CoreObject, ConstructionPublishesItselfWithDefaultsAndNoComponents) {
    const auto earlier = std::make_unique<CZQCoreAudio>();  // the newest core takes the global pointer over
    auto core = std::make_unique<CZQCoreAudio>();
    EXPECT_EQ(g_pCore, core.get());
    EXPECT_TRUE(core->IsBypass());
    EXPECT_EQ(core->GetWaveScale(), 480);
    EXPECT_EQ(core->GetWhichFunction(), 2);
    EXPECT_EQ(core->GetSpectrumView(), 1);
    EXPECT_FALSE(core->IsInit());
    EXPECT_FALSE(core->IsStarted());
    EXPECT_EQ(core->GetCaptureEngine(), nullptr);
    EXPECT_EQ(core->GetRenderEngine(), nullptr);
    EXPECT_EQ(core->GetNotifyClient(), nullptr);
    EXPECT_EQ(core->GetHwnd(), nullptr);
    EXPECT_EQ(core->GetCaptureDeviceCount(), 0u);
    EXPECT_EQ(core->GetRenderDeviceCount(), 0u);
    EXPECT_EQ(core->GetCaptureDevice(0), nullptr);
    EXPECT_EQ(core->GetCaptureDevice(-1), nullptr);
    EXPECT_EQ(core->GetRenderDevice(0), nullptr);
    EXPECT_EQ(core->GetHidCaptureDeviceCount(), 0u);
    EXPECT_EQ(core->GetHidCaptureDevice(0), nullptr);
    _SECURITY_ATTRIBUTES* sa = core->GetSA();
    ASSERT_NE(sa, nullptr);
    EXPECT_EQ(sa->nLength, sizeof(_SECURITY_ATTRIBUTES));
    EXPECT_NE(sa->lpSecurityDescriptor, nullptr);  // Create ran in the constructor
}

TEST(CoreObject, StopBeforeInitOnlyLogsStopAndOnlyTheDestructorLineFollows) {
    LogRecorder recorder;
    auto core = std::make_unique<CZQCoreAudio>();  // its constructor's line goes to no log
    core->SetLog(&recorder.Log());
    core->Stop();
    core.reset();
    EXPECT_EQ(recorder.Texts(), (std::vector<std::wstring>{L"CoreAudio: Stop", L"CoreAudio: destructor"}));
    EXPECT_TRUE(recorder.Contains(zqLogEventInfo, L"CoreAudio: Stop"));
}

TEST(CoreObject, InitWithANullWindowBuildsButStillReportsNotInitialised) {
    CZQCoreAudio core;
    core.Init(nullptr);
    EXPECT_FALSE(core.IsInit());
    core.Shutdown();
    EXPECT_FALSE(core.IsInit());
    EXPECT_EQ(core.GetCaptureEngine(), nullptr);
    EXPECT_EQ(core.GetRenderEngine(), nullptr);
}

}  // namespace
