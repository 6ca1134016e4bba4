// The sound server going away, or never being there: the library says so once, hangs nowhere
// and leaks nothing. These tests change the process's server (PULSE_SERVER) before the backend
// first connects, so each runs in a process of its own (as CTest runs every test).
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "log_recorder.h"
#include "message_window.h"
#include "pulse_listening.h"
#include "pulse_test_support.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/audio_backend.h"
#include "zqplatform/vm/debug_output.h"
#include "zqplatform/vm/message_pump.h"
#include "zqplatform/vm/module_path.h"

namespace zqtest::pulse {
namespace {

size_t LinesContaining(const std::vector<std::wstring>& texts, const std::wstring& part) {
    size_t count = 0;
    for (const std::wstring& text : texts) count += text.find(part) != std::wstring::npos ? 1 : 0;
    return count;
}

TEST(PulseNoServer, InitSaysOnceThatNoServerAnswersAndFindsNoDevice) {
    setenv("PULSE_SERVER", "unix:/nonexistent/zq/native", 1);
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    std::string error;
    ASSERT_TRUE(zqvm::SelectAudioBackend("pulse", &error)) << error;
    zqvm::DebugOutputRecorder debugOutput;
    {
        LogRecorder recorder;
        MessageWindow window;
        CZQCoreAudio core;
        core.SetLog(&recorder.Log());
        const auto started = std::chrono::steady_clock::now();
        core.Init(window.Handle());
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5)) << "Init waited for a server";
        EXPECT_EQ(0u, core.GetRenderDeviceCount());
        core.Start();
        EXPECT_FALSE(core.IsStarted());
        core.Shutdown();
        g_pCore = nullptr;
    }
    // Every part of Init that looks for devices asked; one line says why there are none.
    EXPECT_EQ(1u, LinesContaining(debugOutput.Texts(), L"pulse backend: no sound server reachable (Connection refused)"));
    CComPtr<IMMDeviceEnumerator> enumerator;
    EXPECT_EQ(AUDCLNT_E_SERVICE_NOT_RUNNING, CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL,
                                                              IID_IMMDeviceEnumerator, reinterpret_cast<void**>(&enumerator)));
    EXPECT_FALSE(zqvm::PulseServerReachable(&error));
    EXPECT_EQ("Connection refused", error);
    CoUninitialize();
}

TEST(PulseNoServer, MonitorSaysSoAndExitsWithAFailure) {
    int status = -1;
    const std::string output = RunCommand(
        "PULSE_SERVER=unix:/nonexistent/zq/native " ZQ_MONITOR_EXE " --backend pulse --seconds 1 --log /dev/null 2>&1",
        &status);
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(1, WEXITSTATUS(status));
    EXPECT_NE(std::string::npos, output.find("zqmonitor: no PulseAudio server reachable: Connection refused")) << output;
}

// A private server of the test's own (scripts/pulse-server), killed while the library streams.
class PulseServerLoss : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::system("command -v pulseaudio >/dev/null 2>&1") != 0) {
            if (InCi()) FAIL() << "pulseaudio is not installed in CI (scripts/setup installs it)";
            GTEST_SKIP() << "pulseaudio is not installed (scripts/setup installs it)";
        }
        folder = "/tmp/zq_loss_" + std::to_string(::getpid());
        ASSERT_EQ(0, std::system(("bash " ZQ_SOURCE_DIR "/scripts/pulse-server start " + folder + " >/dev/null").c_str()));
        std::ifstream env(folder + "/env");
        for (std::string line; std::getline(env, line);) {
            const size_t equals = line.find('=');
            if (line.rfind("export ", 0) == 0 && equals != std::string::npos)
                setenv(line.substr(7, equals - 7).c_str(), line.substr(equals + 1).c_str(), 1);
        }
        std::ifstream(folder + "/server.pid") >> serverPid;
        ASSERT_GT(serverPid, 0);
    }
    void TearDown() override {
        if (!folder.empty()) {
            std::system(("bash " ZQ_SOURCE_DIR "/scripts/pulse-server stop " + folder).c_str());
            std::filesystem::remove_all(folder);
        }
    }
    std::string folder;
    pid_t serverPid = 0;
};

