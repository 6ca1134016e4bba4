// Helpers shared by the platform's kernel, clock and COM tests.
#pragma once

#include <gtest/gtest.h>

#include <utility>

#include "zqplatform/vm/clock.h"
#include "zqplatform/win/kernel.h"

namespace zqtest {

// Every wait a test makes on something that should happen is bounded by this, so a fault
// fails the test instead of hanging it.
constexpr DWORD kBoundedWaitMs = 5000;

// 100-ns units.
constexpr int64_t kMs = 10000;

// Owns one handle and closes it; a test checks the close where it matters.
class ScopedHandle {
public:
    ScopedHandle() = default;
    explicit ScopedHandle(HANDLE handle) : m_handle(handle) {}
    ~ScopedHandle() { Reset(); }
    ScopedHandle(const ScopedHandle&) = delete;
    ScopedHandle& operator=(const ScopedHandle&) = delete;
    ScopedHandle(ScopedHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}

    HANDLE get() const { return m_handle; }
    HANDLE release() { return std::exchange(m_handle, nullptr); }
    void Reset() {
        if (m_handle != nullptr) CloseHandle(std::exchange(m_handle, nullptr));
    }

private:
    HANDLE m_handle = nullptr;
};

// Puts the platform clock in stepped mode for one test and back to real time after it.
class SteppedClockTest : public ::testing::Test {
protected:
    void SetUp() override { zqvm::SetClockMode(zqvm::ClockMode::Stepped); }
    void TearDown() override { zqvm::SetClockMode(zqvm::ClockMode::RealTime); }
};

// Whether a wait without time-out returns the object; it takes an auto-reset signal.
inline bool TryWait(HANDLE handle) { return WaitForSingleObject(handle, 0) == WAIT_OBJECT_0; }

}  // namespace zqtest
