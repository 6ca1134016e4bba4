// Failure injection for kernel object creation, so that tests can reach the paths where an
// event or a thread cannot be created: several creations in a row, where FailCall("CreateEvent")
// fails one (both arm the same store, call_faults.h).
#pragma once

#include <cstddef>
#include <cstdint>

#include "zqplatform/export.h"

namespace zqvm {

// Lets the next `skip` event creations (CreateEventW / CreateEventExW) succeed, then makes the
// following `count` fail with last error `error`. count 0 cancels.
ZQPLATFORM_API void FailEventCreations(uint32_t skip, uint32_t count, uint32_t error);
// The same for CreateThread.
ZQPLATFORM_API void FailThreadCreations(uint32_t skip, uint32_t count, uint32_t error);

// Kernel object handles open in the process (events, threads, timers): back at its old value
// when nothing leaked a handle.
ZQPLATFORM_API size_t OpenKernelHandleCount();

}  // namespace zqvm
