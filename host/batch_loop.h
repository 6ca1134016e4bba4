// The non-interactive run of the host, whatever stands behind the library: for a fixed time
// the host pumps its messages and reads the meters, performing each scheduled action at its
// time; after a clean shutdown it prints the summary (text or JSON).
#pragma once

#include <functional>
#include <string>

#include "host_session.h"
#include "options.h"
#include "report.h"

namespace zqhost {

// Does one scheduled action to the machine; what was done, for the summary.
using ActionPerformer = std::function<ActionRecord(const ScheduledAction&, HostSession&)>;

int RunBatchLoop(const Options& options, const std::string& machineName, const ActionPerformer& perform);

}  // namespace zqhost
