// The connection to the sound server and the endpoint list kept from its events.
#include "connection.h"

#include <algorithm>
#include <cstring>
#include <thread>

#include "../audio/text.h"
#include "../kernel/audio_priority.h"
#include "../usb/usb_container.h"
#include "zqplatform/win/debugapi.h"
#include "session.h"

namespace zqplatform::pulse {
namespace {

// The USB device behind a sink or source, from the properties its module gave it.
GUID ContainerOf(const pa_proplist* properties) {
    const std::string root = usb::SysfsRoot();
    for (const char* key : {"sysfs.path", "device.sysfs.path"}) {
        const char* path = pa_proplist_gets(properties, key);
        if (path != nullptr) {
            const std::string folder = usb::FindUsbDeviceFolder(root, path);
            if (!folder.empty()) return usb::ContainerIdOfUsbFolder(folder);
        }
    }
    for (const char* key : {"device.bus_path", "device.bus-path"}) {
        const char* path = pa_proplist_gets(properties, key);
        if (path != nullptr) {
            const std::string folder = usb::UsbFolderOfBusPath(root, path);
            if (!folder.empty()) return usb::ContainerIdOfUsbFolder(folder);
        }
    }
    return GUID_NULL;
}

template <typename Info>
Endpoint Describe(const Info& info, EDataFlow flow) {
    Endpoint endpoint;
    endpoint.name = info.name != nullptr ? info.name : "";
    endpoint.id = Widen(info.name);
    endpoint.flow = flow;
    endpoint.index = info.index;
    endpoint.description = Widen(info.description != nullptr ? info.description : info.name);
    endpoint.sampleSpec = info.sample_spec;
    endpoint.channelMap = info.channel_map;
    endpoint.state = info.active_port != nullptr && info.active_port->available == PA_PORT_AVAILABLE_NO
                         ? DEVICE_STATE_UNPLUGGED
                         : DEVICE_STATE_ACTIVE;
    endpoint.container = ContainerOf(info.proplist);
    endpoint.volume = info.volume;
    endpoint.mute = info.mute != 0;
    return endpoint;
}

bool Final(pa_context_state_t state) {
    return state == PA_CONTEXT_READY || state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED;
}

}  // namespace

std::wstring Widen(const char* text) { return text != nullptr ? audio::WideFromUtf8(text) : std::wstring(); }

Connection::Connection() = default;

std::shared_ptr<Connection> Connection::Open(std::string* why) {
    std::shared_ptr<Connection> connection(new Connection);
    if (!connection->Connect(why, false)) return nullptr;
    return connection;
}

std::shared_ptr<Connection> Connection::OpenLink(std::string* why) {
    std::shared_ptr<Connection> connection(new Connection);
    if (!connection->Connect(why, true)) return nullptr;
    return connection;
}

std::shared_ptr<Connection> Connection::TakeLink(std::string* why) {
    std::shared_ptr<Connection> spare;
    {
        std::lock_guard lock(m_linkLock);
        ++m_linksOut;
        spare = std::move(m_spareLink);
    }
    if (spare && spare->Alive()) return spare;
    spare.reset();  // its server went: closed here, outside the lock (it joins its loop's thread)
    std::shared_ptr<Connection> link = OpenLink(why);
    if (!link) {
        std::lock_guard lock(m_linkLock);
        --m_linksOut;
    }
    return link;
}

void Connection::ReturnLink(std::shared_ptr<Connection> link) {
    std::shared_ptr<Connection> closing;
    {
        std::lock_guard lock(m_linkLock);
        --m_linksOut;
        if (m_linksOut > 0 && !m_spareLink && link->Alive()) {
            m_spareLink = std::move(link);
        } else if (m_linksOut == 0) {
            closing = std::move(m_spareLink);
        }
    }
    // Whatever is not kept closes here, outside the lock.
}

bool Connection::Connect(std::string* why, bool link) {
    m_link = link;
    m_loop = pa_threaded_mainloop_new();
    if (m_loop == nullptr) {
        *why = "libpulse could not make its main loop";
        return false;
    }
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, "zqCoreAudio");
    pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, "com.kestravon.zqCoreAudio");
    m_context = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(m_loop), "zqCoreAudio", properties);
    pa_proplist_free(properties);
    if (m_context == nullptr) {
        *why = "libpulse could not make a context";
        return false;
    }
    pa_context_set_state_callback(m_context, &Connection::OnContextState, this);
    pa_context_set_subscribe_callback(m_context, &Connection::OnEvent, this);
    if (pa_threaded_mainloop_start(m_loop) < 0) {
        *why = "libpulse could not start its main loop thread";
        return false;
    }

    Locked lock(*this);
    // Never spawn a server: the host runs on the desktop's, or says there is none.
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        *why = pa_strerror(pa_context_errno(m_context));
        return false;
    }
    const bool settled = WaitLocked([this] { return Final(m_state); });
    if (m_state != PA_CONTEXT_READY) {
        *why = settled ? pa_strerror(pa_context_errno(m_context))
                       : "the server did not answer within " + std::to_string(kServerTimeout.count()) + " ms";
        return false;
    }
    m_alive.store(true, std::memory_order_release);
    return link || LoadEverything(why);
}

