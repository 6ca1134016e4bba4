// The fault matrix: every platform call on the paths of Init, Refresh, RebuildRender and Start,
// failed once in turn (each call of each kind, counted along the path), with the streams ticking
// after the phase so that a stream thread meets whatever the failed open left behind. For each
// failure: nothing crashes, the failure is told (the log or the debug output carries its code),
// the next attempt brings the whole chain back (microphone found and named, devices listed,
// sound from the microphone reaching the speaker), and after Shutdown nothing is left open.
//
// The same matrix runs on the virtual engine (tests/devices) and on the pulse backend against
// the test server (tests/pulse); a rig says what differs: how streams tick, how sound is heard,
// what the machine lists.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "log_recorder.h"
#include "message_window.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/debug_output.h"

namespace zqtest {

enum class FaultPhase { Init, Refresh, RebuildRender, Start };

struct FaultMatrixRig {
    // What every case uses; the core is made anew for each case.
    LogRecorder* recorder = nullptr;
    MessageWindow* window = nullptr;
    zqvm::DebugOutputRecorder* debugOutput = nullptr;
    std::unique_ptr<CZQCoreAudio>* core = nullptr;
    // A few device periods of the streams; when the microphone streams, until its thread has
    // had packets.
    std::function<void()> tick;
    // Whether sound from the microphone reaches the speaker now.
    std::function<bool()> soundFlows;
    // What the machine lists when all is well.
    unsigned captureDevices = 0;
    unsigned renderDevices = 0;
    unsigned firmware = 0;
    std::wstring friendlyName;
    // What is open before any case (engine objects, kernel handles).
    long baselineObjects = 0;
    size_t baselineHandles = 0;
};

// A rig over a fixture's own recorder, window, debug output and core; the rest is the machine's.
FaultMatrixRig RigOver(LogRecorder& recorder, MessageWindow& window, zqvm::DebugOutputRecorder& debugOutput,
                       std::unique_ptr<CZQCoreAudio>& core, std::function<void()> tick,
                       std::function<bool()> soundFlows);

// Runs every case of a phase; the number of failure cases that happened (expected above 0).
int RunFaultPhase(const FaultMatrixRig& rig, FaultPhase phase);

}  // namespace zqtest
