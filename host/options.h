// zqmonitor's command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zqhost {

// Something the non-interactive run does to the virtual machine at a given time.
struct ScheduledAction {
    enum class Kind { Unplug, Replug, SwitchRender, OtherVolume };
    Kind kind = Kind::Unplug;
    double atSeconds = 0.0;
    float level = 0.0f;  // OtherVolume: the session volume another program sets
};

struct Options {
    bool help = false;
    bool json = false;
    std::optional<double> seconds;  // set: non-interactive run of that length
    std::string machinePath;        // empty: ZQ_VIRTUAL_MACHINE, else the built-in machine
    std::string backend;            // "virtual" or "pulse"; empty: ZQ_AUDIO_BACKEND, else virtual
    std::string bridges;            // "simulated" or "hidraw"; empty: ZQ_BRIDGE_BACKEND, else simulated
    std::string inputWav;           // empty: the machine's own capture sources
    std::string outputWav;          // empty: nothing recorded
    std::string logPath = "zqmonitor.log";
    std::string microphoneSerial;   // the microphone unplugged and replugged; empty: the first
    std::vector<ScheduledAction> actions;  // in time order
};

// Parses argv; on an error returns nothing and sets *error.
std::optional<Options> ParseOptions(int argc, char** argv, std::string* error);
std::string UsageText(const char* program);

}  // namespace zqhost
