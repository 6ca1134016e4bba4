// Injected creation failures (zqplatform/vm/kernel_faults.h). Internal to the platform library.
#pragma once

#include <cstdint>

namespace zqplatform::kernel {

enum class CreationKind { Event, Thread };

// True when this creation is to fail; the last error is then already set.
bool ConsumeCreationFault(CreationKind kind);

}  // namespace zqplatform::kernel
