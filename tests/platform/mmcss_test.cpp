// The multimedia class scheduler's task characteristics over POSIX scheduling. Each test
// changes the scheduling of a thread of its own, never the runner's.
#include <pthread.h>
#include <sched.h>

#include <thread>

#include "kernel_test_support.h"
#include "zqplatform/win/avrt.h"

namespace {

std::pair<int, int> PolicyAndPriority() {
    int policy = -1;
    sched_param parameters{};
    pthread_getschedparam(pthread_self(), &policy, &parameters);
    return {policy, parameters.sched_priority};
}

TEST(Mmcss, RaisesWherePermittedAndRevertsInReverseOrder) {
    std::thread([] {
        const auto before = PolicyAndPriority();
        DWORD taskIndex = 0;
        const HANDLE audio = AvSetMmThreadCharacteristicsW(L"Audio", &taskIndex);
        ASSERT_NE(audio, nullptr);
        EXPECT_NE(taskIndex, 0u);
        const auto asAudio = PolicyAndPriority();
        // Real-time where the system grants it, untouched where it does not.
        EXPECT_TRUE(asAudio.first == SCHED_FIFO || asAudio == before) << asAudio.first;
        DWORD givenIndex = 77;
        const HANDLE pro = AvSetMmThreadCharacteristicsW(L"pro audio", &givenIndex);  // case is ignored
        ASSERT_NE(pro, nullptr);
        EXPECT_EQ(givenIndex, 77u);  // a given index is kept
        EXPECT_TRUE(AvRevertMmThreadCharacteristics(pro));
        EXPECT_EQ(PolicyAndPriority(), asAudio);
        EXPECT_TRUE(AvRevertMmThreadCharacteristics(audio));
        EXPECT_EQ(PolicyAndPriority(), before);
        SetLastError(0);
        EXPECT_FALSE(AvRevertMmThreadCharacteristics(audio));  // gone with the revert
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }).join();
}

}  // namespace
