#include "creation_faults.h"

#include "../faults/call_faults.h"

#include <mutex>

#include "zqplatform/vm/kernel_faults.h"
#include "zqplatform/win/wintypes.h"

namespace zqplatform::kernel {
namespace {

struct Plan {
    uint32_t skip = 0;
    uint32_t count = 0;
    uint32_t error = 0;
};

std::mutex g_mutex;
Plan g_plans[2];

void SetPlan(CreationKind kind, uint32_t skip, uint32_t count, uint32_t error) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_plans[static_cast<int>(kind)] = {skip, count, error};
}

}  // namespace

bool ConsumeCreationFault(CreationKind kind) {
    if (faults::FailsNowSettingLastError(kind == CreationKind::Event ? "CreateEvent" : "CreateThread")) return true;
    std::lock_guard<std::mutex> lock(g_mutex);
    Plan& plan = g_plans[static_cast<int>(kind)];
    if (plan.count == 0) return false;
    if (plan.skip > 0) {
        --plan.skip;
        return false;
    }
    --plan.count;
    SetLastError(plan.error);
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
