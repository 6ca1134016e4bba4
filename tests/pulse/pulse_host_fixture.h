// The library on the sound server as a host uses it: through the exported core object, with the
// host's window receiving the library's messages. The microphone is the server's kv1_mic, which
// the fixture feeds with a tone; it belongs to the USB device of the simulated KV-1 bridge of
// port 3 (the bridge's container is derived from the same USB device folder), so discovery
// pairs the two.
#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "log_recorder.h"
#include "message_window.h"
#include "pulse_fixture.h"
#include "zqCoreAudio.h"

namespace zqtest::pulse {

class PulseHost : public PulseTest {
protected:
    // Core made and initialised on the host's window, its log recorded.
    void SetUp() override;
    void TearDown() override;

    // Records speaker48's monitor and expects the microphone's tone on both speakers at the
    // designed level: the capture resampler maps mono to left and right at -3 dB, and the render
    // stream's session volume is 0.5. Returns the left channel's reading.
    static ToneReading ExpectMicrophoneAtSpeaker(double seconds);

    // The USB ports whose KV-1s have bridges: 3 (kv1_mic's) and 5 (no endpoint at start), unless
    // a test sets others before SetUp.
    std::vector<int> ports{3, 5};
    std::filesystem::path folder;
    std::unique_ptr<ToneFeeder> feeder;
    std::unique_ptr<LogRecorder> recorder;
    std::unique_ptr<MessageWindow> window;
    std::unique_ptr<CZQCoreAudio> core;
};

}  // namespace zqtest::pulse
