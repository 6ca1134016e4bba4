// Device clocks of the virtual audio engine as a listener meets them: each endpoint's clock may
// run fast or slow by some ppm and start its periods in a phase of its own, and its stream
// events may be held while the device plays on.
#include <algorithm>
#include <vector>

#include "vae_fixture.h"

namespace vaetest {
namespace {

using zqvm::SampleFormat;

class DeviceClockTest : public VirtualAudioTest {};

void WriteRamp(IAudioRenderClient* render, UINT32 frames, float base) {
    BYTE* data = nullptr;
    ASSERT_EQ(render->GetBuffer(frames, &data), S_OK);
    auto* samples = reinterpret_cast<float*>(data);
    for (UINT32 i = 0; i < frames * 2; ++i) samples[i] = base + static_cast<float>(i + 1) / 10000.0f;
    ASSERT_EQ(render->ReleaseBuffer(frames, 0), S_OK);
}

TEST_F(DeviceClockTest, ARateErrorChangesTheFramesOfEachSecondExactly) {
    const std::wstring fast = Add(eRender, 48000, 2, SampleFormat::Float32);
    const std::wstring slow = Add(eCapture, 44100, 1, SampleFormat::Int16, zqvm::CaptureSource::Tone(440, 0.5));
    ASSERT_TRUE(zqvm::SetEndpointClock(fast, 300.0, 0.0));
    ASSERT_TRUE(zqvm::SetEndpointClock(slow, -250.5, 0.0));
    TestStream speaker(fast);
    TestStream microphone(slow, 2000000);  // 200 ms: room for every packet of the second below
    CComPtr<IAudioCaptureClient> capture = microphone.Get<IAudioCaptureClient>();
    ASSERT_EQ(speaker.client->Start(), S_OK);
    ASSERT_EQ(microphone.client->Start(), S_OK);
    uint64_t captured = 0;
    uint32_t smallest = UINT32_MAX, largest = 0;
    for (int second = 0; second < 10; ++second) {
        for (int period = 0; period < 100; ++period) {
            Step();
            const UINT32 frames = Take(capture, 2).frames;
            captured += frames;
            smallest = std::min(smallest, frames);
            largest = std::max(largest, frames);
        }
    }
    ASSERT_EQ(speaker.client->Stop(), S_OK);
    ASSERT_EQ(microphone.client->Stop(), S_OK);
    // Ten seconds: 480000 × 1.0003 frames played, 441000 × (1 - 0.0002505) captured; the
    // fraction of a frame each period leaves is carried to the next.
    EXPECT_EQ(zqvm::RenderedFrameCount(fast), 480144u);
    EXPECT_EQ(captured, 440889u);
    EXPECT_EQ(smallest, 440u) << "the shortfall is spread over the periods";
    EXPECT_EQ(largest, 441u);

    // The error can change while the stream runs; the count goes on from where it was.
    ASSERT_TRUE(zqvm::SetEndpointClock(fast, 0.0, 0.0));
    zqvm::ClearRendered(fast);
    ASSERT_EQ(speaker.client->Start(), S_OK);
    Step(100);
    ASSERT_EQ(speaker.client->Stop(), S_OK);
    EXPECT_EQ(zqvm::RenderedFrameCount(fast), 48000u);
}

TEST_F(DeviceClockTest, HeldStreamEventsAreNotSetWhileTheDevicePlaysOn) {
    const std::wstring id = Add(eRender, 48000, 2, SampleFormat::Float32);
    TestStream stream(id);
    CComPtr<IAudioRenderClient> render = stream.Get<IAudioRenderClient>();
    WriteRamp(render, 960, 0.0f);
    ASSERT_EQ(stream.client->Start(), S_OK);
    ASSERT_TRUE(zqvm::HoldStreamEvents(id, 3));
    for (int period = 1; period <= 3; ++period) {
        Step();
        EXPECT_FALSE(stream.Signalled()) << "period " << period;
    }
    EXPECT_EQ(zqvm::RenderedFrameCount(id), 3u * 480u) << "the device played on";
    EXPECT_EQ(zqvm::Underruns(id), 1u) << "and ran dry in the third period";
    Step();
    EXPECT_TRUE(stream.Signalled()) << "the fourth period sets the event again";
    ASSERT_EQ(stream.client->Stop(), S_OK);
    EXPECT_FALSE(zqvm::HoldStreamEvents(L"no such endpoint", 1));
}

TEST_F(DeviceClockTest, LateWakeUpsSetTheEventLaterWhileTheDeviceKeepsTime) {
    const std::wstring id = Add(eCapture, 48000, 1, SampleFormat::Float32, zqvm::CaptureSource::Tone(440, 0.5));
    TestStream stream(id);
    CComPtr<IAudioCaptureClient> capture = stream.Get<IAudioCaptureClient>();
    ASSERT_EQ(stream.client->Start(), S_OK);
    zqvm::WakeJitter fixed;
    fixed.delayMs = 3.0;
    ASSERT_TRUE(zqvm::SetWakeJitter(id, fixed));
    const int64_t periodEnd = zqvm::ClockNow() + kPeriod;
    Step();
    EXPECT_FALSE(stream.Signalled()) << "the period has ended, its wake-up is 3 ms away";
    EXPECT_EQ(zqvm::NextClockDue(), periodEnd + 30000);
    ASSERT_TRUE(zqvm::AdvanceClock(30000));
    EXPECT_TRUE(stream.Signalled());
    // The packet was recorded on time: its stamp is its first frame's time, one period back.
    BYTE* data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    UINT64 recordedAt = 0;
    ASSERT_EQ(capture->GetBuffer(&data, &frames, &flags, nullptr, &recordedAt), S_OK);
    EXPECT_EQ(recordedAt, static_cast<UINT64>(periodEnd - kPeriod));
    ASSERT_EQ(capture->ReleaseBuffer(frames), S_OK);
    LARGE_INTEGER counter{}, frequency{};
    ASSERT_TRUE(QueryPerformanceCounter(&counter));
    ASSERT_TRUE(QueryPerformanceFrequency(&frequency));
    EXPECT_EQ(counter.QuadPart, zqvm::ClockNow()) << "the counter is the stepped platform clock";
    EXPECT_EQ(frequency.QuadPart, 10000000);

    // Seeded: the same seed makes the same sequence of delays, and about the given share of
    // periods is late.
    zqvm::WakeJitter random;
    random.randomMaxMs = 8.0;
    random.probability = 0.25;
    random.seed = 5;
    int64_t nextEnd = periodEnd + kPeriod;
    const auto delays = [&] {
        EXPECT_TRUE(zqvm::SetWakeJitter(id, random));
        std::vector<int64_t> late;
        for (int period = 0; period < 200; ++period, nextEnd += kPeriod) {
            EXPECT_TRUE(zqvm::AdvanceClock(nextEnd - zqvm::ClockNow()));
            int64_t delay = 0;
            if (!stream.Signalled()) {  // the wake-up is the next expiry, within the period
                delay = zqvm::NextClockDue() - nextEnd;
                EXPECT_GT(delay, 0);
                EXPECT_LE(delay, 80000) << "never beyond 8 ms";
                EXPECT_TRUE(zqvm::AdvanceClock(delay));
                EXPECT_TRUE(stream.Signalled());
            }
            late.push_back(delay);
            EXPECT_EQ(capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr), S_OK);
            EXPECT_EQ(capture->ReleaseBuffer(frames), S_OK);
        }
        return late;
    };
    const std::vector<int64_t> first = delays();
    EXPECT_EQ(delays(), first);
    const auto lateCount = std::count_if(first.begin(), first.end(), [](int64_t d) { return d > 0; });
    EXPECT_GT(lateCount, 30);
    EXPECT_LT(lateCount, 70);
    ASSERT_EQ(stream.client->Stop(), S_OK);

