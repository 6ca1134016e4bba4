// Threads: the handle signalled on exit, exit codes, suspended start, and handles
// closed while the thread runs.
#include "kernel_test_support.h"

namespace {

using zqtest::kBoundedWaitMs;
using zqtest::ScopedHandle;

struct Gate {
    ScopedHandle started{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    ScopedHandle release{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    ScopedHandle finished{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    DWORD exitCode = 0;
};

DWORD WINAPI GatedRoutine(LPVOID parameter) {
    auto* gate = static_cast<Gate*>(parameter);
    SetEvent(gate->started.get());
    if (WaitForSingleObject(gate->release.get(), kBoundedWaitMs) != WAIT_OBJECT_0) return 0xDEAD;
    const DWORD exitCode = gate->exitCode;
    SetEvent(gate->finished.get());  // the last touch of the gate: the test may end after it
    return exitCode;
}

DWORD ExitCodeOf(HANDLE thread) {
    DWORD exitCode = 0xBAD;
    EXPECT_TRUE(GetExitCodeThread(thread, &exitCode));
    return exitCode;
}

TEST(KernelThread, HandleIsSignalledWhenTheRoutineReturns) {
    Gate gate;
    ScopedHandle thread(CreateThread(nullptr, 64 * 1024, GatedRoutine, &gate, 0, nullptr));
    ASSERT_NE(thread.get(), nullptr);
    ASSERT_EQ(WaitForSingleObject(gate.started.get(), kBoundedWaitMs), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(thread.get(), 0), WAIT_TIMEOUT);

    SetEvent(gate.release.get());
    ASSERT_EQ(WaitForSingleObject(thread.get(), kBoundedWaitMs), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(thread.get(), 0), WAIT_OBJECT_0);  // stays signalled
}

TEST(KernelThread, SuspendedThreadRunsOnlyAfterResume) {
    Gate gate;
    gate.exitCode = 7;
    SetEvent(gate.release.get());
    ScopedHandle thread(CreateThread(nullptr, 0, GatedRoutine, &gate, CREATE_SUSPENDED, nullptr));
    ASSERT_NE(thread.get(), nullptr);
    // Had it run, it would have ended at once.
    EXPECT_EQ(WaitForSingleObject(thread.get(), 50), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(gate.started.get(), 0), WAIT_TIMEOUT);
    EXPECT_EQ(ResumeThread(thread.get()), 1u);
    ASSERT_EQ(WaitForSingleObject(thread.get(), kBoundedWaitMs), WAIT_OBJECT_0);
    EXPECT_EQ(ResumeThread(thread.get()), 0u);
    EXPECT_EQ(ExitCodeOf(thread.get()), 7u);
}

struct SelfClosing {
    HANDLE own = nullptr;
    BOOL closeResult = FALSE;
};

DWORD WINAPI CloseOwnHandle(LPVOID parameter) {
    auto* state = static_cast<SelfClosing*>(parameter);
    state->closeResult = CloseHandle(state->own);
    return 99;
}

TEST(KernelThread, ThreadMayCloseItsOwnHandleWhileADuplicateJoinsIt) {
    SelfClosing state;
    const HANDLE own = CreateThread(nullptr, 0, CloseOwnHandle, &state, CREATE_SUSPENDED, nullptr);
    ASSERT_NE(own, nullptr);
    state.own = own;
    HANDLE join = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), own, GetCurrentProcess(), &join, 0, FALSE, DUPLICATE_SAME_ACCESS));
    ScopedHandle joinHandle(join);
    ASSERT_EQ(ResumeThread(own), 1u);

    ASSERT_EQ(WaitForSingleObject(join, kBoundedWaitMs), WAIT_OBJECT_0);
    EXPECT_TRUE(state.closeResult);
    EXPECT_EQ(ExitCodeOf(join), 99u);
    SetLastError(0);
    EXPECT_FALSE(CloseHandle(own));  // the thread closed it already
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(KernelThread, ClosingTheOnlyHandleDoesNotStopTheThread) {
    Gate gate;
    const HANDLE thread = CreateThread(nullptr, 0, GatedRoutine, &gate, 0, nullptr);
    ASSERT_EQ(WaitForSingleObject(gate.started.get(), kBoundedWaitMs), WAIT_OBJECT_0);
    ASSERT_TRUE(CloseHandle(thread));
    SetEvent(gate.release.get());
    EXPECT_EQ(WaitForSingleObject(gate.finished.get(), kBoundedWaitMs), WAIT_OBJECT_0);  // it ran on
}

}  // namespace
