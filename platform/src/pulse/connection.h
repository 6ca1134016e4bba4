// The pulse backend's connection to the sound server: libpulse's threaded main loop, the
// context, and the server's sinks and sources as the backend last heard of them. Internal to
// the platform library.
//
// Threads and locks:
// - The main loop's thread runs every libpulse callback with the loop lock held. It updates
//   the endpoint list (under m_listLock, a leaf lock) and posts notifications to the backend's
//   notification thread; it never calls a client.
// - Client threads (the system's, the tests') read the list under m_listLock only, and take
//   the loop lock (Connection::Locked) for calls into libpulse; waits for the server are
//   bounded (WaitLocked), so a server that stops answering costs a time-out, never a hang.
// - The capture and render threads never take the loop lock (see stream.h).
#pragma once

#include <pulse/pulseaudio.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "../audio/event_dispatcher.h"
#include "../audio/sink_registry.h"
#include "zqplatform/win/coreaudio.h"

namespace zqplatform::pulse {

class Session;

// A sink (render) or source (capture) as the server describes it. Monitor sources are not
// endpoints.
struct Endpoint {
    std::wstring id;  // the sink's or source's name
    std::string name;
    EDataFlow flow = eRender;
    uint32_t index = PA_INVALID_INDEX;
    std::wstring description;
    pa_sample_spec sampleSpec{};
    pa_channel_map channelMap{};
    // DEVICE_STATE_UNPLUGGED when its active port is unavailable; DEVICE_STATE_NOTPRESENT once
    // the server dropped it (kept so that its properties stay readable, index then invalid).
    DWORD state = DEVICE_STATE_ACTIVE;
    GUID container{};
    pa_cvolume volume{};
    bool mute = false;
};

class Connection {
public:
    static constexpr std::chrono::milliseconds kServerTimeout{3000};

    // Connects to the server by libpulse's rules, without spawning one; nullptr and the reason
    // in *why when none answers within kServerTimeout.
    static std::shared_ptr<Connection> Open(std::string* why);
    // A connection that carries one stream and nothing else: no endpoint list, no
    // subscription, no notifications (the backend's connection does all that). A stream has a
    // link of its own because a server may deliver a client's recorded fragments late and in
    // bursts while the same client also plays (a PipeWire server's PulseAudio front end holds
    // them back by 50 ms and more): apart, each stream is served at its own pace.
    static std::shared_ptr<Connection> OpenLink(std::string* why);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // False once the server has gone (the context failed): every object made on this
    // connection then answers AUDCLNT_E_DEVICE_INVALIDATED.
    bool Alive() const { return m_alive.load(std::memory_order_acquire); }
    std::string ServerDescription();

    std::vector<Endpoint> Endpoints(EDataFlow flow, DWORD stateMask);
    std::optional<Endpoint> Find(std::wstring_view id);
    std::optional<Endpoint> Default(EDataFlow flow);

    // Client thread: asks the server for the endpoint's description now (its volume, say) and
    // waits for it; false when it did not come.
    bool Refresh(const Endpoint& endpoint);

    // The process's session on an endpoint, made at first use and shared by its streams.
    std::shared_ptr<Session> SessionOf(const Endpoint& endpoint);

    // The loop lock, held for every call into libpulse from outside the loop's thread.
    class Locked {
    public:
        explicit Locked(Connection& connection) : m_loop(connection.m_loop) { pa_threaded_mainloop_lock(m_loop); }
        ~Locked() { pa_threaded_mainloop_unlock(m_loop); }
        Locked(const Locked&) = delete;
        Locked& operator=(const Locked&) = delete;

    private:
        pa_threaded_mainloop* m_loop;
    };
    pa_context* Context() const { return m_context; }
    pa_mainloop_api* Api() const { return pa_threaded_mainloop_get_api(m_loop); }
    pa_threaded_mainloop* Loop() const { return m_loop; }
    // With the loop lock held, from outside the loop's thread: waits (the lock released
    // meanwhile) until done() holds, the server goes away or the time-out passes; done()'s
    // final answer. Callbacks that change what done() reads call Wake().
    bool WaitLocked(const std::function<bool()>& done, std::chrono::milliseconds timeout = kServerTimeout);
    // With the loop lock held: waits for the operation and drops it; false when it did not
    // finish (time-out, server gone). A null operation (libpulse refused the call) is false.
    bool Complete(pa_operation* operation);
    // Drops an operation whose outcome nobody waits for.
    static void Forget(pa_operation* operation) {
        if (operation != nullptr) pa_operation_unref(operation);
    }
    void Wake() { pa_threaded_mainloop_signal(m_loop, 0); }

    // Client threads, no lock held: a link for a stream of this connection's server, and the
    // link of one that has closed its pa_stream. A device switch closes one stream while the
    // other runs on, then opens another: the link of the closing one is kept for it (a new link
    // costs the server a new client, 2 to 5 ms on PipeWire, all of it silence in a switch), and
    // closed with the last stream of ours instead, or when its server has gone.
    std::shared_ptr<Connection> TakeLink(std::string* why);
    void ReturnLink(std::shared_ptr<Connection> link);

