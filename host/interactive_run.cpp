// The live run: the host pumps its messages, draws about 25 times a second, and acts on keys.
#include <algorithm>

#include "host_actions.h"
#include "host_session.h"
#include "run_modes.h"
#include "terminal_view.h"
#include "zqplatform/vm/debug_output.h"

namespace zqhost {
namespace {

constexpr DWORD kFrameMs = 40;
constexpr float kVolumeStep = 0.05f;
constexpr size_t kEventLines = 4;
const int kSpectrumViews[] = {0x1, 0x2, 0x4, 0x8, 0x0};

void AddEvent(ViewState& state, HostSession& session, const std::string& text) {
    char stamp[16];
    std::snprintf(stamp, sizeof stamp, "%7.2f s  ", session.Seconds());
    state.events.push_back(stamp + text);
    while (state.events.size() > kEventLines) state.events.pop_front();
}

int NextView(int view) {
    const int count = static_cast<int>(std::size(kSpectrumViews));
    for (int i = 0; i < count; ++i) {
        if (kSpectrumViews[i] == view) return kSpectrumViews[(i + 1) % count];
    }
    return kSpectrumViews[0];
}

// Acts on one key; false for quit.
bool OnKey(int key, HostSession& session, SimulatedMicrophone& microphone, const Options& options, ViewState& state) {
    CZQCoreAudio& core = session.Core();
    ScheduledAction action;
    switch (key) {
        case 'q':
        case 'Q':
        case 27:  // Escape
            return false;
        case 'b': core.SetBypass(!core.IsBypass()); break;
        case 'm': core.MuteRender(!core.IsRenderMute()); break;
        case '+':
        case '=': session.SetRenderVolume(std::min(1.0f, session.ShownVolume() + kVolumeStep)); break;
        case '-': session.SetRenderVolume(std::max(0.0f, session.ShownVolume() - kVolumeStep)); break;
        case 'w': core.SetWhichFunction((core.GetWhichFunction() + 1) % 10); break;
        case 'v': core.SetSpectrumView(static_cast<DWORD>(NextView(core.GetSpectrumView()))); break;
        case 'u':
        case 'r': {
            action.kind = key == 'r'                    ? ScheduledAction::Kind::SwitchRender
                          : microphone.IsUnplugged()    ? ScheduledAction::Kind::Replug
                                                        : ScheduledAction::Kind::Unplug;
            const ActionResult result = Perform(action, session, microphone, options.microphoneSerial);
            AddEvent(state, session, result.text);
            state.microphoneUnplugged = microphone.IsUnplugged();
            break;
        }
        default: break;
    }
    return true;
}

}  // namespace

int RunInteractive(const Options& options, const std::string& machineName) {
    // The library's debug output would write over the display: kept, not echoed.
    zqvm::DebugOutputRecorder debugOutput(false);
    HostSession session;
    std::string error;
    if (!session.Open(options.logPath, &error)) {
        std::fprintf(stderr, "zqmonitor: %s\n", error.c_str());
        return 1;
    }
    SimulatedMicrophone microphone;
    ViewState state;
    state.machine = machineName;
    size_t messagesShown = 0;
    {
        TerminalView view;
        for (bool running = true; running && !g_stopRequested.load(std::memory_order_relaxed);) {
            session.Pump(kFrameMs);
            const auto& messages = session.Messages();
            for (; messagesShown < messages.size(); ++messagesShown) {
                const ReceivedMessage& m = messages[messagesShown];
                std::string text = MessageName(m.message);
                if (m.message == WM_SESSION_VOLUME_CHANGED) {
                    char volume[48];
                    std::snprintf(volume, sizeof volume, " volume %.2f%s", static_cast<double>(m.volume),
                                  m.mute ? " muted" : "");
                    text += volume;
                } else {
                    text += " wParam " + std::to_string(m.wParam) + (m.serial.empty() ? "" : " " + m.serial);
                }
                AddEvent(state, session, text);
            }
            for (int key = view.ReadKey(); key != -1 && running; key = view.ReadKey()) {
                running = OnKey(key, session, microphone, options, state);
            }
            view.Draw(session, state);
        }
    }
    session.Close();
    return 0;
}

}  // namespace zqhost
