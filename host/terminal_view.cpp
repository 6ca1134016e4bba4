#include "terminal_view.h"

#include <curses.h>
#include <langinfo.h>

#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cmath>
#include <cstring>
#include <vector>

#include "readings.h"

namespace zqhost {
namespace {

constexpr double kDbTop = 0.0;      // a full-scale sine without a window
constexpr double kDbBottom = -100.0;
constexpr int kStripValuesPerColumn = 4;  // 40 ms per column at the analyzer's default scale
const char* const kBlocks[] = {" ", "\u2581", "\u2582", "\u2583", "\u2584", "\u2585", "\u2586", "\u2587", "\u2588"};
const char* const kAscii[] = {" ", ".", ".", ":", ":", "=", "=", "#", "#"};

void Line(int row, const std::string& text) {
    move(row, 0);
    clrtoeol();
    addnstr(text.c_str(), static_cast<int>(text.size()));
}

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

std::string Bar(double fraction, int width) {
    const int filled = std::clamp(static_cast<int>(std::lround(fraction * width)), 0, width);
    return "[" + std::string(static_cast<size_t>(filled), '#') + std::string(static_cast<size_t>(width - filled), '-') + "]";
}

double Fraction(double db) { return std::clamp((db - kDbBottom) / (kDbTop - kDbBottom), 0.0, 1.0); }

}  // namespace

const char* WindowFunctionName(int function) {
    static const char* const names[] = {"none",     "triangular", "Hamming",   "Hann",      "Blackman",
                                        "Blackman-Harris", "Welch", "Gauss 2.5", "Gauss 3.5", "Gauss 4.5"};
    return function >= 0 && function <= 9 ? names[function] : "none";
}

const char* SpectrumViewName(int view) {
    if (view & 0x1) return "hold";
    if (view & 0x2) return "half-range";
    if (view & 0x4) return "minimum";
    if (view & 0x8) return "maximum";
    return "decay only";
}

TerminalView::TerminalView() {
    std::setlocale(LC_ALL, "");
    m_unicode = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    initscr();
    cbreak();
    noecho();
    nodelay(stdscr, TRUE);
    keypad(stdscr, TRUE);
    curs_set(0);
}

TerminalView::~TerminalView() { endwin(); }

int TerminalView::ReadKey() {
    const int key = getch();
    return key == ERR ? -1 : key;
}

void TerminalView::Draw(HostSession& session, const ViewState& state) {
    CZQCoreAudio& core = session.Core();
    erase();
    int row = Header(session, state, 0);
    row = Meters(core, row);
    const int fixedBelow = 2 + 1 + 4 + 1;  // strips, axis, events, keys
    const int height = std::max(4, LINES - row - fixedBelow - 1);
    row = Spectra(core, row, height);
    row = Strips(core, row);
    Footer(state, row);
    refresh();
}

int TerminalView::Header(HostSession& session, const ViewState& state, int row) {
    CZQCoreAudio& core = session.Core();
    Line(row++, Format("zqmonitor on %s  %s  bypass %s  mute %s  volume %3.0f%%%s  window %s  view %s",
                       state.machine.c_str(), core.IsStarted() ? "started" : "stopped", core.IsBypass() ? "on" : "off",
                       core.IsRenderMute() ? "on" : "off", static_cast<double>(session.ShownVolume()) * 100.0,
                       session.SessionMute() ? " (session muted)" : "", WindowFunctionName(core.GetWhichFunction()),
                       SpectrumViewName(core.GetSpectrumView())));
    const DeviceLists& d = session.Devices();
    if (d.microphones.empty()) {
        Line(row++, state.microphoneUnplugged ? "Microphones: none (unplugged)" : "Microphones: none found");
    }
    for (size_t i = 0; i < d.microphones.size() && i < 3; ++i) {
        const MicrophoneInfo& m = d.microphones[i];
        Line(row++, Format("Mic %s  SN %s  %s  API %d FW 0x%02X  %s", m.friendlyName.empty() ? "?" : m.friendlyName.c_str(),
                           m.serial.c_str(), m.product.c_str(), m.api, m.fw,
                           m.endpointName.empty() ? "(no endpoint)" : m.endpointName.c_str()));
    }
    std::string render = "Render:";
    for (size_t i = 0; i < d.render.size(); ++i) render += (i == 0 ? " " : " | ") + d.render[i];
    Line(row++, render);
    std::string capture = "Capture:";
    for (size_t i = 0; i < d.capture.size(); ++i) capture += (i == 0 ? " " : " | ") + d.capture[i].name;
    Line(row++, d.capture.empty() ? "Capture: none" : capture);
    return row;
}

int TerminalView::Meters(CZQCoreAudio& core, int row) {
    const Levels now = ReadLevels(core);
    const int width = std::max(10, COLS - 30);
    Line(row++, Format("Capture %s %5.1f%% %6.1f dBFS", Bar(now.capturePercent / 100.0, width).c_str(),
                       static_cast<double>(now.capturePercent), PeakDbfs(now.captureLinear)));
    Line(row++, Format("Render  %s %5.1f%% %6.1f dBFS", Bar(now.renderPercent / 100.0, width).c_str(),
                       static_cast<double>(now.renderPercent), PeakDbfs(now.renderLinear)));
    return row;
}

int TerminalView::Spectra(CZQCoreAudio& core, int row, int height) {
    const int paneWidth = std::max(10, (COLS - 3) / 2);
    struct Side {
        const char* title;
        int column;
        float (CZQCoreAudio::*amp)(int);
        float (CZQCoreAudio::*peak)(int);
    };
    const Side sides[] = {{"Input spectrum", 0, &CZQCoreAudio::GetSpectrumAmpIn, &CZQCoreAudio::GetSpectrumAmpPeakIn},
                          {"Output spectrum", paneWidth + 3, &CZQCoreAudio::GetSpectrumAmpOut,
                           &CZQCoreAudio::GetSpectrumAmpPeakOut}};
    move(row, 0);
    clrtoeol();
    for (const Side& side : sides) {
        const StrongestBin s = FindStrongest([&](int k) { return (core.*side.amp)(k); });
        mvaddstr(row, side.column,
                 (s.bin < 0 ? std::string(side.title) + "  silent"
                            : Format("%s  %.0f Hz %.1f dB", side.title, s.hz, s.db)).c_str());
    }
    ++row;
    for (const Side& side : sides) {
        std::vector<double> bars(static_cast<size_t>(paneWidth)), peaks(static_cast<size_t>(paneWidth));
        LogBands([&](int k) { return (core.*side.amp)(k); }, paneWidth,
                 [&](int i, float p) { bars[static_cast<size_t>(i)] = Fraction(PowerDb(p)) * height; });
        LogBands([&](int k) { return (core.*side.peak)(k); }, paneWidth,
                 [&](int i, float p) { peaks[static_cast<size_t>(i)] = Fraction(PowerDb(p)) * height; });
        for (int x = 0; x < paneWidth; ++x) {
            const double bar = bars[static_cast<size_t>(x)];
            const int peakRow = static_cast<int>(std::ceil(peaks[static_cast<size_t>(x)]));
            for (int y = 0; y < height; ++y) {
                const int fromBottom = height - 1 - y;  // 0: the lowest cell
                const double fill = std::clamp(bar - fromBottom, 0.0, 1.0);
                const char* cell = (m_unicode ? kBlocks : kAscii)[static_cast<int>(std::lround(fill * 8))];
                if (fill <= 0.0 && peakRow == fromBottom + 1 && peakRow > 0) cell = "-";
                mvaddstr(row + y, side.column + x, cell);
            }
        }
        // Frequency axis under the bars, at the log positions of the marks.
        const std::pair<double, const char*> marks[] = {{20, "20"}, {100, "100"}, {1000, "1k"}, {10000, "10k"}};
        for (const auto& [hz, label] : marks) {
            const int x = static_cast<int>(std::log(hz / 20.0) / std::log(1000.0) * paneWidth);
            mvaddstr(row + height, side.column + x, label);
        }
    }
    return row + height + 1;
}

int TerminalView::Strips(CZQCoreAudio& core, int row) {
    const int width = std::max(10, COLS - 5);
    const char* const* cells = m_unicode ? kBlocks : kAscii;
    const std::pair<const char*, float (CZQCoreAudio::*)(int, int)> strips[] = {{"In  ", &CZQCoreAudio::GetDataPeakIn},
                                                                               {"Out ", &CZQCoreAudio::GetDataPeakOut}};
    for (const auto& [label, getter] : strips) {
        move(row, 0);
        clrtoeol();
        addstr(label);
        // Newest at the right; each column is the largest of its values.
        for (int x = 0; x < width; ++x) {
            const int first = (width - 1 - x) * kStripValuesPerColumn;
            float value = 0.0f;
            for (int k = 0; k < kStripValuesPerColumn && first + k < 4800; ++k) {
                value = std::max(value, (core.*getter)(first + k, 0));
            }
            addstr(cells[std::clamp(static_cast<int>(std::lround(value * 8)), 0, 8)]);
        }
        ++row;
    }
    return row;
}

void TerminalView::Footer(const ViewState& state, int row) {
    for (const std::string& event : state.events) Line(row++, event);
    Line(std::max(row, LINES - 1),
         "keys: b bypass  m mute  +/- volume  w window  v view  u unplug/replug  r render  q quit");
}

}  // namespace zqhost
