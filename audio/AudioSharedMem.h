// CAudioSharedMem: the analyzer feed buffer. The capture thread writes every converted packet
// (interleaved stereo float frames) into it; the analyzer thread drains the ring of mono
// samples (the first channel of each frame) that it keeps. Beside the ring it keeps a block
// holding a copy of the latest packet:
//
//   offset 0: int32 frame count | offset 4: int32 1 | offset 8: the frames (at most
//   m_nSize - 8 bytes) | zero to the end of the block.
//
// Process-local heap memory only. No lock: the capture engine's m_csPacket is held around
// every WritePacket and Read; CreateBuffer and Close run only while no stream thread runs.
// WritePacket allocates nothing, so it is safe on the capture thread.
#pragma once

#include <cstddef>
#include <cstdint>

class CCircularBuffer;

class CAudioSharedMem {
public:
    static constexpr int kBlockBytes = 48000;
    static constexpr size_t kRingBytes = 48000;  // 12000 samples, 250 ms at 48 kHz

    CAudioSharedMem() = default;
    ~CAudioSharedMem();
    CAudioSharedMem(const CAudioSharedMem&) = delete;
    CAudioSharedMem& operator=(const CAudioSharedMem&) = delete;

    // (Re)creates ring and block, dropping what they held; nonzero when the block exists.
    int CreateBuffer();
    // Frees ring and block; harmless when already closed.
    void Close();
    bool IsOpen() const { return m_pBlock != nullptr; }
    // Takes one packet of count interleaved stereo float frames (8 bytes each); nonzero when
    // accepted, even if the ring had no room for all of its samples.
    int WritePacket(const float* frames, uint32_t count);
    // Removes up to bytes bytes of mono float samples into dst; returns how many.
    size_t Read(void* dst, size_t bytes);

    // The latest-packet block (m_nSize bytes) and the frame count of the latest packet; for
    // inspection only, nothing in the library reads them.
    const uint8_t* GetBlock() const { return m_pBlock; }
    int GetBlockSize() const { return m_nSize; }
    int GetUsed() const { return m_nUsed; }
    const CCircularBuffer* GetRing() const { return m_pRing; }

private:
    CCircularBuffer* m_pRing = nullptr;  // mono samples, owned
    uint8_t* m_pBlock = nullptr;         // latest packet, m_nSize bytes, owned
    int m_bRing = 0;                     // 1: packets also feed the ring
    int m_nSize = 0;                     // block size in bytes
    int m_nUsed = 0;                     // frames of the latest packet
};
