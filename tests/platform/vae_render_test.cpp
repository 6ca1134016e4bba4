// Render streams of the virtual audio engine on a stepped clock: what the sink receives, the
// silent flag, padding and free space, underruns, session volume and the meter.
#include <vector>

#include "vae_fixture.h"

namespace vaetest {
namespace {

using zqvm::SampleFormat;

class RenderStreamTest : public VirtualAudioTest {};

// Writes frames × channels float samples, value base + index / 1000 each.
void Write(IAudioRenderClient* render, UINT32 frames, uint16_t channels, float base, DWORD flags = 0) {
    BYTE* data = nullptr;
    ASSERT_EQ(render->GetBuffer(frames, &data), S_OK);
    ASSERT_NE(data, nullptr);
    auto* samples = reinterpret_cast<float*>(data);
    for (UINT32 i = 0; i < frames * channels; ++i) samples[i] = base + static_cast<float>(i) / 1000.0f;
    ASSERT_EQ(render->ReleaseBuffer(frames, flags), S_OK);
}

TEST_F(RenderStreamTest, TheSinkReceivesWhatWasWrittenOnePeriodAtATime) {
    const std::wstring id = Add(eRender, 48000, 2, SampleFormat::Float32);
    TestStream stream(id);
    ASSERT_EQ(stream.bufferFrames, 960u);
    CComPtr<IAudioRenderClient> render = stream.Get<IAudioRenderClient>();
    Write(render, 700, 2, 0.0f);
    EXPECT_EQ(stream.Padding(), 700u);
    ASSERT_EQ(stream.client->Start(), S_OK);

    Step();
    EXPECT_TRUE(stream.Signalled());
    EXPECT_EQ(stream.Padding(), 220u);
    EXPECT_EQ(zqvm::RenderedFrameCount(id), 480u);
    EXPECT_EQ(zqvm::Underruns(id), 0u);
    Step(2);  // 220 played, then 260 and a whole period of silence
    EXPECT_EQ(stream.Padding(), 0u);
    EXPECT_EQ(zqvm::RenderPeriodsConsumed(id), 3u);
    Write(render, 480, 2, -0.5f);
    Step();
    ASSERT_EQ(stream.client->Stop(), S_OK);

    EXPECT_EQ(zqvm::RenderedFrameCount(id), 4u * 480u) << "every period is played in full";
    EXPECT_EQ(zqvm::Underruns(id), 2u) << "the second and third periods found too little";
    EXPECT_EQ(zqvm::UnderrunFrames(id), 260u + 480u);
    EXPECT_EQ(zqvm::LongestGapFrames(id), 260u + 480u);
    EXPECT_EQ(zqvm::RenderedSilentFrames(id), 0u) << "nothing was released silent";

    const std::vector<float> played = zqvm::RenderedFrames(id);
    ASSERT_EQ(played.size(), 4u * 480u * 2u);
    for (size_t i = 0; i < 1400; ++i) ASSERT_FLOAT_EQ(played[i], static_cast<float>(i) / 1000.0f) << i;
    for (size_t i = 1400; i < 2 * 1440; ++i) ASSERT_EQ(played[i], 0.0f) << i << ": the gap is heard in its place";
    for (size_t i = 2 * 1440; i < played.size(); ++i)
        ASSERT_FLOAT_EQ(played[i], -0.5f + static_cast<float>(i - 2 * 1440) / 1000.0f) << i << ": late, after the gap";
}

TEST_F(RenderStreamTest, SessionVolumeScalesWhatIsPlayedAndTheMeterShowsItsPeak) {
    const std::wstring id = Add(eRender, 48000, 2, SampleFormat::Float32);
    TestStream stream(id);
    CComPtr<IAudioRenderClient> render = stream.Get<IAudioRenderClient>();
    CComPtr<ISimpleAudioVolume> volume = stream.Get<ISimpleAudioVolume>();
    CComPtr<IAudioMeterInformation> meter;
    ASSERT_EQ(Device(id)->Activate(IID_IAudioMeterInformation, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&meter)),
              S_OK);
    ASSERT_EQ(volume->SetMasterVolume(0.5f, nullptr), S_OK);
    Write(render, 480, 2, 0.0f);  // peaks at 0.959
    ASSERT_EQ(stream.client->Start(), S_OK);
    Step();
    float peak = 0.0f;
    ASSERT_EQ(meter->GetPeakValue(&peak), S_OK);
    EXPECT_FLOAT_EQ(peak, 0.959f * 0.5f);
    EXPECT_FLOAT_EQ(zqvm::RenderedFrames(id)[10], 0.010f * 0.5f);

    ASSERT_EQ(volume->SetMute(TRUE, nullptr), S_OK);
    Write(render, 480, 2, 0.1f);
    Step();
    ASSERT_EQ(meter->GetPeakValue(&peak), S_OK);
    EXPECT_EQ(peak, 0.0f);
    EXPECT_EQ(zqvm::RenderedFrames(id).back(), 0.0f);
    ASSERT_EQ(stream.client->Stop(), S_OK);
    ASSERT_EQ(meter->GetPeakValue(&peak), S_OK);
    EXPECT_EQ(peak, 0.0f) << "no stream runs: the meter rests";
}

}  // namespace
}  // namespace vaetest
