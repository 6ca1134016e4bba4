// Runs the built zqmonitor as a child process with a bounded wait, writes the machine
// descriptions the tests run it on, and reads the JSON summary it prints.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "json_value.h"

namespace zqhosttest {

struct HostRun {
    int exitCode = -1;      // the process's exit status; -1 when it did not exit normally
    bool timedOut = false;  // killed after the time limit
    std::string out;        // standard output
    std::string err;        // standard error
};

// zqmonitor with those arguments; killed after timeoutSeconds. ZQ_VIRTUAL_MACHINE is cleared
// in the child, so only --machine chooses the machine.
HostRun RunHost(const std::vector<std::string>& args, double timeoutSeconds = 60.0);

// The whole file as bytes; empty when it cannot be read.
std::string ReadFile(const std::string& path);

// A fresh folder for one test's files (removed with its contents when the object goes).
class TestFolder {
public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    std::string Path(const std::string& name) const { return m_path + "/" + name; }
    // Writes text to the file name in the folder and returns its path.
    std::string Write(const std::string& name, const std::string& text) const;

private:
    std::string m_path;
};

// The machine description of one KV-1 microphone (bridge with container, capture endpoint of
// the same container, tone source) and the default render endpoint.
struct MachineSpec {
    std::string serial = "KV1-2024-0001";
    std::string microphoneName = "Microphone (KV-1 USB Microphone)";
    std::string renderName = "Speakers (Virtual Audio)";
    std::string container = "{5B2C7E41-9A3D-4C68-B1F0-2E8D6A4C9B37}";  // the bridge's and the endpoint's
    std::string usbDevice;  // instead of container: the capture endpoint's USB device in sysfs
    double toneHz = 1000.0;
    double toneDbfs = -6.0;
    unsigned renderRate = 48000;
    std::string renderFormat = "float32";
};
std::string MachineXml(const MachineSpec& endpointSpec);

// A run of zqmonitor --seconds N --json on a machine description written to the folder, with
// its log in the folder too; json is set when the output was one JSON value.
struct SummaryRun {
    HostRun run;
    std::optional<JsonValue> json;
    std::string parseError;
};
SummaryRun RunSummary(const TestFolder& folder, const std::string& machineXml, double seconds,
                      const std::vector<std::string>& extraArgs = {});

}  // namespace zqhosttest

// The run finished, exited 0 and printed one JSON value; otherwise the test stops with what
// the host said.
#define ASSERT_SUMMARY(result)                                                                 \
    ASSERT_FALSE((result).run.timedOut) << "zqmonitor did not finish\n" << (result).run.err;   \
    ASSERT_EQ((result).run.exitCode, 0) << (result).run.err;                                   \
    ASSERT_TRUE((result).json.has_value()) << (result).parseError << "\n" << (result).run.out
