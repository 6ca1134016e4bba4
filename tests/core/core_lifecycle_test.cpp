// The core's lifecycle sequences on the virtual audio engine: which stream starts and stops
// first, what Start does to running streams, what Refresh stops, when the core counts as
// started, and which speaker RebuildRender opens.
#include <gtest/gtest.h>

#include <algorithm>

#include "audio/AudioCapture.h"
#include "audio/AudioRender.h"
#include "audio_fixture.h"
#include "endpoint_queries.h"

namespace {

using zqtest::AudioMachineTest;

class CoreLifecycle : public AudioMachineTest {
protected:
    void SetUp() override {
        AudioMachineTest::SetUp();
        AddRender(48000, 2, zqvm::SampleFormat::Float32, L"Speakers (other)");
        defaultSpeaker = AddRender(48000, 2, zqvm::SampleFormat::Float32, L"Speakers (default)");  // made default
        AddRender(44100, 2, zqvm::SampleFormat::Float32, L"Speakers (third)", false);
        mic = AddCapture(48000, 1, zqvm::SampleFormat::Float32, zqvm::CaptureSource::Silence());
        core->Init(window->Handle());
        ASSERT_TRUE(core->SetCaptureDevice(Device(mic)));
    }

    // Where the first line equal to text stands in the log after position from; npos if none.
    size_t Find(const std::vector<std::wstring>& texts, const std::wstring& text, size_t from = 0) {
        const auto it = std::find(texts.begin() + static_cast<long>(from), texts.end(), text);
        return it == texts.end() ? std::wstring::npos : static_cast<size_t>(it - texts.begin());
    }

    std::wstring RenderDeviceId() { return zqtest::IdOf(core->GetRenderEngine()->m_spRenderDevice); }

    std::wstring defaultSpeaker;
    std::wstring mic;
};

TEST_F(CoreLifecycle, StartStartsRenderBeforeCaptureAndStopStopsRenderFirst) {
    recorder->Clear();
    core->Start();
    ASSERT_TRUE(core->IsStarted());
    core->Stop();
    const std::vector<std::wstring> texts = recorder->Texts();
    const size_t start = Find(texts, L"CoreAudio: Start");
    ASSERT_NE(start, std::wstring::npos);
    EXPECT_LT(Find(texts, L"AudioRender: StartRender", start), Find(texts, L"AudioCapture: StartCapture", start));
    const size_t stop = Find(texts, L"CoreAudio: Stop", start);
    ASSERT_NE(stop, std::wstring::npos);
    EXPECT_LT(Find(texts, L"AudioRender: StopRender", stop), Find(texts, L"AudioCapture: StopCapture", stop));
    EXPECT_FALSE(core->IsStarted());
}

TEST_F(CoreLifecycle, StartOnAStartedCoreStopsBothAndStartsNewThreads) {
    core->Start();
    recorder->Clear();
    core->Start();
    const std::vector<std::wstring> texts = recorder->Texts();
    ASSERT_GE(texts.size(), 2u);
    EXPECT_EQ(texts[0], L"CoreAudio: Start");
    EXPECT_EQ(texts[1], L"CoreAudio: Stop");
    EXPECT_LT(Find(texts, L"AudioCapture: Stop CaptureThread ..."), Find(texts, L"AudioRender: start WASAPIRenderThread"));
    EXPECT_TRUE(core->IsStarted());
}

TEST_F(CoreLifecycle, RefreshStopsBothStreamsAndDoesNotStartThemAgain) {
    core->Start();
    ASSERT_TRUE(core->IsStarted());
    core->Refresh();
    EXPECT_FALSE(core->GetRenderEngine()->IsStarted()) << "the render stream must stop too";
    EXPECT_FALSE(core->GetCaptureEngine()->IsStarted());
    EXPECT_FALSE(core->IsStarted());
}

TEST_F(CoreLifecycle, TheCoreCountsAsStartedOnlyWhileBothStreamsRun) {
    core->Start();
    ASSERT_TRUE(core->IsStarted());
    ASSERT_TRUE(core->SetCaptureDevice(Device(mic)));  // stops the capture stream only
    EXPECT_TRUE(core->GetRenderEngine()->IsStarted());
    EXPECT_FALSE(core->IsStarted());
    recorder->Clear();
    core->Start();  // not started: nothing is stopped, only the capture stream starts
    EXPECT_TRUE(core->IsStarted());
    EXPECT_EQ(recorder->TextsContaining(L"AudioRender: StopRender").size(), 0u);
}

TEST_F(CoreLifecycle, RebuildRenderOpensTheFirstRecordTheSystemsDefault) {
    core->RebuildRender();
    ASSERT_EQ(core->GetRenderDeviceCount(), 4u);
    EXPECT_EQ(core->GetRenderDevice(0)->GetName(), CStringW(L"Default"));
    EXPECT_EQ(RenderDeviceId(), defaultSpeaker);
}

}  // namespace