bool Connection::LoadEverything(std::string* why) {
    const auto mask = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE |
                                                          PA_SUBSCRIPTION_MASK_SERVER |
                                                          PA_SUBSCRIPTION_MASK_SINK_INPUT |
                                                          PA_SUBSCRIPTION_MASK_SOURCE_OUTPUT);
    // Subscribed first, so nothing that changes while the lists load goes unheard.
    const bool loaded = Complete(pa_context_subscribe(m_context, mask, nullptr, nullptr)) &&
                        Complete(pa_context_get_sink_info_list(m_context, &Connection::OnSinkInfo, this)) &&
                        Complete(pa_context_get_source_info_list(m_context, &Connection::OnSourceInfo, this)) &&
                        Complete(pa_context_get_server_info(m_context, &Connection::OnServerInfo, this));
    if (!loaded) *why = "the server did not describe its devices";
    return loaded;
}

Connection::~Connection() {
    if (m_loop != nullptr) pa_threaded_mainloop_stop(m_loop);
    if (m_context != nullptr) {
        pa_context_set_state_callback(m_context, nullptr, nullptr);
        pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
        pa_context_disconnect(m_context);
        pa_context_unref(m_context);
    }
    if (m_loop != nullptr) pa_threaded_mainloop_free(m_loop);
}

bool Connection::WaitLocked(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    struct Alarm {
        Connection* connection;
        bool rang = false;
    } alarm{this};
    const pa_usec_t due = pa_rtclock_now() + static_cast<pa_usec_t>(timeout.count()) * 1000;
    pa_time_event* event = pa_context_rttime_new(
        m_context, due,
        [](pa_mainloop_api*, pa_time_event*, const struct timeval*, void* data) {
            auto* a = static_cast<Alarm*>(data);
            a->rang = true;
            a->connection->Wake();
        },
        &alarm);
    // A failed context ends every wait: nothing will answer any more.
    while (!done() && !alarm.rang && m_state != PA_CONTEXT_FAILED && m_state != PA_CONTEXT_TERMINATED)
        pa_threaded_mainloop_wait(m_loop);
    Api()->time_free(event);
    return done();
}

bool Connection::Complete(pa_operation* operation) {
    if (operation == nullptr) return false;
    pa_operation_set_state_callback(
        operation, [](pa_operation*, void* self) { static_cast<Connection*>(self)->Wake(); }, this);
    const bool finished = WaitLocked([operation] { return pa_operation_get_state(operation) != PA_OPERATION_RUNNING; });
    const bool done = finished && pa_operation_get_state(operation) == PA_OPERATION_DONE;
    pa_operation_set_state_callback(operation, nullptr, nullptr);
    pa_operation_unref(operation);
    return done;
}

std::string Connection::ServerDescription() {
    std::lock_guard lock(m_listLock);
    return m_server;
}

std::vector<Endpoint> Connection::Endpoints(EDataFlow flow, DWORD stateMask) {
    std::lock_guard lock(m_listLock);
    std::vector<Endpoint> found;
    for (const Endpoint& endpoint : m_endpoints)
        if ((flow == eAll || endpoint.flow == flow) && (endpoint.state & stateMask) != 0) found.push_back(endpoint);
    return found;
}

std::optional<Endpoint> Connection::Find(std::wstring_view id) {
    std::lock_guard lock(m_listLock);
    for (const Endpoint& endpoint : m_endpoints)
        if (endpoint.id == id) return endpoint;
    return std::nullopt;
}

