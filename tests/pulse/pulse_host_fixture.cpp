#include "pulse_host_fixture.h"

#include <cmath>

#include "zqplatform/vm/module_path.h"

namespace zqtest::pulse {

void PulseHost::SetUp() {
    PulseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    folder = std::filesystem::temp_directory_path() / ("zq_pulse_host_" + std::to_string(::getpid()));
    SetUpKv1Host(folder, ports);
    feeder = std::make_unique<ToneFeeder>(std::getenv("ZQ_PULSE_MIC_FIFO"), 48000, 1, 1000.0, 0.5f);
    recorder = std::make_unique<LogRecorder>();
    window = std::make_unique<MessageWindow>();
    core = std::make_unique<CZQCoreAudio>();
    core->SetLog(&recorder->Log());
    core->Init(window->Handle());
}

void PulseHost::TearDown() {
    if (core) core->Shutdown();
    core.reset();
    g_pCore = nullptr;
    window.reset();
    recorder.reset();
    feeder.reset();
    if (!folder.empty()) {
        zqvm::ResetHostModulePath();
        std::filesystem::remove_all(folder);
        Pactl("set-default-sink speaker48");
    }
    PulseTest::TearDown();
}

ToneReading PulseHost::ExpectMicrophoneAtSpeaker(double seconds) {
    const std::vector<float> recorded = Record("speaker48.monitor", 48000, 2, seconds);
    const double expected = 0.5 * M_SQRT1_2 * 0.5;
    const ToneReading left = Analyse(recorded, 2, 0, 48000, 0.5);
    const ToneReading right = Analyse(recorded, 2, 1, 48000, 0.5);
    std::printf("at speaker48's monitor: %.4f (%.2f dBFS) at %.2f Hz left, %.4f right; weakest 5 ms block %.2f\n",
                left.amplitude, 20 * std::log10(left.amplitude), left.frequency, right.amplitude, left.weakestBlock);
    EXPECT_NEAR(1000.0, left.frequency, 2.0) << "the microphone's tone at the speaker";
    EXPECT_NEAR(0.0, 20 * std::log10(left.amplitude / expected), 0.5) << "left";
    EXPECT_NEAR(0.0, 20 * std::log10(right.amplitude / expected), 0.5) << "right";
    return left;
}

}  // namespace zqtest::pulse
