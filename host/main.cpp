// zqmonitor: a host application of the audio core. It lists the audio endpoints and the
// maker's microphones, monitors the first microphone through the default speaker, and shows
// meters, spectra and the waveform-peak strip, on the virtual audio engine or (--backend pulse)
// on the desktop's sound server.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "host_session.h"
#include "options.h"
#include "run_modes.h"
#include "virtual_machine.h"
#include "zqplatform/vm/audio_backend.h"
#include "zqplatform/vm/bridges.h"

namespace zqhost {
std::atomic<bool> g_stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);
}

namespace {

void RequestStop(int) { zqhost::g_stopRequested.store(true, std::memory_order_relaxed); }

int Fail(const std::string& why) {
    std::fprintf(stderr, "zqmonitor: %s\n", why.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace zqhost;
    std::string error;
    const std::optional<Options> parsed = ParseOptions(argc, argv, &error);
    if (!parsed) {
        std::fprintf(stderr, "zqmonitor: %s\n%s", error.c_str(), UsageText(argv[0]).c_str());
        return 2;
    }
    const Options& options = *parsed;
    if (options.help) {
        std::fputs(UsageText(argv[0]).c_str(), stdout);
        return 0;
    }
    if (!options.seconds && (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0)) {
        return Fail("the live display needs a terminal; use --seconds N (and --json) otherwise");
    }
    // Before the first use of the engine, which loads the machine (and its bridges, unless the
    // machine's own are chosen).
    if (!options.bridges.empty() && !zqvm::SelectBridgeBackend(options.bridges, &error)) return Fail(error);
    if (!SelectMachine(options.machinePath, &error)) return Fail(error);
    if (!options.backend.empty() && !zqvm::SelectAudioBackend(options.backend, &error)) return Fail(error);
    const bool onPulse = zqvm::SelectedAudioBackend() == zqvm::AudioBackend::Pulse;
    if (onPulse && !zqvm::PulseServerReachable(&error)) return Fail("no PulseAudio server reachable: " + error);

    std::signal(SIGINT, RequestStop);
    std::signal(SIGTERM, RequestStop);

    ComApartment com;
    if (!com.Joined()) return Fail("CoInitializeEx failed");
    if (!onPulse && !MachineHasEndpoints())
        return Fail("the virtual machine has no audio endpoint (its description was refused)");
    if (!options.inputWav.empty() && !PlayWavOnMicrophones(options.inputWav, &error)) return Fail(error);
    std::wstring recorded;
    if (!options.outputWav.empty() && !RecordSpeaker(options.outputWav, recorded, &error)) return Fail(error);

    const std::string machine =
        onPulse ? "pulse: " + zqvm::PulseServerDescription() : MachineName(options.machinePath);
    const int status = options.seconds ? RunBatch(options, machine) : RunInteractive(options, machine);
    StopRecordingSpeaker(recorded);  // the streams have stopped: the file is complete
    return status;
}
