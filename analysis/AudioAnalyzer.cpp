// The analyzer object and its thread: arrays, start, the three timers and the four-way wait,
// stop and join. The jobs are in AnalyzerTick.cpp and AnalyzerDisplay.cpp.
#include "analysis/AudioAnalyzer.h"

#include "core/FailureReport.h"

#include <cstring>
#include <new>
#include <thread>

namespace {

// The private arrays live in one 64-byte aligned block. Each array is followed by a gap of
// half a page and a cache line, so that arrays used together (the transform's real and
// imaginary parts above all) never sit a multiple of 4 KiB apart: stores to one and loads from
// the other would otherwise look alike to the processor's memory disambiguation (4K aliasing)
// and stall.
constexpr size_t kAlignBytes = 64;
constexpr size_t kGapFloats = (2048 + 64) / sizeof(float);

constexpr size_t RoundUp(size_t floats) {
    constexpr size_t unit = kAlignBytes / sizeof(float);
    return (floats + unit - 1) / unit * unit;
}

class BlockLayout {
public:
    std::span<float> Take(size_t count) {
        const size_t offset = m_next;
        m_next = RoundUp(offset + count + kGapFloats);
        if (m_base == nullptr) return {};  // sizing pass
        return {m_base + offset, count};
    }
    size_t Floats() const { return m_next; }
    void Place(float* base) {
        m_base = base;
        m_next = 0;
    }

private:
    float* m_base = nullptr;
    size_t m_next = 0;
};

// Auto-reset waitable timer set to fall due 100 ms from now and then every periodMs.
bool SetTimer(HANDLE timer, LONG periodMs) {
    if (timer == nullptr) return false;
    LARGE_INTEGER due;
    due.QuadPart = -1000000;  // 100 ms, relative, in 100-ns units
    return SetWaitableTimer(timer, &due, periodMs, nullptr, nullptr, FALSE) != FALSE;
}

void CloseIfOpen(HANDLE handle) {
    if (handle != nullptr) CloseHandle(handle);
}

}  // namespace

CAudioAnalyzer::CAudioAnalyzer()
    : m_hThread(nullptr),
      m_vecDataPeakIn(kPeakHistory),
      m_nStatTicksIn(0),
      m_vecDataPeakOut(kPeakHistory),
      m_nStatTicksOut(0),
      m_nHistoryNewestIn(0),
      m_nHistoryNewestOut(0),
      m_bTimersSet(false),
      m_nTicksServed(0),
      m_nDecaysServed(0),
      m_nResetsServed(0),
      m_pBlock(nullptr) {
    // Two passes over the same layout: the first sizes the block, the second hands it out.
    BlockLayout layout;
    auto carve = [&layout, this]() {
        m_vecSamplesIn = layout.Take(kSampleHistory);
        m_vecWindowedIn = layout.Take(kSpectrumLength);
        m_vecReIn = layout.Take(kSpectrumLength);
        m_vecImIn = layout.Take(kSpectrumLength);
        m_vecPowerIn = layout.Take(kSpectrumLength);
        m_vecHistoryIn = layout.Take(static_cast<size_t>(kHistoryRows) * kSpectrumLength);
        m_vecSamplesOut = layout.Take(kSampleHistory);
        m_vecWindowedOut = layout.Take(kSpectrumLength);
        m_vecReOut = layout.Take(kSpectrumLength);
        m_vecImOut = layout.Take(kSpectrumLength);
        m_vecPowerOut = layout.Take(kSpectrumLength);
        m_vecHistoryOut = layout.Take(static_cast<size_t>(kHistoryRows) * kSpectrumLength);
        m_vecWaveScratch = layout.Take(kBlockSamples);
        m_vecStatMax = layout.Take(kSpectrumLength);
        m_vecStatMin = layout.Take(kSpectrumLength);
        m_vecShownIn = layout.Take(kSpectrumLength);
        m_vecShownPeakIn = layout.Take(kSpectrumLength);
        m_vecShownOut = layout.Take(kSpectrumLength);
        m_vecShownPeakOut = layout.Take(kSpectrumLength);
    };
    carve();
    const size_t floats = layout.Floats();
    m_pBlock = static_cast<float*>(::operator new(floats * sizeof(float), std::align_val_t{kAlignBytes}));
    std::memset(m_pBlock, 0, floats * sizeof(float));
    layout.Place(m_pBlock);
    carve();

    // The shared arrays the same way (the hold view stores to one and loads from the next).
    constexpr size_t kStride = RoundUp(kSpectrumLength + kGapFloats);
    m_pSharedBlock = std::make_unique<std::atomic<float>[]>(4 * kStride);  // all 0.0
    std::atomic<float>* shared = m_pSharedBlock.get();
    m_vecSpectrumAmpIn = SharedArray(shared, kSpectrumLength);
    m_vecSpectrumAmpPeakIn = SharedArray(shared + kStride, kSpectrumLength);
    m_vecSpectrumAmpPeakOut = SharedArray(shared + 2 * kStride, kSpectrumLength);
    m_vecSpectrumAmpOut = SharedArray(shared + 3 * kStride, kSpectrumLength);

    m_hShutdownEvent.reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (!m_hShutdownEvent) ReportQuietFailure(L"Unable to create the analyzer's shutdown event: %d.", GetLastError());
}

