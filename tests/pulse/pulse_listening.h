// What a listener of the monitoring path hears on the test server, measured: recordings of a
// source whose samples carry the steady clock's time, the silent runs and the pitch of a
// recorded tone, and the onsets of clicks.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>


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

// The steady-clock times at which clicks start on one channel: a sample above threshold after
// at least gapFrames below it.
std::vector<double> ClickOnsets(const TimedRecording& recording, uint16_t channel, float threshold, size_t gapFrames);

}  // namespace zqtest::pulse
