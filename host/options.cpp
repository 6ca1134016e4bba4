#include "options.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace zqhost {
namespace {

bool ParseSeconds(const std::string& text, double& out) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (*end != '\0' || errno != 0 || !std::isfinite(value) || value < 0.0) return false;
    out = value;
    return true;
}

}  // namespace

std::string UsageText(const char* program) {
    std::string p = program != nullptr ? program : "zqmonitor";
    return "Usage: " + p + " [options]\n"
           "Monitors the microphone through the speaker on the virtual audio engine and shows meters,\n"
           "spectra and the waveform-peak strip, live in the terminal.\n"
           "\n"
           "Options:\n"
           "  --machine FILE       machine description (XML) to run on; default: $ZQ_VIRTUAL_MACHINE,\n"
           "                       else the built-in machine (one KV-1 microphone, one speaker)\n"
           "  --input FILE.wav     the microphone plays this file (looped) instead of its own source\n"
           "  --output FILE.wav    record what the speaker plays into this file (32-bit float)\n"
           "  --log FILE           the library's log (default zqmonitor.log)\n"
           "  --seconds N          run N seconds without the terminal display, then exit\n"
           "  --json               with --seconds: print a JSON summary on standard output\n"
           "  --mic SERIAL         the microphone that --unplug-at / --replug-at and the u key act on\n"
           "                       (default: the first one listed)\n"
           "  --unplug-at S        at S seconds, unplug the microphone (its bridge and its endpoint go)\n"
           "  --replug-at S        at S seconds, plug it in again\n"
           "  --switch-render-at S at S seconds, make the next render endpoint the system default\n"
           "  --volume-at S:LEVEL  at S seconds, another program sets the speaker's session volume (0..1)\n"
           "  --backend NAME       virtual (the virtual audio engine) or pulse (the desktop's sound\n"
           "                       server, PulseAudio or PipeWire's); default: $ZQ_AUDIO_BACKEND, else\n"
           "                       virtual. On pulse the machine description gives only the bridges,\n"
           "                       and --input, --output and the --...-at options are not available\n"
           "  --bridges NAME       simulated (the machine description's bridges) or hidraw (the maker's\n"
           "                       microphones plugged into this machine); default: $ZQ_BRIDGE_BACKEND,\n"
           "                       else simulated\n"
           "  -h, --help           this text\n"
           "\n"
           "Keys: b bypass, m mute, + / - render volume, w window function, v spectrum view,\n"
           "      u unplug / replug the microphone, r switch default render endpoint, q quit.\n";
}

std::optional<Options> ParseOptions(int argc, char** argv, std::string* error) {
    Options options;
    auto fail = [&](const std::string& why) -> std::optional<Options> {
        if (error != nullptr) *error = why;
        return std::nullopt;
    };
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            options.help = true;
            continue;
        }
        if (arg == "--json") {
            options.json = true;
            continue;
        }
        if (i + 1 >= argc) return fail("unknown option or missing value: " + arg);
        const std::string value = argv[++i];
        double at = 0.0;
        if (arg == "--machine") {
            options.machinePath = value;
        } else if (arg == "--backend") {
            if (value != "virtual" && value != "pulse") return fail("--backend is virtual or pulse: " + value);
            options.backend = value;
        } else if (arg == "--bridges") {
            if (value != "simulated" && value != "hidraw") return fail("--bridges is simulated or hidraw: " + value);
            options.bridges = value;
        } else if (arg == "--input") {
            options.inputWav = value;
        } else if (arg == "--output") {
            options.outputWav = value;
        } else if (arg == "--log") {
            options.logPath = value;
        } else if (arg == "--mic") {
            options.microphoneSerial = value;
        } else if (arg == "--seconds") {
            if (!ParseSeconds(value, at) || at <= 0.0) return fail("--seconds needs a positive number: " + value);
            options.seconds = at;
        } else if (arg == "--unplug-at" || arg == "--replug-at" || arg == "--switch-render-at") {
            if (!ParseSeconds(value, at)) return fail(arg + " needs a time in seconds: " + value);
            ScheduledAction action;
            action.kind = arg == "--unplug-at"   ? ScheduledAction::Kind::Unplug
                          : arg == "--replug-at" ? ScheduledAction::Kind::Replug
                                                 : ScheduledAction::Kind::SwitchRender;
            action.atSeconds = at;
            options.actions.push_back(action);
        } else if (arg == "--volume-at") {
            const size_t colon = value.find(':');
            double level = 0.0;
            if (colon == std::string::npos || !ParseSeconds(value.substr(0, colon), at) ||
                !ParseSeconds(value.substr(colon + 1), level) || level > 1.0) {
                return fail("--volume-at needs SECONDS:LEVEL with LEVEL from 0 to 1: " + value);
            }
            ScheduledAction action;
            action.kind = ScheduledAction::Kind::OtherVolume;
            action.atSeconds = at;
            action.level = static_cast<float>(level);
            options.actions.push_back(action);
        } else {
            return fail("unknown option: " + arg);
        }
    }
    if (options.json && !options.seconds) return fail("--json needs --seconds");
    if (!options.actions.empty() && !options.seconds) return fail("the --...-at options need --seconds");
    // They act on the virtual machine: a real sound server is changed with its own tools.
    if (options.backend == "pulse" && (!options.actions.empty() || !options.inputWav.empty() || !options.outputWav.empty()))
        return fail("--input, --output and the --...-at options need the virtual backend");
    // Stable: actions at the same time keep the order they were given in.
    std::stable_sort(options.actions.begin(), options.actions.end(),
                     [](const ScheduledAction& a, const ScheduledAction& b) { return a.atSeconds < b.atSeconds; });
    return options;
}

}  // namespace zqhost
