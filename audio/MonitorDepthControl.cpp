// The monitoring path's depth controller: see MonitorDepthControl.h.
#include "audio/MonitorDepthControl.h"

#include <algorithm>
#include <cmath>

CMonitorDepthControl::CMonitorDepthControl(uint32_t renderRate, uint32_t periodFrames)
    : m_dRate(renderRate), m_dPeriodFrames(periodFrames) {}

double CMonitorDepthControl::TargetFrames() const {
    double structure = m_dWaitMax;
    if (m_bPhaseMoved) structure = std::max(structure, m_dPacketSeconds);
    return m_dPeriodFrames + (structure + m_dCushionMs / 1000.0) * m_dRate;
}

double CMonitorDepthControl::TargetMs() const { return TargetFrames() * 1000.0 / m_dRate; }

void CMonitorDepthControl::TrackStructure(double now, double below) {
    if (!m_bStarted) {
        m_dWaitMax = below;
        m_dWaitMaxSeen = now;
        return;
    }
    // A long wait (a missing packet) is remembered, and forgotten slowly once it has not come
    // back for kStructureHoldSeconds (a decay that every recurrence undid would keep the target,
    // and with it the pitch, moving); once the phase has moved, TargetFrames keeps a whole
    // packet whatever it decays to.
    if (below >= m_dWaitMax - kStructureRecurMs / 1000.0) m_dWaitMaxSeen = now;
    if (now - m_dWaitMaxSeen > kStructureHoldSeconds)
        m_dWaitMax -= kStructureDecayMsPerSecond / 1000.0 * (now - m_dLastRefill);
    m_dWaitMax = std::max(below, m_dWaitMax);
}

void CMonitorDepthControl::TrackPhase(double windowMinWaited) {
    // The wait at the window's earliest refill: the phase between the two threads' periods,
    // without the render thread's late wake-ups. When it moves, the clocks drift apart.
    if (m_dPhaseMin > m_dPhaseMax) {
        m_dPhaseMin = m_dPhaseMax = windowMinWaited;
        return;
    }
    m_dPhaseMin = std::min(m_dPhaseMin, windowMinWaited);
    m_dPhaseMax = std::max(m_dPhaseMax, windowMinWaited);
    if (m_dPhaseMax - m_dPhaseMin > kPhaseMovedMs / 1000.0) m_bPhaseMoved = true;
}

void CMonitorDepthControl::StartWindow(double now) {
    m_dWindowStart = now;
    m_dWindowMinFrames = 1e300;
    m_dWindowMinWaited = 1e300;
}

void CMonitorDepthControl::AdaptCushion(double now, double marginFrames) {
    m_dQuietMinMargin = std::min(m_dQuietMinMargin, marginFrames);
    if (now - m_dQuietSince < kQuietSeconds - kTimeTolerance) return;
    const double cushionFrames = m_dCushionMs / 1000.0 * m_dRate;
    if (!m_bDryInWindow && m_dQuietMinMargin >= cushionFrames / 2) {
        const double shrink = std::exp(-(now - m_dQuietSince) / kCushionShrinkSeconds);
        m_dCushionMs = kInitialCushionMs + (m_dCushionMs - kInitialCushionMs) * shrink;
    }
    m_dQuietSince = now;
    m_dQuietMinMargin = 1e300;
    m_bDryInWindow = false;
}

