// The byte ring: split copies at the end of the storage, positions wrap to 0 exactly there.
#include "audio/CircularBuffer.h"

#include <algorithm>
#include <cstring>
#include <new>

CCircularBuffer::CCircularBuffer(size_t nCapacity)
    : m_nReadPos(0), m_nWritePos(0), m_nCount(0), m_nCapacity(nCapacity), m_pData(nullptr) {
    if (nCapacity != 0) m_pData = new (std::nothrow) uint8_t[nCapacity];
    if (m_pData == nullptr) m_nCapacity = 0;  // a ring without storage takes and gives nothing
}

CCircularBuffer::~CCircularBuffer() { delete[] m_pData; }

size_t CCircularBuffer::Write(const void* src, size_t n) {
    if (n == 0 || src == nullptr) return 0;
    const size_t k = std::min(n, m_nCapacity - m_nCount);  // never overwrite what is stored
    if (k == 0) return 0;
    const auto* bytes = static_cast<const uint8_t*>(src);
    const size_t tail = m_nCapacity - m_nWritePos;
    if (k > tail) {
        std::memcpy(m_pData + m_nWritePos, bytes, tail);
        std::memcpy(m_pData, bytes + tail, k - tail);
        m_nWritePos = k - tail;
    } else {
        std::memcpy(m_pData + m_nWritePos, bytes, k);
        m_nWritePos += k;
        if (m_nWritePos == m_nCapacity) m_nWritePos = 0;
    }
    m_nCount += k;
    return k;
}

size_t CCircularBuffer::Skip(size_t n) {
    const size_t k = std::min(n, m_nCount);
    if (k == 0) return 0;
    m_nReadPos = (m_nReadPos + k) % m_nCapacity;
    m_nCount -= k;
    return k;
}

size_t CCircularBuffer::Read(void* dst, size_t n) {
    if (n == 0 || dst == nullptr) return 0;
    const size_t k = std::min(n, m_nCount);
    if (k == 0) return 0;
    auto* bytes = static_cast<uint8_t*>(dst);
    const size_t tail = m_nCapacity - m_nReadPos;
    if (k > tail) {
        std::memcpy(bytes, m_pData + m_nReadPos, tail);
        std::memcpy(bytes + tail, m_pData, k - tail);
        m_nReadPos = k - tail;
    } else {
        std::memcpy(bytes, m_pData + m_nReadPos, k);
        m_nReadPos += k;
        if (m_nReadPos == m_nCapacity) m_nReadPos = 0;
    }
    m_nCount -= k;
    return k;
}
