// The two ways zqmonitor runs: live in the terminal, or for a fixed time with a summary.
// Both run on the host's thread, with COM joined and the virtual machine prepared.
#pragma once

#include <atomic>
#include <string>

#include "options.h"

namespace zqhost {

// Set by SIGINT / SIGTERM (a lock-free atomic, so a signal handler may store it): the run
// ends as if asked to, with a clean shutdown.
extern std::atomic<bool> g_stopRequested;

int RunBatch(const Options& options, const std::string& machineName);
int RunInteractive(const Options& options, const std::string& machineName);

}  // namespace zqhost