    // Loop lock held: routes volume changes of a stream of ours (a sink input or source output)
    // to its session; Detach when the stream goes.
    void AttachStream(EDataFlow flow, uint32_t index, const std::shared_ptr<Session>& session);
    void DetachStream(EDataFlow flow, uint32_t index);

private:
    Connection();
    bool Connect(std::string* why, bool link);
    bool LoadEverything(std::string* why);

    static void OnContextState(pa_context* context, void* self);
    static void OnEvent(pa_context* context, pa_subscription_event_type_t type, uint32_t index, void* self);
    static void OnServerInfo(pa_context* context, const pa_server_info* info, void* self);
    static void OnSinkInfo(pa_context* context, const pa_sink_info* info, int eol, void* self);
    static void OnSourceInfo(pa_context* context, const pa_source_info* info, int eol, void* self);
    static void OnSinkInputInfo(pa_context* context, const pa_sink_input_info* info, int eol, void* self);
    static void OnSourceOutputInfo(pa_context* context, const pa_source_output_info* info, int eol, void* self);

    // Loop thread: the endpoint as the server now describes it; tells the clients what changed.
    void Upsert(Endpoint endpoint);
    void Remove(EDataFlow flow, uint32_t index);
    void SetDefaults(const std::string& sink, const std::string& source);
    void ServerLost();
    // Tells the clients that the endpoint has gone: its state, then its removal.
    static void ReportGone(const std::wstring& id);
    void StreamVolume(EDataFlow flow, uint32_t index, const pa_cvolume& volume, bool mute);

    pa_threaded_mainloop* m_loop = nullptr;
    pa_context* m_context = nullptr;
    std::atomic<bool> m_alive{false};
    pa_context_state_t m_state = PA_CONTEXT_UNCONNECTED;  // loop lock
    bool m_loopPriority = false;  // loop thread
    bool m_link = false;          // set before the loop starts: a stream's link (OpenLink)

    std::mutex m_listLock;  // leaf: nothing is called with it held
    std::vector<Endpoint> m_endpoints;
    std::string m_defaultSink;
    std::string m_defaultSource;
    std::string m_server;
    std::map<std::wstring, std::weak_ptr<Session>> m_sessions;

    std::mutex m_linkLock;                   // leaf
    std::shared_ptr<Connection> m_spareLink;  // link lock
    size_t m_linksOut = 0;                    // link lock: taken and not returned

    // Loop lock.
    std::map<uint32_t, std::weak_ptr<Session>> m_sinkInputs;
    std::map<uint32_t, std::weak_ptr<Session>> m_sourceOutputs;
};

// What lives as long as the process: the notification thread and its clients, the session
// event thread, and the connection now in use (replaced when the server went away).
//
// A server that goes away is waited for: from the loss on, a thread of the backend's own tries
// to connect again every kRetryInterval (each try costs a socket connect, or the server's
// time-out when it hangs) until a server answers, and stops trying then. The new connection's
// first listing reports every endpoint as added, its defaults as changed: the system hears its
// devices come back as it hears a device plugged in, and rebuilds. The stream threads take no
// part; the streams of the lost connection stay invalid.
class Backend {
public:
    static Backend& Instance();

    // The live connection, connecting when there is none or the last one lost its server;
    // nullptr and the reason in *why when no server answers (also written once to the debug
    // output, see zqplatform/vm/audio_backend.h). With orLost, the connection whose server went
    // away stands in for a new one: its endpoints, all gone, stay readable (as Windows keeps
    // the endpoints of unplugged devices), so whoever hears of their removal can look them up.
    std::shared_ptr<Connection> Connect(std::string* why, bool orLost = false);

    audio::EventDispatcher& Notifications() { return m_notifications; }
    audio::SinkRegistry<IMMNotificationClient>& Clients() { return m_clients; }
    audio::EventDispatcher& SessionEvents() { return m_sessionEvents; }

    // Loop thread: tells every client registered now, on the notification thread.
    void Notify(std::function<void(IMMNotificationClient*)> call);
    // Loop thread of a connection whose server went away: the retrying thread starts (or goes on).
    void ServerGone();

    static constexpr std::chrono::milliseconds kRetryInterval{300};

private:
    Backend() = default;
    void Reconnect();  // the retrying thread

    audio::EventDispatcher m_notifications;
    audio::EventDispatcher m_sessionEvents;
    audio::SinkRegistry<IMMNotificationClient> m_clients{m_notifications};
    std::mutex m_lock;
    std::shared_ptr<Connection> m_current;
    std::string m_reported;  // the cause last written to the debug output

    std::mutex m_retryLock;  // leaf
    std::condition_variable m_retryWake;
    bool m_retryWanted = false;   // retry lock
    bool m_retryRunning = false;  // retry lock: the thread exists (it lives as long as the process)
};

std::wstring Widen(const char* text);

}  // namespace zqplatform::pulse
