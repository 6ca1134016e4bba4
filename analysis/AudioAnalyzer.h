// CAudioAnalyzer: turns the audio the capture thread passes on into what the host draws. For
// each side, input and output, a waveform-peak history and a 4096-point power spectrum with
// hold, peaks and decay, updated by one worker thread on three periodic timers: the 10 ms tick
// (AnalyzeInput, AnalyzeOutput), the 5 ms decay (DecaySpectrum) and the 1000 ms peak reset
// (ResetSpectrumPeaks).
//
// Threads and ownership:
// - The core object creates the analyzer in Init and calls StartThread at once. In Shutdown it
//   calls RequestStop and JoinThread before the capture engine, whose feed buffers
//   and packet lock every tick uses, is deleted; then it deletes the analyzer.
// - The analyzer thread is the only writer of every array and counter, and holds m_cs around
//   each job. Lock order: m_cs, then the capture engine's packet lock (held only for one
//   ReadFeed).
// - The host's threads read the shared arrays (SharedArray, CPeakHistory below) one element at
//   a time through the core's getters, without a lock: every access to them, on either side, is
//   atomic, so a read yields an element's old or new value. The thread keeps the displayed
//   spectra and peaks in private working copies (m_vecShown*), where its loops vectorise, and
//   publishes each job's result into the shared arrays with relaxed stores.
// - The private arrays (std::span over one block owned by the analyzer) are touched only by
//   the analyzer thread, or by a caller of the jobs while no thread runs (tests, benchmarks).
//
// Settings are read from the core (g_pCore) with one atomic load per side per tick.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "analysis/PeakHistory.h"
#include "zqPlatform.h"

class CAudioSharedMem;

class CAudioAnalyzer {
public:
    static constexpr int kBlockSamples = 480;       // one side's samples per tick: 10 ms at 48 kHz
    static constexpr int kSampleHistory = 4800;     // the last ten blocks, newest first
    static constexpr int kPeakHistory = 4800;       // waveform peaks, newest tick first
    static constexpr int kSpectrumLength = 4096;    // transform length, spectrum array length
    static constexpr int kHistoryRows = 10;         // spectrum history rows of kSpectrumLength
    static constexpr int kStatisticRows = 8;        // rows the statistic views look at
    static constexpr int kStatisticTicks = 8;       // the statistic views run every 8th tick

    using SharedArray = std::span<std::atomic<float>>;

    CAudioAnalyzer();
    // Closes the shutdown event. A thread still running (Shutdown not called) is stopped and
    // joined first, so that it never outlives the arrays.
    ~CAudioAnalyzer();
    CAudioAnalyzer(const CAudioAnalyzer&) = delete;
    CAudioAnalyzer& operator=(const CAudioAnalyzer&) = delete;

    // Starts the analyzer thread; true also when it already runs. On failure the reason goes to
    // the debug output and false is returned.
    bool StartThread();
    // Asks the thread to leave its loop: sets m_hShutdownEvent. Any thread.
    void RequestStop();
    // Waits until the thread started last has returned (the caller asks it to stop first);
    // returns at once when none was started. Host's thread.
    void JoinThread();
    static DWORD WINAPI AnalyzerThreadProc(LPVOID pParam);

    // The jobs; on the analyzer thread, under m_cs.
    void AnalyzeInput();
    void AnalyzeOutput();
    void DecaySpectrum();
    void ResetSpectrumPeaks();

    // The spectrum's steps, on arrays of kSpectrumLength floats. ComputeFFT and ComputePower
    // throw std::invalid_argument ("Invalid argument") for a null pointer; pIn must not
    // overlap pRe or pIm.
    void ApplyWindow(int nFunction, float* pData);
    void ComputeFFT(const float* pIn, float* pRe, float* pIm);
    void ComputePower(const float* pRe, const float* pIm, float* pPower);

    // Row r (0 newest .. 9 oldest) of a side's spectrum history.
    std::span<const float> HistoryRowIn(int nRow) const { return HistoryRow(m_vecHistoryIn, m_nHistoryNewestIn, nRow); }
    std::span<const float> HistoryRowOut(int nRow) const { return HistoryRow(m_vecHistoryOut, m_nHistoryNewestOut, nRow); }

