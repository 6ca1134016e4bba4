// The monitoring path's depth controller: how much sound waits for the speaker, and the rate
// correction that holds it there. The rate control stage (MonitorRateControl.h) feeds it and
// applies what it decides; it does no audio work itself, so tests drive it with times and
// depths alone.
//
// What it measures. At each refill the render thread reports the frames its device still holds
// and those queued for it. That depth is a sawtooth: a capture packet adds a period at once, the
// device takes it away bit by bit, and where the refill falls between two packets moves with
// the clocks' drift and with every late wake-up of either thread. Acting on it as it stands
// turns each such move into pitch. So the controller adds to it the time since the last packet
// queued was complete at the microphone (its capture stamp, so a capture thread woken late
// changes nothing), in frames played meanwhile: the depth as it was when that packet came in,
// which stays put however the two threads' wake-ups fall. A render thread woken late still
// finds it deeper by its lateness, never shallower, so each window of kWindowSeconds gives its
// smallest value; those are low-passed (kFilterSeconds) and held at a target by a PI controller.
//
// What it aims at. The depth at a refill must cover the device period that follows, or the
// device runs dry. It is lowest at refills that come longest after a packet, so the target is
// one device period, plus the packet structure, plus a cushion:
// - the packet structure: the most a refill has found the depth below the held depth at
//   arrival. While the two devices' periods keep their phase that is the time from a packet to
//   the next refill; where a packet is still missing at a refill (its capture thread woken
//   late) it is a packet more, and it is raised at once; it comes back by
//   kStructureDecayMsPerSecond once it has not recurred for kStructureHoldSeconds. Once the
//   phase is seen to move (by more than kPhaseMovedMs at each window's earliest refill: the
//   clocks drift apart; less is the scheduler's noise on a real clock), a refill can come up
//   to a whole packet after the last one, so it is at least a packet.
// - the cushion: kInitialCushionMs for what nothing foresees; kCushionStepMs more each time the
//   device is found run dry, up to kMaxCushionMs; back towards the initial one with a time
//   constant of kCushionShrinkSeconds, over each kQuietSeconds in which the device never ran
//   dry and less than half the cushion was ever used. So a loaded machine ends up with a few ms
//   more latency and no dropouts, and an idle one keeps the lowest latency.
//
// How it corrects. The PI controller (kProportionalPpmPerMs, kIntegralPpmPerMsSecond: natural
// frequency 0.95 rad/s, a period of about 6.6 s, damping 0.84, so a clock 1000 ppm off is held
// within 100 ppm 5 s after start; the window and the filter's 0.2 s sit well inside it) gives
// the correction in ppm of the frames passed on. In steady state the integral
// holds the clocks' difference and the proportional part only what the filtered depth still
// wanders. A new target (more structure, a bigger cushion) is reached by a feed-forward part
// (kFeedForwardPpmPerMs of what is still to move; at most kSettleFeedForwardPpm for
// kSettleSeconds after the last resynchronisation, while a step of the measure beyond
// kMeasureStepMs a window moves the reference with it, and kSteadyFeedForwardPpm from then on,
// so that steady state hears nothing of it),
// and the PI's reference follows the target by what that part has moved, so a target step
// winds up no integral. The sum is bounded at
// kMaxCorrectionPpm and moves by at most kMaxSlewPpmPerSecond of output.
//
// Start-up and dropouts. At the first refill, and at every refill for kStartingSeconds after
// it (while the phase of the two devices shows itself), whatever the capture delivered beyond
// the target is dropped and what it falls short of is made up with silence ahead of the sound
// (the device would play silence meanwhile anyway): nothing drains or fills at a changed pitch. The same at a refill that finds the device run dry (a render thread held up): the
// listener has heard a gap already, and the backlog the capture built meanwhile is dropped
// rather than played late for seconds, or the gap is made up to the new target at once.
//
// Threads: the render thread calls OnRefill, the capture thread OnPacket, both under the
// capture engine's packet lock, so the state needs no atomics. Nothing allocates.
#pragma once

#include <cstddef>
#include <cstdint>

