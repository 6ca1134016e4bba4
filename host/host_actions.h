// The things a user does to the machine while the host runs, from a key or from the
// non-interactive schedule: unplug or replug the microphone, pick another default speaker,
// change the speaker's volume in the system mixer.
#pragma once

#include <string>

#include "host_session.h"
#include "options.h"
#include "simulated_microphone.h"

namespace zqhost {

struct ActionResult {
    bool ok = false;
    std::string text;  // what was done, or why it could not be
};

// serial: the microphone to unplug (--mic); empty: the first the library lists, else the
// first bridge of the machine.
ActionResult Perform(const ScheduledAction& action, HostSession& session, SimulatedMicrophone& microphone,
                     const std::string& serial);
const char* ActionName(ScheduledAction::Kind kind);

}  // namespace zqhost
