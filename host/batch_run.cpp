// The non-interactive run on the virtual machine: its scheduled actions (unplug, replug,
// another default speaker, another program's volume) act on the machine's simulated devices.
#include "batch_loop.h"
#include "host_actions.h"
#include "run_modes.h"

namespace zqhost {

int RunBatch(const Options& options, const std::string& machineName) {
    SimulatedMicrophone microphone;
    return RunBatchLoop(options, machineName, [&](const ScheduledAction& action, HostSession& session) {
        const ActionResult result = Perform(action, session, microphone, options.microphoneSerial);
        return ActionRecord{session.Seconds(), ActionName(action.kind), result.ok, result.text};
    });
}

}  // namespace zqhost