class CMonitorDepthControl {
public:
    static constexpr double kMaxCorrectionPpm = 2000.0;      // 0.2 %: 3.5 cents
    static constexpr double kMaxSlewPpmPerSecond = 900.0;    // under 100 ppm per 100 ms of output
    static constexpr double kProportionalPpmPerMs = 1600.0;
    static constexpr double kIntegralPpmPerMsSecond = 900.0;
    static constexpr double kFeedForwardPpmPerMs = 1000.0;
    static constexpr double kSettleFeedForwardPpm = 1000.0;  // for kSettleSeconds after a resync
    static constexpr double kSteadyFeedForwardPpm = 30.0;    // from then on
    static constexpr double kSettleSeconds = 5.0;
    static constexpr double kStartingSeconds = 0.25;  // resynchronised at every refill
    // A change of the filtered depth in one window beyond what clocks and corrections could
    // make (2 ms/s at most, 0.2 ms a window) is the measure's own, while settling.
    static constexpr double kMeasureStepMs = 0.5;
    static constexpr double kWindowSeconds = 0.1;
    static constexpr double kFilterSeconds = 0.2;
    static constexpr double kInitialCushionMs = 1.0;
    static constexpr double kCushionStepMs = 2.0;
    static constexpr double kMaxCushionMs = 20.0;
    static constexpr double kCushionShrinkSeconds = 30.0;
    static constexpr double kQuietSeconds = 10.0;
    static constexpr double kPhaseMovedMs = 1.0;
    static constexpr double kStructureDecayMsPerSecond = 0.1;
    static constexpr double kStructureHoldSeconds = 60.0;
    static constexpr double kStructureRecurMs = 0.5;  // a wait this close to the longest renews it
    // Packets since the last one beyond which the capture counts as stopped, not late.
    static constexpr double kStalledPackets = 2.0;
    // Frames a device may take beyond what it was given before it counts as run dry: the
    // rounding of the times at which the two threads read the clock.
    static constexpr double kDryToleranceFrames = 2.0;
    // Times are seconds of a counter that may have run for days: a window of whole periods must
    // close at the same refill however the subtraction rounds.
    static constexpr double kTimeTolerance = 1e-4;

    // renderRate: the render device's frames per second; periodFrames: its device period.
    CMonitorDepthControl(uint32_t renderRate, uint32_t periodFrames);

    // What a refill is to do before it moves queued frames into the device.
    struct Refill {
        size_t dropFrames = 0;     // drop these from the oldest end of the queue
        size_t silenceFrames = 0;  // write this much silence ahead of the queued frames
        bool hold = false;         // move nothing this time (nothing has come, or it stopped)
    };
    // Render thread, at each refill at time now (seconds, any origin, the same clock as
    // OnPacket's): devicePadding frames still in the device, queued frames waiting for it.
    Refill OnRefill(double now, size_t devicePadding, size_t queued);
    // Capture thread: a packet of packetSeconds of audio, complete at the microphone at time
    // complete (its capture stamp, or the time it is queued), is queued now. Returns the
    // correction to pass it on with, in ppm (positive: more frames than came in).
    double OnPacket(double complete, double packetSeconds);

    double CorrectionPpm() const { return m_dCorrectionPpm; }
    double CushionMs() const { return m_dCushionMs; }
    // The depth at arrival aimed at, and the filtered one, in ms of the render device.
    double TargetMs() const;
    double FilteredDepthMs() const { return m_dFilteredFrames * 1000.0 / m_dRate; }
    // Refills that found the device run dry, and frames dropped at start-up and after those.
    uint64_t DryRefills() const { return m_nDryRefills; }
    uint64_t DroppedFrames() const { return m_nDroppedFrames; }

private:
    double TargetFrames() const;
    void TrackStructure(double now, double below);
    void TrackPhase(double windowMinWaited);
    void StartWindow(double now);
    void AdaptCushion(double now, double marginFrames);

    const double m_dRate;
    const double m_dPeriodFrames;

    // Capture side.
    bool m_bQueued = false;
    double m_dLastQueued = 0.0;
    double m_dPacketSeconds = 0.01;

    // Render side.
    bool m_bStarted = false;
    bool m_bResync = true;  // the next refills keep the target and drop the rest (start-up, run dry)
    double m_dStartingUntil = 0.0;
    double m_dLastRefill = 0.0;
    double m_dLastDepth = 0.0;  // frames the last refill left for the device (after its drop)
    double m_dFilteredFrames = 0.0;
    double m_dWindowStart = 0.0;  // the current window of refills, and its smallest depth at arrival
    double m_dWindowMinFrames = 1e300;
    double m_dWindowMinWaited = 1e300;
    double m_dWaitMax = 0.0;  // seconds a refill found the depth below the depth at arrival, most
    double m_dWaitMaxSeen = 0.0;  // when a wait that long last came
    double m_dPhaseMin = 1.0;  // the waits at each window's earliest refill, fewest and most
    double m_dPhaseMax = 0.0;
    bool m_bPhaseMoved = false;
    double m_dCushionMs = kInitialCushionMs;
    double m_dQuietSince = 0.0;        // start of the current quiet window
    double m_dQuietMinMargin = 1e300;  // frames above the device period, fewest in the window
    bool m_bDryInWindow = false;
    uint64_t m_nDryRefills = 0;
    uint64_t m_nDroppedFrames = 0;

    // The controller.
    double m_dIntegralPpm = 0.0;
    double m_dReferenceMs = 0.0;  // where the PI holds the depth: the target, or on its way there
    double m_dResyncedAt = 0.0;   // the last start-up or resynchronisation
    double m_dCorrectionPpm = 0.0;
};
