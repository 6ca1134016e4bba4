// The summary of a non-interactive run, as JSON on standard output.
#pragma once

#include <string>
#include <vector>

#include "host_session.h"
#include "readings.h"

namespace zqhost {

struct ActionRecord {
    double seconds = 0.0;
    std::string name;
    bool ok = false;
    std::string text;
};

struct RunSummary {
    std::string machine;
    double seconds = 0.0;
    Levels largest;  // over the run
    StrongestBin input;
    StrongestBin output;
    std::vector<ActionRecord> actions;
};

// Reads the rest (device lists, messages, listings, settings) from the session, whose core
// must still be initialised.
std::string SummaryJson(HostSession& session, const RunSummary& run);

}  // namespace zqhost