    zqvm::WakeJitter tooLate;
    tooLate.delayMs = 6.0;
    tooLate.randomMaxMs = 4.0;
    EXPECT_FALSE(zqvm::SetWakeJitter(id, tooLate)) << "a period or more: that is a held event";
    EXPECT_FALSE(zqvm::SetWakeJitter(L"no such endpoint", fixed));
}

TEST_F(DeviceClockTest, TheMachineDescriptionGivesEachEndpointItsClock) {
    ASSERT_TRUE(zqvm::LoadMachineDescriptionText(R"(<machine>
        <endpoint id="fast" flow="render" ppm="100" phase_ms="2.5"/>
        <endpoint id="exact" flow="render" rate="44100"/>
      </machine>)"));
    TestStream fast(L"fast");
    TestStream exact(L"exact");
    ASSERT_EQ(fast.client->Start(), S_OK);
    ASSERT_EQ(exact.client->Start(), S_OK);
    Step();
    EXPECT_TRUE(exact.Signalled());
    EXPECT_FALSE(fast.Signalled()) << "2.5 ms later";
    ASSERT_TRUE(zqvm::AdvanceClock(25000));
    EXPECT_TRUE(fast.Signalled());
    EXPECT_EQ(zqvm::RenderPeriodsConsumed(L"fast"), 1u);
    ASSERT_TRUE(zqvm::AdvanceClock(kPeriod - 1));
    EXPECT_FALSE(fast.Signalled()) << "every period boundary keeps the phase";
    ASSERT_TRUE(zqvm::AdvanceClock(1));
    EXPECT_TRUE(fast.Signalled());
    Step(98);
    ASSERT_EQ(fast.client->Stop(), S_OK);
    ASSERT_EQ(exact.client->Stop(), S_OK);
    EXPECT_EQ(zqvm::RenderedFrameCount(L"fast"), 48004u) << "one second at 100 ppm fast";
    EXPECT_EQ(zqvm::RenderedFrameCount(L"exact"), 44100u);
}

}  // namespace
}  // namespace vaetest
