// Move-only owners of the two kinds of platform resource the system holds by hand: a kernel
// object handle (closed with CloseHandle) and a block of COM task memory (freed with
// CoTaskMemFree). Each is released exactly once, by whoever holds it last; a moved-from owner
// holds nothing. Written against the Windows names only, so it serves on every platform.
#pragma once

#include <utility>

// A kernel object handle: an event, a thread, a waitable timer.
class UniqueHandle {
public:
    UniqueHandle() noexcept = default;
    explicit UniqueHandle(HANDLE handle) noexcept : m_handle(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    ~UniqueHandle() { reset(); }

    HANDLE get() const noexcept { return m_handle; }
    explicit operator bool() const noexcept { return m_handle != nullptr; }
    // Closes what is held and takes handle instead.
    void reset(HANDLE handle = nullptr) noexcept {
        const HANDLE old = std::exchange(m_handle, handle);
        if (old != nullptr) CloseHandle(old);
    }
    HANDLE release() noexcept { return std::exchange(m_handle, nullptr); }

    friend bool operator==(const UniqueHandle& held, std::nullptr_t) noexcept { return held.m_handle == nullptr; }

private:
    HANDLE m_handle = nullptr;
};

// Memory a COM call allocated for its caller (a mix format, a device identifier).
template <typename T>
class CoTaskMemPtr {
public:
    CoTaskMemPtr() noexcept = default;
    explicit CoTaskMemPtr(T* p) noexcept : m_p(p) {}
    CoTaskMemPtr(CoTaskMemPtr&& other) noexcept : m_p(other.release()) {}
    CoTaskMemPtr& operator=(CoTaskMemPtr&& other) noexcept {
        reset(other.release());
        return *this;
    }
    CoTaskMemPtr(const CoTaskMemPtr&) = delete;
    CoTaskMemPtr& operator=(const CoTaskMemPtr&) = delete;
    ~CoTaskMemPtr() { reset(); }

    T* get() const noexcept { return m_p; }
    T* operator->() const noexcept { return m_p; }
    explicit operator bool() const noexcept { return m_p != nullptr; }
    void reset(T* p = nullptr) noexcept {
        T* old = std::exchange(m_p, p);
        if (old != nullptr) CoTaskMemFree(old);
    }
    T* release() noexcept { return std::exchange(m_p, nullptr); }
    // For a call that fills in a fresh block: what was held is freed first.
    T** put() noexcept {
        reset();
        return &m_p;
    }

    friend bool operator==(const CoTaskMemPtr& held, std::nullptr_t) noexcept { return held.m_p == nullptr; }

private:
    T* m_p = nullptr;
};
