// What the Windows test program needs around the library under Wine: a message-only window
// that records what reaches it, the private PulseAudio server that scripts/pulse-server starts
// (its folder in ZQ_PULSE_TEST_SERVER, reached by Wine's winepulse driver), Unix commands on
// it (pactl, parec) run through Wine's start of Unix programs, a tone fed into the server's
// microphone FIFO, and the process's thread count.
#pragma once

#include "zqCoreAudio.h"  // the SDK headers, CComPtr

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace zqwintest {

struct ReceivedMessage {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

// A message-only window (no display needed) on the creating thread; it records every message
// of the library's range (WM_USER and up).
class MessageWindow {
public:
    MessageWindow();
    ~MessageWindow();
    MessageWindow(const MessageWindow&) = delete;
    MessageWindow& operator=(const MessageWindow&) = delete;
    HWND Handle() const { return m_hwnd; }
    // Pumps this thread's messages for up to timeoutMs, returning early once one of the
    // library's messages has arrived since the call began.
    bool PumpUntilMessage(DWORD timeoutMs);
    std::vector<ReceivedMessage> Received() const { return m_received; }

private:
    static LRESULT CALLBACK Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    HWND m_hwnd = nullptr;
    std::vector<ReceivedMessage> m_received;
};

// The bytes of a file; empty when it cannot be read.
std::string ReadWhole(const std::wstring& path);

// Whether CI=true: a missing test server is then a failure, not a skip.
bool InCi();

// Fails in CI and skips elsewhere when scripts/pulse-server's server is not there.
#define ZQ_REQUIRE_WINDOWS_TEST_SERVER()                                                            \
    do {                                                                                            \
        if (!::zqwintest::ServerFolder()) {                                                         \
            if (::zqwintest::InCi()) FAIL() << "no pulse test server in CI (ZQ_PULSE_TEST_SERVER)"; \
            GTEST_SKIP() << "no pulse test server (ZQ_PULSE_TEST_SERVER); scripts/windows-test starts one"; \
        }                                                                                           \
    } while (0)

// The test server's folder as Wine names it (Z:\...), and as Unix does; nothing when
// ZQ_PULSE_TEST_SERVER is unset.
std::optional<std::wstring> ServerFolder();
std::optional<std::string> ServerFolderUnix();

// Runs /bin/sh -c script as a Unix process on the test server's environment and waits, at most
// timeoutMs, for it to finish; its standard output, or nothing when it failed or timed out.
// Wine starts Unix programs but gives no handle to wait on, so the script's output is written
// to a file that appears, renamed, only when the script is done; the wait is on the folder's
// change notifications.
std::optional<std::string> RunUnix(const std::string& script, DWORD timeoutMs);

// Records seconds of a source (a sink's monitor) with parec as 32-bit float frames; empty on failure.
std::vector<float> RecordWithParec(const std::string& source, uint32_t rate, uint16_t channels, double seconds);

// The peak amplitude of a sine in one channel: the median of its blocks' peaks (a block holding
// whole periods), so that a few gaps that a busy machine leaves move nothing. The first
// skipFrames are left out.
double SineAmplitude(const std::vector<float>& frames, uint16_t channels, uint16_t channel, size_t skipFrames,
                     size_t blockFrames);

// Plays a mono 32-bit float sine into the server's microphone FIFO from a thread of its own,
// in 10 ms blocks, until destroyed; the FIFO's own fill paces it.
class ToneFeeder {
public:
    ToneFeeder(const std::wstring& fifo, uint32_t rate, double frequency, float amplitude);
    ~ToneFeeder();
    ToneFeeder(const ToneFeeder&) = delete;
    ToneFeeder& operator=(const ToneFeeder&) = delete;
    bool Running() const { return m_fifo != INVALID_HANDLE_VALUE; }

private:
    HANDLE m_fifo = INVALID_HANDLE_VALUE;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// The friendly names of the active endpoints of one flow, from the system's enumerator.
std::vector<std::wstring> EndpointNames(EDataFlow flow);
// The active endpoint of that flow whose friendly name contains part; null when none.
CComPtr<IMMDevice> EndpointNamed(EDataFlow flow, const std::wstring& part);

bool Contains(const std::vector<std::wstring>& names, const std::wstring& part);
std::string Joined(const std::vector<std::wstring>& names);  // for failure messages

// The threads of this process now.
size_t ThreadCount();

}  // namespace zqwintest
