// CPeakHistory: a ring read under a sequence count (a seqlock whose data are atomics).
#include "analysis/PeakHistory.h"

#include <stdexcept>
#include <thread>

namespace {

// A reader that met a tick a few times in a row gives up its time slice: the writing analyzer
// thread may be waiting for this very core (a host reading from several threads, or a machine
// with one core), and a tick takes a few hundred nanoseconds, so a short spin first usually wins.
constexpr unsigned kSpinsBeforeYield = 8;

void Pause(unsigned& spins) {
    if (++spins >= kSpinsBeforeYield) {
        spins = 0;
        std::this_thread::yield();
    }
}

}  // namespace

float CPeakHistory::At(int nPlace) const {
    if (nPlace < 0 || nPlace >= Size()) throw std::out_of_range("waveform place out of range");
    for (unsigned spins = 0;; Pause(spins)) {
        const uint32_t before = m_nSeq.load(std::memory_order_acquire);
        if ((before & 1u) != 0) continue;  // a tick is writing
        const int head = m_nHead.load(std::memory_order_relaxed);
        const float value = m_ring[static_cast<size_t>(Physical(head, nPlace))].load(std::memory_order_relaxed);
        // The value and the head are read before the count is looked at again.
        std::atomic_thread_fence(std::memory_order_acquire);
        if (m_nSeq.load(std::memory_order_relaxed) == before) return value;
    }
}

void CPeakHistory::Push(const float* pValues, int nCount) {
    if (nCount <= 0) return;
    const int size = Size();
    if (nCount > size) {
        pValues += nCount - size;  // only the newest size values can stay
        nCount = size;
    }
    const uint32_t seq = m_nSeq.load(std::memory_order_relaxed);
    m_nSeq.store(seq + 1, std::memory_order_relaxed);
    // The odd count is visible before any value changes.
    std::atomic_thread_fence(std::memory_order_release);
    int head = m_nHead.load(std::memory_order_relaxed) - nCount;
    if (head < 0) head += size;
    // The slots of the oldest nCount places become places 0 .. nCount - 1.
    for (int place = 0; place < nCount; ++place) {
        m_ring[static_cast<size_t>(Physical(head, place))].store(pValues[place], std::memory_order_relaxed);
    }
    m_nHead.store(head, std::memory_order_relaxed);
    m_nSeq.store(seq + 2, std::memory_order_release);
}