CMonitorDepthControl::Refill CMonitorDepthControl::OnRefill(double now, size_t devicePadding, size_t queued) {
    if (!m_bQueued) return Refill{0, true};  // nothing has come yet: nothing to measure or play
    const double waited = std::max(0.0, now - m_dLastQueued);
    const double waitedFrames = waited * m_dRate;
    double depth = static_cast<double>(devicePadding + queued);
    // Run dry: the device has nothing left, and took more since the last refill than it was
    // given then (a device that took exactly what it had has not missed anything yet).
    // Once: the refills that follow, until the resynchronisation is done, count no more.
    const bool dry = m_bStarted && !m_bResync && devicePadding == 0 &&
                     m_dLastDepth + kDryToleranceFrames < (now - m_dLastRefill) * m_dRate;
    if (dry) {
        ++m_nDryRefills;
        m_bDryInWindow = true;
        m_bResync = true;
        m_dCushionMs = std::min(kMaxCushionMs, m_dCushionMs + kCushionStepMs);
    }
    // Beyond two packets since the last one, the capture has stopped (a device reopened, a
    // stream restarted) rather than come late: nothing is measured then, and a
    // resynchronisation waits for packets to come again.
    if (waited > kStalledPackets * m_dPacketSeconds) {
        m_dLastRefill = now;
        m_dLastDepth = depth;
        return Refill{0, m_bResync};
    }
    // How far below the held depth at arrival this refill finds the depth: the time since the
    // last packet at a refill on time, a packet more where one is missing, and no more where
    // the render thread is late (it finds the depth at arrival deeper by as much as it waited).
    const double below = m_bResync ? waited : (m_dFilteredFrames - depth) / m_dRate;
    TrackStructure(now, std::clamp(below, 0.0, kStalledPackets * m_dPacketSeconds));

    Refill refill;
    // The first refills after the start all keep the target, so that a target the first packets
    // and refills have not shown yet (their phase) is met before much is heard, not by pitch.
    if (m_bResync || now < m_dStartingUntil) {
        // Keep what the target asks for at this point between two packets: drop the rest, or
        // make up what is missing with silence ahead of the sound (the device would play
        // silence meanwhile anyway, and the sound then starts at the target's latency).
        const double keep = std::max(TargetFrames() - waitedFrames, static_cast<double>(devicePadding));
        if (depth > keep) refill.dropFrames = std::min(queued, static_cast<size_t>(depth - keep));
        if (depth < keep) refill.silenceFrames = static_cast<size_t>(std::lround(keep - depth));
        depth += static_cast<double>(refill.silenceFrames) - static_cast<double>(refill.dropFrames);
        m_nDroppedFrames += refill.dropFrames;
        m_dFilteredFrames = depth + waitedFrames;
        m_dReferenceMs = TargetMs();  // there already: nothing left to move by pitch
        m_dResyncedAt = now;
        if (!m_bStarted) {
            m_dQuietSince = now;
            m_dStartingUntil = now + kStartingSeconds;
        }
        m_bStarted = true;
        m_bResync = false;
        StartWindow(now);
    } else {
        // A late render thread finds the depth at arrival too deep by its lateness, never too
        // shallow: the smallest of a window's refills is the one woken on time.
        m_dWindowMinFrames = std::min(m_dWindowMinFrames, depth + waitedFrames);
        m_dWindowMinWaited = std::min(m_dWindowMinWaited, waited);
        if (now - m_dWindowStart >= kWindowSeconds - kTimeTolerance) {
            const double alpha = std::min(1.0, (now - m_dWindowStart) / kFilterSeconds);
            const double step = alpha * (m_dWindowMinFrames - m_dFilteredFrames);
            m_dFilteredFrames += step;
            // While settling, a depth that moves faster than any clock or correction could move
            // it is a measure that changed (a backend whose depth includes what its server holds
            // once the server has said so), not sound that came or went: the reference moves
            // with it, so the feedback does not pull against the feed-forward.
            const double stepMs = step * 1000.0 / m_dRate;
            if (now - m_dResyncedAt < kSettleSeconds && std::fabs(stepMs) > kMeasureStepMs) m_dReferenceMs += stepMs;
            TrackPhase(m_dWindowMinWaited);
            StartWindow(now);
        }
    }
    m_dLastRefill = now;
    m_dLastDepth = depth;
    AdaptCushion(now, depth - m_dPeriodFrames);
    return refill;
}

double CMonitorDepthControl::OnPacket(double complete, double packetSeconds) {
    m_bQueued = true;
    m_dLastQueued = complete;
    if (packetSeconds > 0.0) m_dPacketSeconds = packetSeconds;
    if (!m_bStarted) return m_dCorrectionPpm;

    // The reference the PI holds the depth at follows the target through the feed-forward part
    // alone, by what that part has moved the depth, so a new target winds up no integral.
    // Right after a resynchronisation the target is reached briskly; later, in steady state,
    // gently, so that a changed target is not heard.
    const double pendingMs = TargetMs() - m_dReferenceMs;
    const double reach = complete - m_dResyncedAt < kSettleSeconds ? kSettleFeedForwardPpm : kSteadyFeedForwardPpm;
    const double feedForward = std::clamp(pendingMs * kFeedForwardPpmPerMs, -reach, reach);
    const double errorMs = FilteredDepthMs() - m_dReferenceMs;
    const double step = kMaxSlewPpmPerSecond * packetSeconds;
    const auto limit = [&](double ppm) {
        return std::clamp(std::clamp(ppm, -kMaxCorrectionPpm, kMaxCorrectionPpm), m_dCorrectionPpm - step,
                          m_dCorrectionPpm + step);
    };
    // Too deep: fewer frames (a negative correction), and the other way round.
    const double integral = m_dIntegralPpm + kIntegralPpmPerMsSecond * errorMs * packetSeconds;
    const double feedback = -(kProportionalPpmPerMs * errorMs + integral);
    const double wanted = feedback + feedForward;
    const double applied = limit(wanted);
    // The integral winds on only while the output follows it, or while it works back from a limit.
    if (applied == wanted || std::fabs(integral) < std::fabs(m_dIntegralPpm)) m_dIntegralPpm = integral;
    // What the feed-forward part got of the output, in its own direction, moves the reference:
    // 1 ppm for a second adds a microsecond of depth.
    const double moved = feedForward >= 0 ? std::clamp(applied - feedback, 0.0, feedForward)
                                          : std::clamp(applied - feedback, feedForward, 0.0);
    m_dReferenceMs += moved * packetSeconds * 1e-3;
    m_dCorrectionPpm = applied;
    return applied;
}
