// The machine description file: what endpoints and bridges the machine has (the bridges bring
// their registry values and sysfs paths). Internal to the platform library; the format is
// documented in machine_description.cpp.
#pragma once

#include <string>
#include <vector>

#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/bridges.h"

namespace zqplatform::machine {

struct MachineParts {
    std::vector<zqvm::EndpointSpec> endpoints;
    std::vector<zqvm::BridgeDescription> bridges;
};

// Parses a description; relative file paths in it are taken from baseDir. False and the
// reason (with the line) in error for malformed XML or an element that makes no sense.
bool ParseMachineDescription(const std::string& xml, const std::string& baseDir, MachineParts& machine,
                             std::string& error);

}  // namespace zqplatform::machine
