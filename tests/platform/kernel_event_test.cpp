// Events, handles and the last-error code.
#include <vector>

#include "kernel_test_support.h"

namespace {

using zqtest::ScopedHandle;
using zqtest::TryWait;

const HANDLE kBogus = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x7FFF0001));  // never a handle value

void ExpectError(DWORD expected) { EXPECT_EQ(GetLastError(), expected); }

TEST(KernelEvent, ResetKindAndInitialStateFromEitherCreateCall) {
    struct Case {
        HANDLE event;
        bool manual;
        bool initial;
    };
    ScopedHandle handles[] = {
        ScopedHandle(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
        ScopedHandle(CreateEventW(nullptr, TRUE, TRUE, nullptr)),
        ScopedHandle(CreateEventExW(nullptr, nullptr, CREATE_EVENT_INITIAL_SET, EVENT_ALL_ACCESS)),
        ScopedHandle(CreateEventExW(nullptr, nullptr, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS)),
    };
    const Case cases[] = {{handles[0].get(), false, false},
                          {handles[1].get(), true, true},
                          {handles[2].get(), false, true},
                          {handles[3].get(), true, false}};
    for (const Case& c : cases) {
        ASSERT_NE(c.event, nullptr);
        EXPECT_EQ(TryWait(c.event), c.initial);
        ASSERT_TRUE(SetEvent(c.event));
        ASSERT_TRUE(SetEvent(c.event));  // a second set while signalled adds nothing
        EXPECT_TRUE(TryWait(c.event));
        EXPECT_EQ(TryWait(c.event), c.manual) << "a manual-reset event stays set, an auto-reset one is taken";
        ASSERT_TRUE(ResetEvent(c.event));
        EXPECT_FALSE(TryWait(c.event));
    }
    SetLastError(0);
    EXPECT_EQ(CreateEventExW(nullptr, nullptr, 0x100, EVENT_ALL_ACCESS), nullptr);
    ExpectError(ERROR_INVALID_PARAMETER);
}

TEST(KernelHandle, ValuesAreNeverNullAndNeverReused) {
    std::vector<HANDLE> seen;
    for (int i = 0; i < 200; ++i) {
        const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        ASSERT_NE(event, nullptr);
        ASSERT_NE(event, INVALID_HANDLE_VALUE);
        for (HANDLE earlier : seen) ASSERT_NE(event, earlier);  // closed values do not come back either
        seen.push_back(event);
        ASSERT_TRUE(CloseHandle(event));
        SetLastError(0);
        EXPECT_FALSE(CloseHandle(event));
        ExpectError(ERROR_INVALID_HANDLE);
    }
    SetLastError(0);
    EXPECT_FALSE(CloseHandle(nullptr));
    ExpectError(ERROR_INVALID_HANDLE);
    EXPECT_TRUE(CloseHandle(GetCurrentProcess()));  // the pseudo handle: nothing to close
}

TEST(KernelHandle, DuplicateIsAnotherReferenceToTheSameObject) {
    const HANDLE original = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE duplicate = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), original, GetCurrentProcess(), &duplicate, 0, FALSE,
                                DUPLICATE_SAME_ACCESS));
    ASSERT_NE(duplicate, original);
    ASSERT_TRUE(SetEvent(original));
    EXPECT_TRUE(TryWait(duplicate));  // one object: the wait through the duplicate took the signal
    EXPECT_FALSE(TryWait(original));
    ASSERT_TRUE(CloseHandle(original));  // the object outlives the handle it was created with
    ASSERT_TRUE(SetEvent(duplicate));
    EXPECT_TRUE(TryWait(duplicate));
    EXPECT_TRUE(CloseHandle(duplicate));
    // A bad source is refused.
    HANDLE out = nullptr;
    SetLastError(0);
    EXPECT_FALSE(DuplicateHandle(GetCurrentProcess(), kBogus, GetCurrentProcess(), &out, 0, FALSE, 0));
    ExpectError(ERROR_INVALID_HANDLE);
    EXPECT_EQ(out, nullptr);
}

}  // namespace
