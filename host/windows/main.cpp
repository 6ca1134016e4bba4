// zqmonitor.exe: the host application on Windows. It lists the system's audio endpoints and
// the maker's microphones, monitors the first microphone through the default speaker for the
// given time, and prints the summary (text or JSON). There is no virtual machine on Windows,
// and the live terminal view is Linux-only.
#include <csignal>
#include <cstdio>
#include <string>

#include "../batch_loop.h"
#include "../options.h"
#include "../run_modes.h"

namespace zqhost {
std::atomic<bool> g_stopRequested{false};
}

namespace {

void RequestStop(int) { zqhost::g_stopRequested.store(true, std::memory_order_relaxed); }

int Fail(const std::string& why) {
    std::fprintf(stderr, "zqmonitor: %s\n", why.c_str());
    return 1;
}

constexpr char kWindowsNote[] =
    "\nOn Windows: --seconds is required (the live terminal view is Linux-only), and the devices\n"
    "are the system's: --machine, --backend, --bridges, --input, --output and the --...-at\n"
    "actions act on the virtual machine of the Linux build and are refused here.\n";

// The options that only the Linux build's virtual machine or backends can serve.
std::string LinuxOnlyOption(const zqhost::Options& options) {
    if (!options.machinePath.empty()) return "--machine";
    if (!options.backend.empty()) return "--backend";
    if (!options.bridges.empty()) return "--bridges";
    if (!options.inputWav.empty()) return "--input";
    if (!options.outputWav.empty()) return "--output";
    if (!options.actions.empty()) return "the --...-at actions";
    return {};
}

}  // namespace

int main(int argc, char** argv) {
    using namespace zqhost;
    std::string error;
    const std::optional<Options> parsed = ParseOptions(argc, argv, &error);
    if (!parsed) {
        std::fprintf(stderr, "zqmonitor: %s\n%s%s", error.c_str(), UsageText(argv[0]).c_str(), kWindowsNote);
        return 2;
    }
    const Options& options = *parsed;
    if (options.help) {
        std::printf("%s%s", UsageText(argv[0]).c_str(), kWindowsNote);
        return 0;
    }
    if (!options.seconds) return Fail("the live view is Linux-only here; use --seconds N (and --json)");
    if (const std::string option = LinuxOnlyOption(options); !option.empty()) {
        return Fail(option + " acts on the Linux build's virtual machine; on Windows the devices are the system's");
    }
    std::signal(SIGINT, RequestStop);
    std::signal(SIGTERM, RequestStop);
    ComApartment com;
    if (!com.Joined()) return Fail("CoInitializeEx failed");
    return RunBatchLoop(options, "windows", [](const ScheduledAction&, HostSession&) {
        return ActionRecord{};  // none: the actions were refused above
    });
}
