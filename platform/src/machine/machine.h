// The machine description, loaded in one place for everything it describes: the endpoints go
// to whoever plays the sound from them (the virtual engine, through an EndpointSink), the bridges
// (with their registry values and sysfs paths) to the simulated bridges, which the registry
// reads. The pulse backend takes only the bridges, so it needs no virtual engine. Internal to
// the platform library.
#pragma once

#include <string>
#include <vector>

#include "zqplatform/vm/audio_machine.h"

namespace zqplatform::machine {

// Where a description's endpoints go.
class EndpointSink {
public:
    virtual ~EndpointSink() = default;
    // All the endpoints described, replacing those there; false and why when any cannot be made
    // (then nothing changes).
    virtual bool Replace(const std::vector<zqvm::EndpointSpec>& endpoints, std::string* why) = 0;
    // No endpoints at all: what a bad description leaves.
    virtual void Clear() = 0;
};

// Replaces the machine with a description (text, relative paths taken from baseDir; or a file):
// its endpoints to endpoints, its bridges to the simulated bridges when they are the chosen ones.
// On any error the machine is left empty (no endpoints, no bridges), the error is written to
// standard error and to *error; false.
bool LoadText(const std::string& xml, const std::string& baseDir, const std::string& origin,
              EndpointSink& endpoints, std::string* error);
bool LoadFile(const std::string& path, EndpointSink& endpoints, std::string* error);

// The description the process starts with (ZQ_VIRTUAL_MACHINE names the file; else the built-in
// one). Its bridges are added once, by the first of these calls; its endpoints go to the sink
// each time one is given (the virtual engine asks when it is first used).
void LoadStartupBridges();
void LoadStartupInto(EndpointSink& endpoints);

// The built-in description: one of our microphones (its capture endpoint and its bridge) and one
// speaker.
const char* BuiltInDescription();

}  // namespace zqplatform::machine
