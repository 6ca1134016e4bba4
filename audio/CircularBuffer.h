// CCircularBuffer: a fixed-capacity ring of bytes between one writer and one reader.
//
// No lock and no atomics: every call on a ring shared between threads is made under the lock
// of its owner (the capture engine's m_csPacket). A write stores what fits and drops the rest,
// so stored bytes are never overwritten; a read takes what is there. Neither allocates, and
// each is at most two block copies, so both are safe on the real-time threads.
//
// The owner creates the ring on the heap (new) and frees it (delete), which frees the storage
// first and then the ring.
#pragma once

#include <cstddef>
#include <cstdint>

class CCircularBuffer {
public:
    // Allocates nCapacity bytes of storage, not cleared. Should the allocation fail, the ring
    // has capacity 0 and every write and read moves nothing.
    explicit CCircularBuffer(size_t nCapacity);
    ~CCircularBuffer();
    CCircularBuffer(const CCircularBuffer&) = delete;
    CCircularBuffer& operator=(const CCircularBuffer&) = delete;

    // Stores up to n bytes of src; returns how many were stored (what does not fit is dropped).
    size_t Write(const void* src, size_t n);
    // Removes up to n bytes into dst; returns how many were removed.
    size_t Read(void* dst, size_t n);
    // Removes up to n bytes unread; returns how many were removed.
    size_t Skip(size_t n);

    size_t GetReadPos() const { return m_nReadPos; }
    size_t GetWritePos() const { return m_nWritePos; }
    size_t GetCount() const { return m_nCount; }
    size_t GetCapacity() const { return m_nCapacity; }

private:
    size_t m_nReadPos;   // next byte to read, 0 <= value < capacity
    size_t m_nWritePos;  // next byte to write, 0 <= value < capacity
    size_t m_nCount;     // bytes stored, 0 <= value <= capacity
    size_t m_nCapacity;  // fixed at creation
    uint8_t* m_pData;    // m_nCapacity bytes, owned
};
