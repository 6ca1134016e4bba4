// Failure injection: one mechanism for the whole platform layer. Internal to the platform
// library.
//
// A test arms rules through the control API, in three forms that share this one store:
// - zqvm::InjectFailure / InjectFailureAfter (vm/audio_machine.h): Core Audio methods by their
//   "Interface::Method" name (method_faults.h lists them), for one endpoint or all, failing once
//   or every time, with the HRESULT given;
// - zqvm::FailCall (vm/call_faults.h): one platform call of FaultableCalls() (COM creation, the
//   bridges, the registry, timers, handles, the scheduler, event and thread creation), armed one
//   at a time, failing once with the code given (its HRESULT, status, or last error);
// - zqvm::FailEventCreations / FailThreadCreations (vm/kernel_faults.h): the next creations of
//   a kind, failing `count` times with a last error.
// Every injectable call asks Fails() at its entry with its own name: the Core Audio front end
// for its methods (coreaudio/objects.h), the bridge front end for the HidUart_* calls, the
// kernel, registry and COM runtime for theirs (faults/call_faults.h). Nothing else decides.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zqplatform::faults {

// Which control call armed a rule: each clears only its own.
enum class Armer { Methods, Call, Creations };

struct Rule {
    Armer armer = Armer::Call;
    std::string call;     // the call's name
    std::wstring scope;   // an endpoint id; empty: every object
    int64_t code = 0;     // what the call reports
    uint32_t skip = 0;    // matching calls that pass first
    uint32_t times = 1;   // failures before the rule is used up; 0: every call fails
};

void Arm(Rule rule);
// Removes the rules an armer made (only those for call, when one is named).
void Disarm(Armer armer, std::string_view call = {});
size_t ArmedCount(Armer armer);
// Whether any rule is armed at all: one atomic load.
bool AnyArmed();

// Whether this call (made on an object of scope; empty for calls that belong to no endpoint) is
// to fail now, and with what code. Every rule for the call counts it, in the order armed, as one
// of the calls it lets pass, until one fails it. One atomic load while nothing is armed, cheap
// enough for every GetBuffer.
bool Fails(std::string_view call, std::wstring_view scope, int64_t& code);

}  // namespace zqplatform::faults
