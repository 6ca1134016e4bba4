// The real-time priority of audio threads, for the platform's own threads (a sound server
// connection's loop thread): what AvSetMmThreadCharacteristicsW gives a task of the "Audio" class,
// without a task handle to revert, and without counting as the system's call to it (which
// failure injection and handle accounting watch). The thread keeps it until it ends.
#pragma once

namespace zqplatform::kernel {

// SCHED_FIFO at priority offset above the lowest; false where the right to it is missing (the
// thread then keeps its normal priority).
bool RaiseCallingThreadToRealTime(int priorityOffset);

constexpr int kAudioPriorityOffset = 10;  // the "Audio" task class's

}  // namespace zqplatform::kernel
