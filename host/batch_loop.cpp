// The non-interactive run: the host starts, the scheduled actions happen at their times while
// the host pumps its messages, and a summary is printed once the host has shut down.
#include "batch_loop.h"

#include <algorithm>
#include <cstdio>

#include "readings.h"
#include "run_modes.h"

namespace zqhost {
namespace {

constexpr double kSliceSeconds = 0.02;  // how often the meters are read
constexpr DWORD kSettleMs = 5000;       // bound on waiting for the last notifications

void PrintText(const RunSummary& run, HostSession& session) {
    const DeviceLists& d = session.Devices();
    std::printf("machine: %s, %.2f s\n", run.machine.c_str(), run.seconds);
    for (const MicrophoneInfo& m : d.microphones) {
        std::printf("microphone %s: %s (%s, %s) API %d FW 0x%02X, endpoint '%s'\n", m.serial.c_str(),
                    m.friendlyName.c_str(), m.product.c_str(), m.manufacturer.c_str(), m.api, m.fw,
                    m.endpointName.c_str());
    }
    for (const std::string& r : d.render) std::printf("render: %s\n", r.c_str());
    for (const CaptureDeviceInfo& c : d.capture) std::printf("capture: %s (%s)\n", c.name.c_str(), c.serial.c_str());
    for (const ReceivedMessage& m : session.Messages()) {
        std::printf("%7.3f s  %s wParam %llu %s\n", m.seconds, MessageName(m.message),
                    static_cast<unsigned long long>(m.wParam), m.serial.c_str());
    }
    std::printf("capture %.1f %% %.1f dBFS, render %.1f %% %.1f dBFS\n", static_cast<double>(run.largest.capturePercent),
                PeakDbfs(run.largest.captureLinear), static_cast<double>(run.largest.renderPercent),
                PeakDbfs(run.largest.renderLinear));
    for (const auto& [side, s] : {std::make_pair("input", run.input), std::make_pair("output", run.output)}) {
        if (s.bin < 0) {
            std::printf("%s spectrum: silent\n", side);
        } else {
            std::printf("%s spectrum: strongest at %.1f Hz (bin %d), %.1f dB\n", side, s.hz, s.bin, s.db);
        }
    }
}

}  // namespace

int RunBatchLoop(const Options& options, const std::string& machineName, const ActionPerformer& perform) {
    HostSession session;
    std::string error;
    if (!session.Open(options.logPath, &error)) {
        std::fprintf(stderr, "zqmonitor: %s\n", error.c_str());
        return 1;
    }
    RunSummary run;
    run.machine = machineName;
    const double end = *options.seconds;
    size_t next = 0;
    for (;;) {
        const double now = session.Seconds();
        for (; next < options.actions.size() && options.actions[next].atSeconds <= now; ++next) {
            const ActionRecord record = perform(options.actions[next], session);
            run.actions.push_back(record);
            if (!record.ok) std::fprintf(stderr, "zqmonitor: %s: %s\n", record.name.c_str(), record.text.c_str());
        }
        if (now >= end || g_stopRequested.load(std::memory_order_relaxed)) break;
        double until = std::min(end, now + kSliceSeconds);
        if (next < options.actions.size()) until = std::min(until, options.actions[next].atSeconds);
        session.Pump(static_cast<DWORD>(std::max(1.0, (until - now) * 1000.0)));
        KeepLargest(run.largest, ReadLevels(session.Core()));
    }
    // What the last actions set off (notifications, messages, the host's Refresh) finishes
    // before the summary is taken.
    if (!session.Settle(kSettleMs)) std::fprintf(stderr, "zqmonitor: notifications still under way at the end\n");
    KeepLargest(run.largest, ReadLevels(session.Core()));
    CZQCoreAudio& core = session.Core();
    run.input = FindStrongest([&core](int k) { return core.GetSpectrumAmpIn(k); });
    run.output = FindStrongest([&core](int k) { return core.GetSpectrumAmpOut(k); });
    run.seconds = session.Seconds();
    const std::string json = SummaryJson(session, run);
    if (!options.json) PrintText(run, session);
    session.Close();
    if (options.json) std::fwrite(json.data(), 1, json.size(), stdout);
    std::fflush(stdout);
    return 0;
}

}  // namespace zqhost
