// CPeakHistory: the waveform-peak history of one side, newest value first, that the analyzer
// thread appends to every tick and the host's threads read one place at a time.
//
// The places live in a ring, so that a tick writes only its new values instead of moving all
// 4800. A sequence count (odd while a tick writes) lets a reader see each place's value either
// from before or from after a tick, never a value that was never at that place: the reader
// retries when a tick ran meanwhile. Every access is atomic; only one thread may call Push.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

class CPeakHistory {
public:
    explicit CPeakHistory(int nPlaces) : m_ring(static_cast<size_t>(nPlaces)), m_nHead(0), m_nSeq(0) {}
    CPeakHistory(const CPeakHistory&) = delete;
    CPeakHistory& operator=(const CPeakHistory&) = delete;

    int Size() const { return static_cast<int>(m_ring.size()); }

    // Any thread: the value at nPlace (0 the newest); std::out_of_range outside 0 .. Size() - 1.
    float At(int nPlace) const;

    // The writing thread only: moves every value toward the end by nCount places (the oldest
    // nCount drop out) and puts pValues[0 .. nCount - 1] at places 0 .. nCount - 1.
    void Push(const float* pValues, int nCount);

private:
    int Physical(int head, int place) const {
        const int size = Size();
        const int index = head + place;
        return index >= size ? index - size : index;
    }

    std::vector<std::atomic<float>> m_ring;
    std::atomic<int> m_nHead;       // ring index of place 0
    std::atomic<uint32_t> m_nSeq;   // odd while Push runs
};
