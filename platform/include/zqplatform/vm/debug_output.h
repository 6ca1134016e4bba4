// Observation of the debugger output channel (OutputDebugStringW), for tests and the host.
#pragma once

#include <string>
#include <vector>

#include "zqplatform/export.h"

namespace zqvm {

// Records every text written to the debug output while it lives; several recorders may live at
// once. With echo off, texts are not copied to standard error meanwhile.
class ZQPLATFORM_API DebugOutputRecorder {
public:
    explicit DebugOutputRecorder(bool echoToStderr = false);
    ~DebugOutputRecorder();
    DebugOutputRecorder(const DebugOutputRecorder&) = delete;
    DebugOutputRecorder& operator=(const DebugOutputRecorder&) = delete;

    std::vector<std::wstring> Texts() const;
    void Clear();

    struct State;  // shared with the debug output channel

private:
    State* m_state;
};

}  // namespace zqvm
