// Drawing the host's live display with ncurses: state line, device lists, meters, the input
// and output spectra (log-frequency bars in dB with the analyzer's peaks), the waveform-peak
// strips and the latest events. Reads the core's getters; changes nothing.
#pragma once

#include <deque>
#include <string>

#include "host_session.h"

namespace zqhost {

struct ViewState {
    std::string machine;
    bool microphoneUnplugged = false;
    std::deque<std::string> events;  // newest last
};

class TerminalView {
public:
    TerminalView();   // initialises the terminal
    ~TerminalView();  // gives it back
    TerminalView(const TerminalView&) = delete;
    TerminalView& operator=(const TerminalView&) = delete;

    // A key, or -1 when none was pressed.
    int ReadKey();
    void Draw(HostSession& session, const ViewState& state);

private:
    int Header(HostSession& session, const ViewState& state, int row);
    int Meters(CZQCoreAudio& core, int row);
    int Spectra(CZQCoreAudio& core, int row, int height);
    int Strips(CZQCoreAudio& core, int row);
    void Footer(const ViewState& state, int row);

    bool m_unicode = false;  // block characters when the terminal speaks UTF-8
};

const char* WindowFunctionName(int function);
const char* SpectrumViewName(int view);

}  // namespace zqhost