    // ---- members, input side then output side ----
    // The running thread. The thread itself closes it and clears it as it ends (the one hand-off
    // an owner cannot make), so it stays a plain handle.
    std::atomic<HANDLE> m_hThread;
    std::span<float> m_vecSamplesIn;         // 4800: sample history, newest block first
    CPeakHistory m_vecDataPeakIn;            // 4800: waveform peaks (GetDataPeakIn)
    std::span<float> m_vecWindowedIn;        // 4096: transform input after the window
    std::span<float> m_vecReIn;              // 4096: real parts
    std::span<float> m_vecImIn;              // 4096: imaginary parts
    std::span<float> m_vecPowerIn;           // 4096: power of bins 0 .. 2047, zeros above
    std::span<float> m_vecHistoryIn;         // 10 x 4096: spectrum history (rows rotate, see below)
    SharedArray m_vecSpectrumAmpIn;          // 4096: displayed spectrum (GetSpectrumAmpIn)
    SharedArray m_vecSpectrumAmpPeakIn;      // 4096: its peaks (GetSpectrumAmpPeakIn)
    SharedArray m_vecSpectrumAmpPeakOut;     // 4096: output side's peaks (GetSpectrumAmpPeakOut)
    int32_t m_nStatTicksIn;                  // ticks since the statistic views last ran
    std::span<float> m_vecSamplesOut;
    CPeakHistory m_vecDataPeakOut;
    std::span<float> m_vecWindowedOut;
    std::span<float> m_vecReOut;
    std::span<float> m_vecImOut;
    std::span<float> m_vecPowerOut;
    std::span<float> m_vecHistoryOut;
    SharedArray m_vecSpectrumAmpOut;
    int32_t m_nStatTicksOut;
    std::span<float> m_vecWaveScratch;       // 480: one tick's new waveform peaks
    Concurrency::critical_section m_cs;      // held by the thread around each job

    // The thread's working copies of the four shared spectrum arrays (4096 each), published
    // into them at the end of every job. A caller of the jobs sets displayed values here.
    std::span<float> m_vecShownIn;
    std::span<float> m_vecShownOut;
    std::span<float> m_vecShownPeakIn;
    std::span<float> m_vecShownPeakOut;

    // The spectrum history's rows rotate instead of moving 160 KiB per tick: the newest row is
    // physical row m_nHistoryNewest*, the next older one follows it (modulo 10).
    int m_nHistoryNewestIn;
    int m_nHistoryNewestOut;

    // Observation: set once the thread's timers are set (false again when it ends), and the
    // number of each job the thread has served; incremented (release) after the job.
    std::atomic<bool> m_bTimersSet;
    std::atomic<uint32_t> m_nTicksServed;
    std::atomic<uint32_t> m_nDecaysServed;
    std::atomic<uint32_t> m_nResetsServed;

private:
    struct Side;
    Side InputSide();
    Side OutputSide();
    void AnalyzeSide(const Side& side);
    void UpdateWaveformPeaks(const Side& side, const float* block);
    void UpdateHistory(const Side& side);
    void UpdateDisplay(const Side& side, uint32_t dwView);
    void HoldView(const Side& side);
    void StatisticView(const Side& side, uint32_t dwView);
    void ThreadLoop();
    static std::span<const float> HistoryRow(std::span<const float> history, int newest, int nRow);

    float* m_pBlock;          // every private array: one allocation, see the constructor
    std::unique_ptr<std::atomic<float>[]> m_pSharedBlock;  // every SharedArray, with the same gaps
    UniqueHandle m_hShutdownEvent;  // auto-reset; setting it ends the thread
    UniqueHandle m_hThreadJoin;     // a second handle on the thread started last, for JoinThread
    std::span<float> m_vecStatMax;  // 4096 each: the statistic views' running maximum and minimum
    std::span<float> m_vecStatMin;
};
