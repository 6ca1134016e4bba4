// Injected creation failures (zqplatform/vm/kernel_faults.h), over the one store of
// faults/fault_rules.h: FailCall("CreateEvent") and FailEventCreations arm the same call.
#include "creation_faults.h"

#include "../faults/fault_rules.h"
#include "zqplatform/vm/kernel_faults.h"
#include "zqplatform/win/wintypes.h"

namespace zqplatform::kernel {
namespace {

const char* CallOf(CreationKind kind) { return kind == CreationKind::Event ? "CreateEvent" : "CreateThread"; }

// Replaces the plan of a kind (count 0: none).
void SetPlan(CreationKind kind, uint32_t skip, uint32_t count, uint32_t error) {
    faults::Disarm(faults::Armer::Creations, CallOf(kind));
    if (count > 0) faults::Arm(faults::Rule{faults::Armer::Creations, CallOf(kind), {}, error, skip, count});
}

}  // namespace

bool ConsumeCreationFault(CreationKind kind) {
    int64_t error = 0;
    if (!faults::Fails(CallOf(kind), {}, error)) return false;
    SetLastError(static_cast<DWORD>(error));
    return true;
}

}  // namespace zqplatform::kernel

namespace zqvm {

void FailEventCreations(uint32_t skip, uint32_t count, uint32_t error) {
    zqplatform::kernel::SetPlan(zqplatform::kernel::CreationKind::Event, skip, count, error);
}

void FailThreadCreations(uint32_t skip, uint32_t count, uint32_t error) {
    zqplatform::kernel::SetPlan(zqplatform::kernel::CreationKind::Thread, skip, count, error);
}

}  // namespace zqvm