TEST_F(PulseServerLoss, ServerKilledMidStreamRemovesTheMicrophoneAndShutdownReturns) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    std::string error;
    ASSERT_TRUE(zqvm::SelectAudioBackend("pulse", &error)) << error;
    ASSERT_TRUE(zqvm::PulseServerReachable(&error)) << error;
    SetUpKv1Host(folder + "/host", {3});  // kv1_mic's KV-1
    zqvm::DebugOutputRecorder debugOutput;
    {
        ToneFeeder feeder(folder + "/mic.fifo", 48000, 1, 1000.0, 0.5f);
        LogRecorder recorder;
        MessageWindow window;
        CZQCoreAudio core;
        core.SetLog(&recorder.Log());
        core.Init(window.Handle());
        ASSERT_EQ(1u, core.GetCaptureDeviceCount());
        core.Start();
        ASSERT_TRUE(core.IsStarted());
        ASSERT_TRUE(zqvm::PumpUntil([&] { return core.GetPeakCaptureDBFS() > 0.4f; }, 5000)) << "no sound before";

        ASSERT_EQ(0, kill(serverPid, SIGKILL));
        // The microphone's endpoint went with the server: the host hears it leave the list.
        EXPECT_FALSE(MicrophoneRemovals(window).empty());
        EXPECT_EQ(0u, core.GetHidCaptureDeviceCount());
        EXPECT_EQ(0.0f, core.GetPeakCaptureDBFS()) << "the meter of a device that went";
        const auto stopping = std::chrono::steady_clock::now();
        core.Stop();
        core.Shutdown();
        EXPECT_LT(std::chrono::steady_clock::now() - stopping, std::chrono::seconds(5));
        g_pCore = nullptr;
    }
    zqvm::ResetHostModulePath();
    EXPECT_EQ(1u, LinesContaining(debugOutput.Texts(), L"pulse backend: no sound server reachable"));
    CoUninitialize();
}

double ProcessCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The server killed under a running host and started again: the library reconnects by itself,
// the host answers the messages of the endpoints coming back, and the speaker plays the
// microphone again within 2 s of the server's return; meanwhile nothing spins.
TEST_F(PulseServerLoss, ServerRestartedUnderARunningHostBringsTheSoundBackWithin2Seconds) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    std::string error;
    ASSERT_TRUE(zqvm::SelectAudioBackend("pulse", &error)) << error;
    ASSERT_TRUE(zqvm::PulseServerReachable(&error)) << error;
    SetUpKv1Host(folder + "/host", {3});
    {
        auto feeder = std::make_unique<ToneFeeder>(folder + "/mic.fifo", 48000, 1, 1000.0, 0.5f);
        LogRecorder recorder;
        MessageWindow window;
        CZQCoreAudio core;
        core.SetLog(&recorder.Log());
        core.Init(window.Handle());
        RespondingHost host(core, window);
        core.Start();
        ASSERT_TRUE(host.ServeUntil([&] { return core.GetPeakCaptureDBFS() > 0.4f; }, 5000)) << "no sound before";

        ASSERT_EQ(0, kill(serverPid, SIGKILL));
        ASSERT_TRUE(host.ServeUntil([&] { return kill(serverPid, 0) != 0; }, 5000)) << "the server did not go";
        feeder.reset();
        // A second without a server: the host's answers to the removals return, and the retries
        // do not spin. A busy loop takes a whole core; the host with its threads and the
        // retries take about 3 % of one (30 % in the sanitizer build, where every call is slow).
        const double cpuBefore = ProcessCpuSeconds();
        const double wallBefore = SteadySeconds();
        host.ServeUntil([&] { return SteadySeconds() > wallBefore + 1.0; }, 3000);
        const double cpuShare = (ProcessCpuSeconds() - cpuBefore) / (SteadySeconds() - wallBefore);
        std::printf("without a server: %.1f %% of a core\n", cpuShare * 100);
        EXPECT_LT(cpuShare, 0.6);

        const double restarting = SteadySeconds();
        ASSERT_EQ(0, std::system(("bash " ZQ_SOURCE_DIR "/scripts/pulse-server start " + folder + " >/dev/null").c_str()));
        // Back: the script returns once a client gets an answer (it asks every 100 ms).
        const double returned = SteadySeconds();
        std::printf("the server took %.2f s to start\n", returned - restarting);
        std::ifstream(folder + "/server.pid") >> serverPid;
        feeder = std::make_unique<ToneFeeder>(folder + "/mic.fifo", 48000, 1, 1000.0, 0.5f);
        TimedRecorder speaker("speaker48.monitor", 48000, 2, 3.0);
        host.ServeUntil([&] { return SteadySeconds() > returned + 3.5; }, 6000);
        const TimedRecording heard = speaker.Finish();
        // The first 5 ms block that carries the tone at half its level (the host's, as in the
        // host tests: the session volume of 0.5 and mono spread at -3 dB) or more.
        const float level = 0.5f * static_cast<float>(M_SQRT1_2) * 0.5f;
        size_t back = heard.Count();
        for (size_t block = 0; block + 240 <= heard.Count() && back == heard.Count(); block += 240) {
            for (size_t i = block; i < block + 240; ++i)
                if (std::fabs(heard.frames[i * 2]) >= level / 2) back = block;
        }
        ASSERT_LT(back, heard.Count()) << "no sound after the server came back (" << host.Refreshes() << " refreshes, "
                                       << host.Rebuilds() << " rebuilds)";
        const double delay = heard.TimeOf(back) - returned;
        std::printf("sound again %.2f s after the server answered again\n", delay);
        RecordProperty("sound_back_after_restart_s", std::to_string(delay));
        EXPECT_LT(delay, 2.0);
        EXPECT_GE(core.GetHidCaptureDeviceCount(), 1u) << "the microphone listed again";
        core.Stop();
        core.Shutdown();
        g_pCore = nullptr;
    }
    zqvm::ResetHostModulePath();
    CoUninitialize();
}

}  // namespace
}  // namespace zqtest::pulse
