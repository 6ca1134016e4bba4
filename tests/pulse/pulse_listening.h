// What a listener of the monitoring path hears on the test server, measured: recordings of a
// source whose samples carry the steady clock's time, the silent runs and the pitch of a
// recorded tone, the onsets of clicks, and a host that answers the library's messages as the
// host application does.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "message_window.h"
#include "zqCoreAudio.h"

namespace zqtest::pulse {

// The steady clock, in seconds.
double SteadySeconds();

// Frames of 32-bit float from a source; frame k reached the source at origin + k / rate on the
// steady clock.
struct TimedRecording {
    std::vector<float> frames;
    uint16_t channels = 0;
    uint32_t rate = 0;
    double origin = 0.0;
    // The same dating without the server's word: the latest origin the reads allow, as no frame
    // is read before it reached the source. Late by the server's delivery delay, which is about
    // the same for two recordings on one server, so a difference of two such datings holds where
    // the server's own timing does not (PipeWire's PulseAudio front end reports a record latency
    // that moves by a 5.3 ms graph cycle from one stream to the next).
    double arrivalOrigin = 0.0;
    size_t Count() const { return channels == 0 ? 0 : frames.size() / channels; }
    double TimeOf(size_t frame) const { return origin + static_cast<double>(frame) / rate; }
};

// Records a source on a thread of its own, in 10 ms reads, for the duration (stopped early
// only by its destruction). Each
// read dates the frames it returns by the server's record latency at that moment; the origin
// is the median of those datings, so one read that the machine held up moves nothing.
class TimedRecorder {
public:
    TimedRecorder(std::string source, uint32_t rate, uint16_t channels, double seconds);
    ~TimedRecorder();
    TimedRecorder(const TimedRecorder&) = delete;
    TimedRecorder& operator=(const TimedRecorder&) = delete;
    // Whether the recording stream is open and delivering (set once the first read returned).
    bool Started() const { return m_started.load(std::memory_order_acquire); }
    // Waits until the duration is recorded and returns it; empty frames when it failed.
    TimedRecording Finish();

private:
    void Run(double seconds);
    std::string m_source;
    TimedRecording m_recording;
    std::string m_error;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_started{false};
    std::thread m_thread;
};

// Runs of at least minFrames samples of one channel, from frame begin on, that stay below
// threshold in magnitude: the gaps a listener hears in a tone.
size_t SilentRuns(const TimedRecording& recording, uint16_t channel, size_t begin, size_t minFrames, float threshold);

// The tone's frequency in consecutive windows of one channel from frame begin on.
std::vector<double> WindowPitches(const TimedRecording& recording, uint16_t channel, size_t begin, size_t windowFrames);

// A click signal's sample: every `every` frames, 1 ms of a 4 kHz sine at 0.8; silence between.
float ClickSample(uint64_t frame, uint64_t every, double rate);

// The steady-clock times at which clicks start on one channel: a sample above threshold after
// at least gapFrames below it.
std::vector<double> ClickOnsets(const TimedRecording& recording, uint16_t channel, float threshold, size_t gapFrames);

// Makes a sink the server's default through a connection of the test's own, opened first, so
// that the change itself happens between *before and *after (steady-clock seconds, a round trip
// apart); false when the server refused.
bool SetDefaultSinkTimed(const std::string& sink, double* before, double* after);

// The host application's answers to the library's messages, on the test's thread: a new default
// speaker rebuilds the render side, a changed device list refreshes, and the streams restart.
class RespondingHost {
public:
    RespondingHost(CZQCoreAudio& core, zqtest::MessageWindow& window);
    ~RespondingHost();
    RespondingHost(const RespondingHost&) = delete;
    RespondingHost& operator=(const RespondingHost&) = delete;
    // Handles messages and answers them until done() holds or timeoutMs pass; done()'s answer.
    bool ServeUntil(const std::function<bool()>& done, DWORD timeoutMs);
    size_t Rebuilds() const { return m_rebuilds; }
    size_t Refreshes() const { return m_refreshes; }

private:
    CZQCoreAudio& m_core;
    zqtest::MessageWindow& m_window;
    bool m_rebuildPending = false;
    bool m_refreshPending = false;
    size_t m_rebuilds = 0;
    size_t m_refreshes = 0;
};

}  // namespace zqtest::pulse