std::optional<Endpoint> Connection::Default(EDataFlow flow) {
    std::lock_guard lock(m_listLock);
    const std::string& name = flow == eRender ? m_defaultSink : m_defaultSource;
    for (const Endpoint& endpoint : m_endpoints)
        if (endpoint.flow == flow && endpoint.name == name) return endpoint;
    return std::nullopt;
}

bool Connection::Refresh(const Endpoint& endpoint) {
    Locked lock(*this);
    if (!Alive()) return false;
    return Complete(endpoint.flow == eRender
                        ? pa_context_get_sink_info_by_name(m_context, endpoint.name.c_str(), &Connection::OnSinkInfo, this)
                        : pa_context_get_source_info_by_name(m_context, endpoint.name.c_str(), &Connection::OnSourceInfo,
                                                             this));
}

std::shared_ptr<Session> Connection::SessionOf(const Endpoint& endpoint) {
    std::lock_guard lock(m_listLock);
    std::shared_ptr<Session> session = m_sessions[endpoint.id].lock();
    if (!session) {
        session = std::make_shared<Session>(endpoint.flow, Backend::Instance().SessionEvents());
        m_sessions[endpoint.id] = session;
    }
    return session;
}

void Connection::AttachStream(EDataFlow flow, uint32_t index, const std::shared_ptr<Session>& session) {
    (flow == eRender ? m_sinkInputs : m_sourceOutputs)[index] = session;
}

void Connection::DetachStream(EDataFlow flow, uint32_t index) { (flow == eRender ? m_sinkInputs : m_sourceOutputs).erase(index); }

// ---- loop thread ---------------------------------------------------------------------------

void Connection::OnContextState(pa_context* context, void* self) {
    auto* connection = static_cast<Connection*>(self);
    // The first state change comes on the thread that connects, the later ones on the loop's.
    if (!connection->m_loopPriority && pa_threaded_mainloop_in_thread(connection->m_loop) != 0) {
        // The loop's thread carries every stream's audio: it runs at the stream threads' priority
        // where the system allows it, so that a busy machine does not starve it into gaps. Kept
        // until the thread ends.
        connection->m_loopPriority = true;
        zqplatform::kernel::RaiseCallingThreadToRealTime(zqplatform::kernel::kAudioPriorityOffset);
    }
    connection->m_state = pa_context_get_state(context);
    if ((connection->m_state == PA_CONTEXT_FAILED || connection->m_state == PA_CONTEXT_TERMINATED) &&
        connection->m_alive.exchange(false, std::memory_order_acq_rel))
        connection->ServerLost();
    connection->Wake();
}

void Connection::OnEvent(pa_context* context, pa_subscription_event_type_t type, uint32_t index, void* self) {
    auto* connection = static_cast<Connection*>(self);
    const unsigned facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const unsigned kind = type & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    switch (facility) {
        case PA_SUBSCRIPTION_EVENT_SINK:
            if (kind == PA_SUBSCRIPTION_EVENT_REMOVE)
                connection->Remove(eRender, index);
            else
                Forget(pa_context_get_sink_info_by_index(context, index, &Connection::OnSinkInfo, self));
            break;
        case PA_SUBSCRIPTION_EVENT_SOURCE:
            if (kind == PA_SUBSCRIPTION_EVENT_REMOVE)
                connection->Remove(eCapture, index);
            else
                Forget(pa_context_get_source_info_by_index(context, index, &Connection::OnSourceInfo, self));
            break;
        case PA_SUBSCRIPTION_EVENT_SERVER:
            Forget(pa_context_get_server_info(context, &Connection::OnServerInfo, self));
            break;
        case PA_SUBSCRIPTION_EVENT_SINK_INPUT:
            if (kind == PA_SUBSCRIPTION_EVENT_CHANGE && connection->m_sinkInputs.count(index) != 0)
                Forget(pa_context_get_sink_input_info(context, index, &Connection::OnSinkInputInfo, self));
            break;
        case PA_SUBSCRIPTION_EVENT_SOURCE_OUTPUT:
            if (kind == PA_SUBSCRIPTION_EVENT_CHANGE && connection->m_sourceOutputs.count(index) != 0)
                Forget(pa_context_get_source_output_info(context, index, &Connection::OnSourceOutputInfo, self));
            break;
        default:
            break;
    }
}