CAudioAnalyzer::~CAudioAnalyzer() {
    if (m_hThread.load() != nullptr || m_hThreadJoin) {
        RequestStop();
        JoinThread();
    }
    ::operator delete(m_pBlock, std::align_val_t{kAlignBytes});
}

bool CAudioAnalyzer::StartThread() {
    if (m_hThread.load() != nullptr) return true;
    if (!m_hShutdownEvent) {
        // Nothing could ever stop such a thread, and Shutdown would wait for it forever.
        OutputDebugStringW(L"Unable to create analizer thread: no shutdown event.");
        return false;
    }
    // A thread that ended on its own (its timers could not be set) is gone or about to be.
    JoinThread();
    // Created suspended and resumed at once: m_hThread is stored before the thread can run and
    // clear it as it ends.
    HANDLE thread = CreateThread(nullptr, 0, AnalyzerThreadProc, this, CREATE_SUSPENDED, nullptr);
    if (thread == nullptr) {
        CStringW text;
        text.Format(L"Unable to create analizer thread: %x.", GetLastError());
        OutputDebugStringW(text.GetString());
        return false;
    }
    HANDLE process = GetCurrentProcess();
    HANDLE join = nullptr;
    if (DuplicateHandle(process, thread, process, &join, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        m_hThreadJoin.reset(join);
    } else {
        CStringW text;
        text.Format(L"Unable to keep the analyzer thread's handle for joining: %x.", GetLastError());
        OutputDebugStringW(text.GetString());
    }
    m_hThread.store(thread);
    ResumeThread(thread);
    return true;
}

void CAudioAnalyzer::RequestStop() {
    if (m_hShutdownEvent) SetEvent(m_hShutdownEvent.get());
}

void CAudioAnalyzer::JoinThread() {
    if (!m_hThreadJoin) {
        // No handle could be kept for joining: the thread's last touch of this object is to
        // clear m_hThread, after closing it, so once it reads null the thread has let go.
        while (m_hThread.load(std::memory_order_acquire) != nullptr) std::this_thread::yield();
        return;
    }
    WaitForSingleObject(m_hThreadJoin.get(), INFINITE);
    m_hThreadJoin.reset();
}

DWORD WINAPI CAudioAnalyzer::AnalyzerThreadProc(LPVOID pParam) {
    if (pParam == nullptr) return 0;
    static_cast<CAudioAnalyzer*>(pParam)->ThreadLoop();
    return 0;
}

void CAudioAnalyzer::ThreadLoop() {
    // Synchronisation timers: the wait that returns one clears it, and expiries that pile up
    // while a job runs count once.
    const UniqueHandle tick(CreateWaitableTimerW(nullptr, FALSE, nullptr));
    const UniqueHandle decay(CreateWaitableTimerW(nullptr, FALSE, nullptr));
    const UniqueHandle reset(CreateWaitableTimerW(nullptr, FALSE, nullptr));
    const bool timersSet = SetTimer(tick.get(), 10) && SetTimer(decay.get(), 5) && SetTimer(reset.get(), 1000);
    // The thread ends at once without them; the analysis stays at its zeros.
    if (!timersSet) ReportQuietFailure(L"Unable to set the analyzer's timers: %d.", GetLastError());
    if (timersSet) {
        m_bTimersSet.store(true, std::memory_order_release);
        // Lowest index first: shutdown before everything, the tick before the decay and the
        // peak reset when they fall due together. One object served per wait.
        const HANDLE objects[4] = {m_hShutdownEvent.get(), tick.get(), decay.get(), reset.get()};
        for (bool running = true; running;) {
            switch (WaitForMultipleObjects(4, objects, FALSE, INFINITE)) {
                case WAIT_OBJECT_0:
                    running = false;
                    break;
                case WAIT_OBJECT_0 + 1: {
                    Concurrency::critical_section::scoped_lock lock(m_cs);
                    AnalyzeInput();
                    AnalyzeOutput();
                    m_nTicksServed.fetch_add(1, std::memory_order_release);
                    break;
                }
                case WAIT_OBJECT_0 + 2: {
                    Concurrency::critical_section::scoped_lock lock(m_cs);
                    DecaySpectrum();
                    m_nDecaysServed.fetch_add(1, std::memory_order_release);
                    break;
                }
                case WAIT_OBJECT_0 + 3: {
                    Concurrency::critical_section::scoped_lock lock(m_cs);
                    ResetSpectrumPeaks();
                    m_nResetsServed.fetch_add(1, std::memory_order_release);
                    break;
                }
                default:  // a failed wait: not reported, wait again
                    break;
            }
        }
        m_bTimersSet.store(false, std::memory_order_release);
    }
    // Closed before it is cleared: a join without a handle of its own waits for the null.
    CloseIfOpen(m_hThread.load(std::memory_order_relaxed));
    m_hThread.store(nullptr, std::memory_order_release);
}

std::span<const float> CAudioAnalyzer::HistoryRow(std::span<const float> history, int newest, int nRow) {
    const int physical = (newest + nRow) % kHistoryRows;
    return history.subspan(static_cast<size_t>(physical) * kSpectrumLength, kSpectrumLength);
}
