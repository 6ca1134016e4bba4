// The analyzer feed buffer: a ring of mono samples and a latest-packet block.
#include "audio/AudioSharedMem.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "audio/AudioLog.h"
#include "audio/CircularBuffer.h"

namespace {
constexpr size_t kHeaderBytes = 8;  // int32 frame count, int32 1
constexpr size_t kFrameBytes = 8;   // interleaved stereo float
constexpr size_t kSampleBytes = 4;  // one float of the first channel
// The mono samples go to the ring through a small stack chunk: no allocation per packet.
constexpr size_t kChunkSamples = 256;

// Bytes of frames that a packet of count frames puts into a block of blockBytes.
size_t FrameBytesInBlock(uint32_t count, int blockBytes) {
    return static_cast<size_t>(std::min<uint64_t>(uint64_t{count} * kFrameBytes,
                                                  static_cast<uint64_t>(blockBytes) - kHeaderBytes));
}
}  // namespace

CAudioSharedMem::~CAudioSharedMem() { Close(); }

int CAudioSharedMem::CreateBuffer() {
    audiolog::Info(L"AudioSharedMem: CreateBuffer");
    Close();
    m_bRing = 1;
    m_nSize = kBlockBytes;
    m_pRing = new (std::nothrow) CCircularBuffer(kRingBytes);
    // Zero from the start, so that WritePacket only ever has to clear what an earlier packet
    // left behind (see there).
    m_pBlock = new (std::nothrow) uint8_t[static_cast<size_t>(m_nSize)]();
    if (m_pBlock != nullptr) {
        audiolog::Info(L"AudioSharedMem: alloc buffer memory OK");
        return 1;
    }
    audiolog::Error(L"AudioSharedMem: Undable alloc buffer memory");
    return 0;
}

void CAudioSharedMem::Close() {
    audiolog::Info(L"AudioSharedMem: Close");
    delete[] m_pBlock;
    m_pBlock = nullptr;
    delete m_pRing;  // frees the storage, then the ring
    m_pRing = nullptr;
}

int CAudioSharedMem::WritePacket(const float* frames, uint32_t count) {
    if (m_pBlock == nullptr || frames == nullptr || count == 0) return 0;

    // The block must read: header, the packet's frames, zero to the end. Instead of clearing
    // all 48000 bytes per packet, only the bytes of the previous packet beyond the new one are
    // cleared: the rest is zero already, since the block starts zeroed in CreateBuffer and
    // m_nUsed (the frame count of the previous packet, never below what it left) bounds the
    // bytes written since. The content is the same as after a full clear.
    const size_t newBytes = FrameBytesInBlock(count, m_nSize);
    const size_t oldBytes = FrameBytesInBlock(static_cast<uint32_t>(m_nUsed), m_nSize);
    if (oldBytes > newBytes) std::memset(m_pBlock + kHeaderBytes + newBytes, 0, oldBytes - newBytes);

    const int32_t header[2] = {static_cast<int32_t>(count), 1};
    std::memcpy(m_pBlock, header, sizeof(header));
    std::memcpy(m_pBlock + kHeaderBytes, frames, newBytes);
    m_nUsed = static_cast<int>(count);

    if (m_bRing != 0 && m_pRing != nullptr) {
        // The first channel of each frame, chunk by chunk. The ring keeps what fits and drops
        // the rest, as one write of the whole mono packet would; once it is full, stop.
        const auto* bytes = reinterpret_cast<const uint8_t*>(frames);
        uint8_t chunk[kChunkSamples * kSampleBytes];
        for (uint32_t first = 0; first < count;) {
            const size_t n = std::min<size_t>(kChunkSamples, count - first);
            for (size_t i = 0; i < n; ++i) {
                std::memcpy(chunk + i * kSampleBytes, bytes + (first + i) * kFrameBytes, kSampleBytes);
            }
            const size_t want = n * kSampleBytes;
            if (m_pRing->Write(chunk, want) < want) break;
            first += static_cast<uint32_t>(n);
        }
    }
    return 1;
}

size_t CAudioSharedMem::Read(void* dst, size_t bytes) {
    if (m_bRing == 0 || dst == nullptr || m_pRing == nullptr) return 0;
    return m_pRing->Read(dst, bytes);
}