void Connection::OnServerInfo(pa_context*, const pa_server_info* info, void* self) {
    auto* connection = static_cast<Connection*>(self);
    if (info != nullptr) {
        {
            std::lock_guard lock(connection->m_listLock);
            connection->m_server = std::string(info->server_name ? info->server_name : "?") + " " +
                                   (info->server_version ? info->server_version : "?");
        }
        connection->SetDefaults(info->default_sink_name ? info->default_sink_name : "",
                                info->default_source_name ? info->default_source_name : "");
    }
    connection->Wake();
}

void Connection::OnSinkInfo(pa_context*, const pa_sink_info* info, int eol, void* self) {
    auto* connection = static_cast<Connection*>(self);
    if (eol == 0 && info != nullptr) connection->Upsert(Describe(*info, eRender));
    connection->Wake();
}

void Connection::OnSourceInfo(pa_context*, const pa_source_info* info, int eol, void* self) {
    auto* connection = static_cast<Connection*>(self);
    // A monitor source carries what a sink plays: it is not a capture endpoint.
    if (eol == 0 && info != nullptr && info->monitor_of_sink == PA_INVALID_INDEX)
        connection->Upsert(Describe(*info, eCapture));
    connection->Wake();
}

void Connection::OnSinkInputInfo(pa_context*, const pa_sink_input_info* info, int eol, void* self) {
    if (eol == 0 && info != nullptr) static_cast<Connection*>(self)->StreamVolume(eRender, info->index, info->volume, info->mute != 0);
}

void Connection::OnSourceOutputInfo(pa_context*, const pa_source_output_info* info, int eol, void* self) {
    if (eol == 0 && info != nullptr)
        static_cast<Connection*>(self)->StreamVolume(eCapture, info->index, info->volume, info->mute != 0);
}

void Connection::StreamVolume(EDataFlow flow, uint32_t index, const pa_cvolume& volume, bool mute) {
    auto& streams = flow == eRender ? m_sinkInputs : m_sourceOutputs;
    const auto it = streams.find(index);
    if (it == streams.end()) return;
    if (std::shared_ptr<Session> session = it->second.lock()) session->ServerVolume(volume, mute);
}

void Connection::Upsert(Endpoint endpoint) {
    bool added = false;
    bool stateChanged = false;
    {
        std::lock_guard lock(m_listLock);
        auto it = std::find_if(m_endpoints.begin(), m_endpoints.end(), [&](const Endpoint& known) {
            return known.flow == endpoint.flow && known.index == endpoint.index;
        });
        // A device that comes back under its old name is the old endpoint, present again.
        if (it == m_endpoints.end())
            it = std::find_if(m_endpoints.begin(), m_endpoints.end(), [&](const Endpoint& known) {
                return known.flow == endpoint.flow && known.id == endpoint.id && known.state == DEVICE_STATE_NOTPRESENT;
            });
        if (it == m_endpoints.end()) {
            added = true;
            m_endpoints.push_back(endpoint);
        } else {
            added = it->state == DEVICE_STATE_NOTPRESENT;
            stateChanged = it->state != endpoint.state;
            *it = endpoint;
        }
    }
    // Only a running connection reports: the first listing is what the enumerator starts from.
    if (!Alive() || m_state != PA_CONTEXT_READY) return;
    const std::wstring id = endpoint.id;
    const DWORD state = endpoint.state;
    if (added) Backend::Instance().Notify([id](IMMNotificationClient* client) { client->OnDeviceAdded(id.c_str()); });
    if (added || stateChanged)
        Backend::Instance().Notify(
            [id, state](IMMNotificationClient* client) { client->OnDeviceStateChanged(id.c_str(), state); });
}

void Connection::Remove(EDataFlow flow, uint32_t index) {
    std::wstring id;
    {
        std::lock_guard lock(m_listLock);
        const auto it = std::find_if(m_endpoints.begin(), m_endpoints.end(),
                                     [&](const Endpoint& known) { return known.flow == flow && known.index == index; });
        if (it == m_endpoints.end()) return;
        // Kept, not present, as Windows keeps an unplugged device's endpoint: whoever hears of
        // the removal can still read its properties (the system finds its microphone by the
        // container).
        it->state = DEVICE_STATE_NOTPRESENT;
        it->index = PA_INVALID_INDEX;
        id = it->id;
    }
    ReportGone(id);
}

