// The depth a render stream reports is the time its audio still takes to be played: a frame
// written behind GetCurrentPadding frames of padding is heard padding / rate later, server and
// sink included, as on a desktop engine. Measured with clicks, written at known moments and
// found in the sink's monitor, whose frames are dated where the sink plays them.
#include <algorithm>
#include <cmath>
#include <mutex>
#include <vector>

#include "pulse_fixture.h"
#include "pulse_listening.h"
#include "pulse_player.h"
#include "zqplatform/vm/message_pump.h"

namespace zqtest::pulse {
namespace {

class PulseRenderDepth : public PulseTest {};

TEST_F(PulseRenderDepth, AFrameIsPlayedAsLongAfterItsWritingAsThePaddingSaid) {
    CComPtr<IMMDevice> speaker = Device(L"speaker48");
    EventStream stream(speaker, 300000);
    ASSERT_EQ(S_OK, stream.opened);
    TimedRecorder listener("speaker48.monitor", 48000, 2, 4.0);
    ASSERT_TRUE(zqvm::PumpUntil([&] { return listener.Started(); }, 5000));
    // Silence, and every quarter second a 1 ms click of 4 kHz, due where the padding it was
    // written behind says.
    const uint64_t every = 48000 / 4;
    std::mutex lock;
    std::vector<double> due;
    StreamPlayer player(
        stream,
        [every](uint64_t frame, double rate) { return ClickSample(frame, every, rate); },
        [&](uint64_t first, UINT32 frames, UINT32 padding, double when) {
            std::lock_guard held(lock);
            for (uint64_t click = (first + every - 1) / every * every; click < first + frames; click += every)
                due.push_back(when + static_cast<double>(padding + (click - first)) / 48000.0);
        });
    ASSERT_EQ(S_OK, stream.client->Start());
    const TimedRecording heard = listener.Finish();
    EXPECT_EQ(S_OK, player.LastError());
    const std::vector<double> played = ClickOnsets(heard, 0, 0.1f, 4800);
    std::vector<double> written;
    {
        std::lock_guard held(lock);
        written = due;
    }
    std::vector<double> errors;
    for (double at : written) {
        if (at < heard.TimeOf(48000)) continue;  // the first second is start-up
        const auto match = std::find_if(played.begin(), played.end(), [&](double t) { return t > at - 0.05; });
        if (match != played.end() && *match < at + 0.05) errors.push_back(*match - at);
    }
    ASSERT_GE(errors.size(), 8u) << written.size() << " clicks written, " << played.size() << " heard";
    std::sort(errors.begin(), errors.end());
    std::printf("played minus due by the padding, over %zu clicks: %.1f to %.1f ms, median %.1f ms\n", errors.size(),
                errors.front() * 1e3, errors.back() * 1e3, errors[errors.size() / 2] * 1e3);
    RecordProperty("padding_error_median_ms", std::to_string(errors[errors.size() / 2] * 1e3));
    // Within a few milliseconds: the datings of the two clocks and the server's 5 ms blocks.
    EXPECT_NEAR(0.0, errors[errors.size() / 2], 0.004);
    stream.client->Stop();
}

}  // namespace
}  // namespace zqtest::pulse
