// The three ways a test arms failures (Core Audio methods, one platform call, kernel creations)
// share one store: each takes effect at the same hook, and each clears only what it armed.
#include <gtest/gtest.h>

#include "zqPlatform.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/call_faults.h"
#include "zqplatform/vm/kernel_faults.h"

namespace {

// Creates an event; its last error when the creation failed, 0 when it worked.
DWORD CreationError() {
    SetLastError(0);
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (event == nullptr) return GetLastError();
    CloseHandle(event);
    return 0;
}

class FaultStore : public ::testing::Test {
protected:
    void TearDown() override {
        zqvm::ClearFailures();
        zqvm::ClearCallFailure();
        zqvm::FailEventCreations(0, 0, 0);
    }
};

TEST_F(FaultStore, EventCreationArmedBothWaysFailsInTheOrderArmedThenWorks) {
    zqvm::FailEventCreations(0, 2, 21);
    ASSERT_TRUE(zqvm::FailCall("CreateEvent", 0, 22));
    EXPECT_EQ(21u, CreationError());
    EXPECT_EQ(21u, CreationError());
    EXPECT_TRUE(zqvm::CallFailurePending()) << "the creations' plan came first";
    EXPECT_EQ(22u, CreationError());
    EXPECT_FALSE(zqvm::CallFailurePending());
    EXPECT_EQ(0u, CreationError());
}

TEST_F(FaultStore, EachControlCallClearsOnlyWhatItArmed) {
    ASSERT_TRUE(zqvm::InjectFailure(L"", "IMMDeviceEnumerator::GetDevice", E_FAIL));
    ASSERT_TRUE(zqvm::FailCall("CreateEvent", 1, 31));
    zqvm::FailEventCreations(0, 1, 32);
    EXPECT_EQ(1u, zqvm::PendingFailures());

    zqvm::ClearFailures();
    EXPECT_EQ(0u, zqvm::PendingFailures());
    EXPECT_TRUE(zqvm::CallFailurePending()) << "ClearFailures took the armed call";
    // The armed call lets this creation pass, and counts it; the plan fails it.
    EXPECT_EQ(32u, CreationError()) << "ClearFailures took the creations' plan";

    zqvm::FailEventCreations(0, 3, 33);
    zqvm::FailEventCreations(0, 0, 0);  // cancels the plan, not the armed call
    EXPECT_TRUE(zqvm::CallFailurePending());
    EXPECT_EQ(31u, CreationError());

    ASSERT_TRUE(zqvm::FailCall("CreateEvent", 0, 34));
    ASSERT_TRUE(zqvm::FailCall("CreateThread", 0, 35));  // replaces the one armed before
    EXPECT_EQ(0u, CreationError());
    zqvm::ClearCallFailure();
    EXPECT_FALSE(zqvm::CallFailurePending());
}

}  // namespace
