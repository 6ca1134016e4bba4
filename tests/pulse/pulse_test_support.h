// What the pulse backend's suites need around the sound server: the private test server that
// scripts/pulse-server starts (scripts/test does, for the pulse stage), pactl, a feeder that plays
// a tone into the server's microphone FIFO in real time, and a recorder on a sink's monitor.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ci.h"
#include "message_window.h"

namespace zqtest::pulse {

// Whether the test server is there (ZQ_PULSE_TEST_SERVER names its folder and a client reaches
// it); the reason in *why otherwise.
bool TestServerReachable(std::string* why);
using ::zqtest::InCi;

// Skips the test outside CI and fails it in CI when there is no test server.
#define ZQ_REQUIRE_PULSE_SERVER()                                                        \
    do {                                                                                 \
        std::string zqWhy;                                                               \
        if (!::zqtest::pulse::TestServerReachable(&zqWhy)) {                             \
            if (::zqtest::InCi()) FAIL() << "no pulse test server in CI: " << zqWhy; \
            GTEST_SKIP() << "no pulse test server (" << zqWhy << "); scripts/test starts one"; \
        }                                                                                \
    } while (0)

// Runs a shell command; its standard output, and its wait status in *status (-1 when it could not run).
std::string RunCommand(const std::string& command, int* status);
// Runs pactl with the arguments on the test server; its standard output, or nothing when it failed.
std::optional<std::string> Pactl(const std::string& arguments);
// Loads a module; its index, or nothing.
std::optional<uint32_t> LoadModule(const std::string& nameAndArguments);
bool UnloadModule(uint32_t index);
// The index of this process's sink input (or source output) on a sink (source), by its name.
std::optional<uint32_t> StreamIndexOn(bool sinkInput, const std::string& deviceName);

// The fake sysfs tree's USB device behind port n (scripts/pulse-server; ZQ_SYSFS_ROOT names the tree).
std::string UsbFolder(int port);

// Sets the host up as the KV-1 tests do: its folder (the host module path, which the caller
// resets) with the KV-1's product table, and the simulated bridges of the KV-1s on the given USB
// ports, each with its USB device's serial number, answering at once. The first enumerator,
// made here if nobody made one, loads the built-in machine, whose bridge gives way.
void SetUpKv1Host(const std::filesystem::path& folder, const std::vector<int>& ports);

// The WM_AUDIO_DEVICE_CHANGED messages that tell of a microphone leaving the list (wParam 1),
// once at least one arrived within 5 s; empty when none did.
std::vector<ReceivedMessage> MicrophoneRemovals(const MessageWindow& window);

// Plays a sine (or any signal, given sample by frame number) into a FIFO (a pipe source's) in
// real time, in 10 ms blocks, until destroyed.
class ToneFeeder {
public:
    ToneFeeder(const std::string& fifo, uint32_t rate, uint16_t channels, double frequency, float amplitude);
    ToneFeeder(const std::string& fifo, uint32_t rate, uint16_t channels, std::function<float(uint64_t)> generator);
    ~ToneFeeder();
    ToneFeeder(const ToneFeeder&) = delete;
    ToneFeeder& operator=(const ToneFeeder&) = delete;
    bool Running() const { return m_fd >= 0; }

private:
    void Run();
    void PlayUntilStopped();
    int m_fd = -1;
    uint32_t m_rate;
    uint16_t m_channels;
    std::function<float(uint64_t)> m_signal;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// Records frames of 32-bit float from a source (a sink's monitor); empty on failure.
std::vector<float> Record(const std::string& source, uint32_t rate, uint16_t channels, double seconds);

// What a recording of one channel holds.
struct ToneReading {
    double amplitude = 0.0;   // peak amplitude, from the RMS of a sine
    double frequency = 0.0;   // from the spacing of the zero crossings (TonePitchHz)
    double weakestBlock = 0.0;  // the smallest peak of any 5 ms block, relative to amplitude
};
ToneReading Analyse(const std::vector<float>& frames, uint16_t channels, uint16_t channel, uint32_t rate,
                    double skipSeconds);

}  // namespace zqtest::pulse