void Connection::ReportGone(const std::wstring& id) {
    Backend& backend = Backend::Instance();
    backend.Notify([id](IMMNotificationClient* client) {
        client->OnDeviceStateChanged(id.c_str(), DEVICE_STATE_NOTPRESENT);
    });
    backend.Notify([id](IMMNotificationClient* client) { client->OnDeviceRemoved(id.c_str()); });
}

void Connection::SetDefaults(const std::string& sink, const std::string& source) {
    bool sinkChanged = false;
    bool sourceChanged = false;
    {
        std::lock_guard lock(m_listLock);
        sinkChanged = sink != m_defaultSink;
        sourceChanged = source != m_defaultSource;
        m_defaultSink = sink;
        m_defaultSource = source;
    }
    if (!Alive() || m_state != PA_CONTEXT_READY) return;
    const auto report = [](EDataFlow flow, const std::string& name) {
        const std::wstring id = Widen(name.c_str());
        // The server has one default per direction: it is the default of every role.
        for (ERole role : {eConsole, eMultimedia, eCommunications}) {
            Backend::Instance().Notify([flow, role, id](IMMNotificationClient* client) {
                client->OnDefaultDeviceChanged(flow, role, id.empty() ? nullptr : id.c_str());
            });
        }
    };
    if (sinkChanged) report(eRender, sink);
    // A monitor source as the default is no capture endpoint; still a change of the default.
    if (sourceChanged) report(eCapture, source);
}

void Connection::ServerLost() {
    if (m_link) return;  // the backend's connection reports the loss; its streams learn it themselves
    // Every endpoint goes with the server; streams learn it from their own state callbacks.
    std::vector<std::wstring> gone;
    {
        std::lock_guard lock(m_listLock);
        for (Endpoint& endpoint : m_endpoints) {
            if (endpoint.state == DEVICE_STATE_NOTPRESENT) continue;
            endpoint.state = DEVICE_STATE_NOTPRESENT;
            endpoint.index = PA_INVALID_INDEX;
            gone.push_back(endpoint.id);
        }
    }
    for (const std::wstring& id : gone) ReportGone(id);
    Backend::Instance().ServerGone();
}

// ---- backend -------------------------------------------------------------------------------

Backend& Backend::Instance() {
    // Never destroyed: its threads may be delivering while the process exits.
    static Backend* backend = new Backend;
    return *backend;
}

std::shared_ptr<Connection> Backend::Connect(std::string* why, bool orLost) {
    std::lock_guard lock(m_lock);
    if (m_current && m_current->Alive()) return m_current;
    std::string reason;
    std::shared_ptr<Connection> fresh = Connection::Open(&reason);
    if (fresh) {
        m_current = fresh;
        m_reported.clear();
        return fresh;
    }
    // Every part of the system that looks for devices asks again: one line per cause is enough.
    if (reason != m_reported) {
        m_reported = reason;
        const std::wstring text = L"zqplatform: pulse backend: no sound server reachable (" +
                                  audio::WideFromUtf8(reason) + L"); there are no audio endpoints\n";
        OutputDebugStringW(text.c_str());
    }
    if (why != nullptr) *why = reason;
    return orLost ? m_current : nullptr;
}

void Backend::ServerGone() {
    std::lock_guard lock(m_retryLock);
    m_retryWanted = true;
    if (!m_retryRunning) {
        m_retryRunning = true;
        // Never joined, as the backend is never destroyed: between losses it waits, costing nothing.
        std::thread([this] { Reconnect(); }).detach();
    }
    m_retryWake.notify_one();
}

void Backend::Reconnect() {
    std::unique_lock lock(m_retryLock);
    for (;;) {
        m_retryWake.wait(lock, [this] { return m_retryWanted; });
        lock.unlock();
        // Whoever enumerates meanwhile may connect first; then this try finds it alive.
        const bool connected = Connect(nullptr) != nullptr;
        lock.lock();
        if (connected) {
            m_retryWanted = false;
        } else {
            m_retryWake.wait_for(lock, kRetryInterval);
        }
    }
}

void Backend::Notify(std::function<void(IMMNotificationClient*)> call) {
    // Clients registered after the change do not hear of it; those that leave before its turn neither.
    m_notifications.Post([this, clients = m_clients.Snapshot(), call = std::move(call)] {
        m_clients.Deliver(clients, call);
    });
}

}  // namespace zqplatform::pulse
