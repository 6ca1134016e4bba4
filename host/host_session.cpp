#include "host_session.h"

#include <cstring>

#include "message_loop.h"
#include "text.h"

namespace zqhost {
namespace {

const wchar_t* const kWindowClass = L"zqMonitorWindow";

bool RegisterWindowClass(WNDPROC procedure) {
    static bool registered = false;
    if (registered) return true;
    WNDCLASSEXW wc = {};
    wc.cbSize = sizeof wc;
    wc.lpfnWndProc = procedure;
    wc.lpszClassName = kWindowClass;
    registered = RegisterClassExW(&wc) != 0;
    return registered;
}

std::string Text(const CStringW& text) { return Utf8(text.GetString()); }

}  // namespace

const char* MessageName(UINT message) {
    switch (message) {
        case WM_AUDIO_DEVICE_CHANGED: return "WM_AUDIO_DEVICE_CHANGED";
        case WM_AUDIO_RENDER_CHANGED: return "WM_AUDIO_RENDER_CHANGED";
        case WM_SESSION_VOLUME_CHANGED: return "WM_SESSION_VOLUME_CHANGED";
        default: return "WM_USER+?";
    }
}

HostSession::HostSession() : m_opened(std::chrono::steady_clock::now()) {}

HostSession::~HostSession() { Close(); }

double HostSession::Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_opened).count();
}

bool HostSession::Open(const std::string& logPath, std::string* error) {
    auto fail = [&](const std::string& why) {
        if (error != nullptr) *error = why;
        Close();
        return false;
    };
    m_opened = std::chrono::steady_clock::now();
    const std::wstring widePath = Wide(logPath);
    if (!m_log.OpenFile(L"zqmonitor", widePath.c_str())) return fail("cannot open the log file '" + logPath + "'");
    m_logOpen = true;
    if (!RegisterWindowClass(&HostSession::WindowProcedure)) return fail("RegisterClassExW failed");
    m_hwnd = CreateWindowExW(0, kWindowClass, L"zqmonitor", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, this);
    if (m_hwnd == nullptr) return fail("CreateWindowExW failed");

    m_core = std::make_unique<CZQCoreAudio>();
    m_core->SetLog(&m_log);
    m_core->Init(m_hwnd);
    m_initialised = true;
    m_core->Start();
    m_shownVolume = m_core->GetRenderVol();
    List("init");
    return true;
}

void HostSession::Close() {
    if (m_core) {
        // Shutdown may handle messages sent to our window while it waits for a notification
        // under way; the procedure then only records them.
        if (m_initialised) m_core->Shutdown();
        m_initialised = false;
        m_core.reset();
    }
    if (m_hwnd != nullptr) {
        DestroyWindow(m_hwnd);
        m_hwnd = nullptr;
    }
    if (m_logOpen) {
        m_log.Close();
        m_logOpen = false;
    }
}

LRESULT CALLBACK HostSession::WindowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(create->lpCreateParams));
        return DefWindowProcW(hwnd, message, wParam, lParam);
    }
    auto* self = reinterpret_cast<HostSession*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (self != nullptr && (message == WM_AUDIO_DEVICE_CHANGED || message == WM_AUDIO_RENDER_CHANGED ||
                            message == WM_SESSION_VOLUME_CHANGED)) {
        self->OnMessage(message, wParam, lParam);
        return 0;
    }
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

void HostSession::OnMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    ReceivedMessage received;
    received.seconds = Seconds();
    received.message = message;
    received.wParam = wParam;
    switch (message) {
        case WM_AUDIO_DEVICE_CHANGED:
            // wParam 1: a microphone was removed; lParam names its serial number, a text the
            // library keeps: copied here, never written or freed.
            if (wParam == 1 && lParam != 0) received.serial = Utf8(reinterpret_cast<const wchar_t*>(lParam));
            m_refreshPending = true;
            break;
        case WM_AUDIO_RENDER_CHANGED:
            m_rebuildRenderPending = true;
            break;
        case WM_SESSION_VOLUME_CHANGED: {
            // wParam carries the float's bit pattern in its low 32 bits, lParam the mute state.
            const auto bits = static_cast<uint32_t>(wParam);
            static_assert(sizeof bits == sizeof received.volume);
            std::memcpy(&received.volume, &bits, sizeof bits);
            received.mute = lParam != 0;
            m_shownVolume = received.volume;
            m_sessionMute = received.mute;
            break;
        }
        default:
            break;
    }
    m_messages.push_back(received);
}

void HostSession::Pump(DWORD ms) {
    PumpUntil([this] { return HasWork(); }, ms);
    if (!HasWork()) return;
    // Messages of the same change that are queued already (one WM_AUDIO_RENDER_CHANGED per
    // role) ask for the same work: handled first, they make one rebuild.
    PumpPending();
    DoWork();
}

bool HostSession::Settle(DWORD timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        const bool delivered =
            PumpUntil([this] { return HasWork() || NotificationsDelivered(); }, static_cast<DWORD>(left.count()));
        PumpPending();  // what the last notification posted
        if (HasWork()) {
            DoWork();
            continue;
        }
        if (delivered) return true;
    }
}

void HostSession::DoWork() {
    // The host's answer to each message: the render side rebuilt on a new default render
    // endpoint, the capture side on a changed microphone list; the streams restarted after.
    if (m_rebuildRenderPending) {
        m_rebuildRenderPending = false;
        m_core->RebuildRender();
        m_core->Start();
        m_shownVolume = m_core->GetRenderVol();
        List("rebuild-render");
    }
    if (m_refreshPending) {
        m_refreshPending = false;
        m_core->Refresh();
        m_core->Start();
        List("refresh");
    }
}

void HostSession::SetRenderVolume(float level) {
    m_core->SetRenderVol(level);
    m_shownVolume = m_core->GetRenderVol();
}

void HostSession::List(const char* cause) {
    DeviceLists lists;
    // The notification thread may remove a microphone record (RemoveDevice) at any time: each
    // is copied at once, and one removed after the count was read comes back null and is
    // skipped. The interface has no lock the host could hold over the copy itself.
    const unsigned microphones = m_core->GetHidCaptureDeviceCount();
    for (unsigned i = 0; i < microphones; ++i) {
        CWMAudioDevice* d = m_core->GetHidCaptureDevice(static_cast<int>(i));
        if (d == nullptr) continue;
        MicrophoneInfo info;
        info.serial = Text(d->GetSN());
        info.product = Text(d->GetProduct());
        info.manufacturer = Text(d->GetManufacturer());
        info.friendlyName = Text(d->GetFriendlyName());
        info.endpointName = Text(d->GetName());
        info.api = d->GetVerAPI();
        info.fw = d->GetVerFW();
        lists.microphones.push_back(info);
    }
    // The engines' own lists change only on this thread.
    const unsigned render = m_core->GetRenderDeviceCount();
    for (unsigned i = 0; i < render; ++i) {
        if (CWMAudioDevice* d = m_core->GetRenderDevice(static_cast<int>(i))) lists.render.push_back(Text(d->GetName()));
    }
    const unsigned capture = m_core->GetCaptureDeviceCount();
    for (unsigned i = 0; i < capture; ++i) {
        if (CWMAudioDevice* d = m_core->GetCaptureDevice(static_cast<int>(i))) {
            lists.capture.push_back({Text(d->GetName()), Text(d->GetFriendlyName()), Text(d->GetSN())});
        }
    }
    m_devices = lists;
    m_listings.push_back({Seconds(), cause, capture, static_cast<unsigned>(lists.microphones.size())});
}

}  // namespace zqhost
