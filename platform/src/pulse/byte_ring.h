// A ring of bytes between one producer thread and one consumer thread, sized once before use.
// Neither side locks, waits or allocates: each owns one position and publishes it with
// release ordering; the other reads it with acquire ordering. Internal to the platform library.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <vector>

namespace zqplatform::pulse {

class ByteRing {
public:
    // Not while either side is using the ring.
    void Allocate(size_t capacity) {
        m_data.assign(capacity, 0);
        m_read.store(0, std::memory_order_relaxed);
        m_write.store(0, std::memory_order_relaxed);
    }
    size_t Capacity() const { return m_data.size(); }
    // Either side: bytes written and not yet read.
    size_t Filled() const { return m_write.load(std::memory_order_acquire) - m_read.load(std::memory_order_acquire); }

    // Producer.
    size_t Free() const { return Capacity() - Filled(); }
    // Where the next n bytes go when they fit without wrapping; null otherwise.
    uint8_t* ContiguousWriteArea(size_t n) {
        const size_t at = m_write.load(std::memory_order_relaxed) % Capacity();
        return at + n <= Capacity() ? &m_data[at] : nullptr;
    }
    // Copies up to Free() bytes in; returns how many.
    size_t Write(const void* data, size_t n) {
        n = std::min(n, Free());
        const uint64_t write = m_write.load(std::memory_order_relaxed);
        const size_t at = write % Capacity();
        const size_t first = std::min(n, Capacity() - at);
        std::memcpy(&m_data[at], data, first);
        std::memcpy(m_data.data(), static_cast<const uint8_t*>(data) + first, n - first);
        m_write.store(write + n, std::memory_order_release);
        return n;
    }
    // Publishes n bytes written through ContiguousWriteArea.
    void CommitWrite(size_t n) { m_write.store(m_write.load(std::memory_order_relaxed) + n, std::memory_order_release); }

    // Consumer: the readable bytes that follow each other in memory from the read position.
    const uint8_t* ReadArea(size_t* contiguous) const {
        const uint64_t read = m_read.load(std::memory_order_relaxed);
        const size_t at = read % Capacity();
        *contiguous = std::min(Filled(), Capacity() - at);
        return &m_data[at];
    }
    void Read(void* out, size_t n) const {
        const size_t at = m_read.load(std::memory_order_relaxed) % Capacity();
        const size_t first = std::min(n, Capacity() - at);
        std::memcpy(out, &m_data[at], first);
        std::memcpy(static_cast<uint8_t*>(out) + first, m_data.data(), n - first);
    }
    void CommitRead(size_t n) { m_read.store(m_read.load(std::memory_order_relaxed) + n, std::memory_order_release); }
    // Consumer: forgets everything written so far.
    void Drain() { m_read.store(m_write.load(std::memory_order_acquire), std::memory_order_release); }

private:
    std::vector<uint8_t> m_data;
    std::atomic<uint64_t> m_read{0};
    std::atomic<uint64_t> m_write{0};
};

}  // namespace zqplatform::pulse
