#include "host_actions.h"

#include <cstdio>

#include "virtual_machine.h"

namespace zqhost {

const char* ActionName(ScheduledAction::Kind kind) {
    switch (kind) {
        case ScheduledAction::Kind::Unplug: return "unplug";
        case ScheduledAction::Kind::Replug: return "replug";
        case ScheduledAction::Kind::SwitchRender: return "switch-render";
        case ScheduledAction::Kind::OtherVolume: return "other-volume";
    }
    return "?";
}

ActionResult Perform(const ScheduledAction& action, HostSession& session, SimulatedMicrophone& microphone,
                     const std::string& serial) {
    ActionResult result;
    std::string error;
    switch (action.kind) {
        case ScheduledAction::Kind::Unplug: {
            std::string which = serial;
            const auto& listed = session.Devices().microphones;
            if (which.empty() && !listed.empty()) which = listed.front().serial;
            result.ok = microphone.Unplug(which, &error);
            result.text = result.ok ? "unplugged " + microphone.Serial() : error;
            break;
        }
        case ScheduledAction::Kind::Replug:
            result.ok = microphone.Replug(&error);
            result.text = result.ok ? "plugged in " + microphone.Serial() : error;
            break;
        case ScheduledAction::Kind::SwitchRender:
            result.ok = SwitchDefaultRender(&error);
            result.text = result.ok ? "switched the default render endpoint" : error;
            break;
        case ScheduledAction::Kind::OtherVolume: {
            result.ok = OtherProgramSetsVolume(action.level, &error);
            char text[64];
            std::snprintf(text, sizeof text, "the system mixer set the volume to %.2f", static_cast<double>(action.level));
            result.text = result.ok ? std::string(text) : error;
            break;
        }
    }
    return result;
}

}  // namespace zqhost
