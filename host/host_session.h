// The host's side of the library: the core object with its log and its message window, and
// what the host does on the library's window messages.
//
// Everything here runs on the host's thread, the thread that created the window and calls the
// library's lifecycle members; COM is initialised on it first (ComApartment). The window
// procedure only records a message and notes the work it asks for (Refresh, RebuildRender);
// Pump does that work once the procedure has returned. So the library's notification thread,
// which waits in SendMessageW until WM_AUDIO_DEVICE_CHANGED is handled, is not held up while
// Refresh talks to every microphone over its bridge, and a message handled while Shutdown
// drains the notifications never calls back into a core that is shutting down.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "zqCoreAudio.h"

namespace zqhost {

struct MicrophoneInfo {
    std::string serial, product, manufacturer, friendlyName, endpointName;
    int api = 0;
    int fw = 0;
};

struct CaptureDeviceInfo {
    std::string name, friendlyName, serial;
};

// The device lists as the library gave them at the last listing.
struct DeviceLists {
    std::vector<MicrophoneInfo> microphones;
    std::vector<std::string> render;
    std::vector<CaptureDeviceInfo> capture;
};

struct ReceivedMessage {
    double seconds = 0.0;  // since the session opened
    UINT message = 0;
    WPARAM wParam = 0;
    std::string serial;   // WM_AUDIO_DEVICE_CHANGED, wParam 1: the removed microphone
    float volume = 0.0f;  // WM_SESSION_VOLUME_CHANGED
    bool mute = false;    // WM_SESSION_VOLUME_CHANGED
};

// One listing of the devices: when, why, and how many capture devices it found.
struct Listing {
    double seconds = 0.0;
    std::string cause;  // "init", "refresh", "rebuild-render"
    unsigned captureCount = 0;
    unsigned microphoneCount = 0;
};

const char* MessageName(UINT message);

// The host's thread joins COM for its lifetime: a single-threaded apartment, as the user
// interface thread of a Windows host is.
class ComApartment {
public:
    ComApartment() : m_joined(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
    ~ComApartment() {
        if (m_joined) CoUninitialize();
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    bool Joined() const { return m_joined; }

private:
    bool m_joined;
};

class HostSession {
public:
    HostSession();
    ~HostSession();  // closes
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;

    // The log file, the window, the core object; Init, the device lists, Start.
    bool Open(const std::string& logPath, std::string* error);
    // Shutdown before the core object goes; then the window and the log.
    void Close();

    // Handles the thread's messages for up to ms, returning sooner when one asks for work,
    // then does that work.
    void Pump(DWORD ms);
    // Handles messages until every endpoint notification queued so far has been delivered
    // and its work done, or timeoutMs passed; false on time-out.
    bool Settle(DWORD timeoutMs);

    CZQCoreAudio& Core() { return *m_core; }
    double Seconds() const;
    const DeviceLists& Devices() const { return m_devices; }
    const std::vector<ReceivedMessage>& Messages() const { return m_messages; }
    const std::vector<Listing>& Listings() const { return m_listings; }
    // The render volume as the host shows it: what it set itself or what the last
    // WM_SESSION_VOLUME_CHANGED said; and the session mute that message carried.
    float ShownVolume() const { return m_shownVolume; }
    bool SessionMute() const { return m_sessionMute; }
    void SetRenderVolume(float level);

private:
    static LRESULT CALLBACK WindowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    void OnMessage(UINT message, WPARAM wParam, LPARAM lParam);
    bool HasWork() const { return m_refreshPending || m_rebuildRenderPending; }
    void DoWork();
    void List(const char* cause);

    CZqLog m_log;  // declared first: it outlives the core object
    std::unique_ptr<CZQCoreAudio> m_core;
    bool m_initialised = false;
    HWND m_hwnd = nullptr;
    bool m_logOpen = false;
    std::chrono::steady_clock::time_point m_opened;
    DeviceLists m_devices;
    std::vector<ReceivedMessage> m_messages;
    std::vector<Listing> m_listings;
    bool m_refreshPending = false;
    bool m_rebuildRenderPending = false;
    float m_shownVolume = 0.0f;
    bool m_sessionMute = false;
};

}  // namespace zqhost
