// The virtual audio engine: the machine's endpoints, the defaults per flow and role, the
// registered notification clients and the engine threads that call them. Internal to the
// platform library; the control API (audio_machine.cpp) and the enumerator use it.
//
// Locks: m_lock guards the endpoint list and the defaults and is never held while calling a
// client. Changes queue their notifications (under m_lock, so they keep the order of the
// changes) for the notification thread.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "endpoint_state.h"
#include "event_dispatcher.h"
#include "sink_registry.h"
#include "zqplatform/vm/audio_machine.h"

namespace zqplatform::audio {

class Engine {
public:
    // The engine with its machine loaded (the description file or the built-in machine).
    static Engine& Instance();
    // The engine as it stands; only the loader of the machine uses it.
    static Engine& Unloaded();

    EventDispatcher& Notifications() { return m_notifications; }
    EventDispatcher& SessionEvents() { return m_sessionEvents; }
    SinkRegistry<IMMNotificationClient>& Clients() { return m_clients; }

    // Endpoints in the order they were added. flow may be eAll.
    std::vector<std::shared_ptr<EndpointState>> Endpoints(EDataFlow flow, DWORD stateMask);
    std::shared_ptr<EndpointState> Find(std::wstring_view id);
    std::shared_ptr<EndpointState> Default(EDataFlow flow, ERole role);

    // Makes an endpoint from its description (format, source, sink file); nullptr and *error when it
    // cannot be made. The endpoint is not part of the machine yet.
    std::shared_ptr<EndpointState> Build(const zqvm::EndpointSpec& endpointSpec, std::string* error);
    std::wstring Add(const zqvm::EndpointSpec& endpointSpec, std::string* error);
    bool Remove(const std::wstring& id);
    bool SetState(const std::wstring& id, DWORD state);
    bool SetDefault(EDataFlow flow, ERole role, const std::wstring& id);
    std::wstring DefaultId(EDataFlow flow, ERole role);
    std::vector<std::wstring> Ids();
    void Reset();
    // Reset, then the endpoints described, without notifications. Nothing changes when any
    // description is wrong.
    bool Replace(const std::vector<zqvm::EndpointSpec>& endpointSpecs, std::string* error);

private:
    struct Change {
        enum class Kind { Added, Removed, State, Default } kind;
        std::wstring id;
        DWORD state = 0;
        EDataFlow flow = eRender;
        ERole role = eConsole;
    };
    using Changes = std::vector<Change>;

    Engine() = default;
    std::shared_ptr<EndpointState> FindLocked(std::wstring_view id);
    std::shared_ptr<EndpointState> FindRemovedLocked(std::wstring_view id);
    // Inserts an endpoint built by Build; false when its id is taken or its default roles
    // cannot be honoured.
    bool InsertLocked(const std::shared_ptr<EndpointState>& endpoint, const std::vector<ERole>& roles,
                      Changes& changes, std::string* error);
    // Gives every role whose default is missing or not active the first active endpoint of
    // its flow (or none).
    void FixDefaultsLocked(Changes& changes);
    void SetDefaultLocked(EDataFlow flow, ERole role, const std::wstring& id, Changes& changes);
    // The endpoint's audio objects stop working: the device has gone.
    static void InvalidateLocked(EndpointState& endpoint);
    void PostLocked(Changes& changes);
    std::wstring MakeIdLocked(EDataFlow flow);

    EventDispatcher m_notifications;
    EventDispatcher m_sessionEvents;
    SinkRegistry<IMMNotificationClient> m_clients{m_notifications};
    std::once_flag m_loaded;

    std::mutex m_lock;
    std::vector<std::shared_ptr<EndpointState>> m_endpoints;
    // Endpoints taken out of the machine: as on Windows, GetDevice still finds them, in state
    // not-present, and so does a listing that asks for that state; nothing else sees them.
    std::vector<std::shared_ptr<EndpointState>> m_removed;
    std::wstring m_defaults[2][3];  // [flow][role]; empty: none
    uint32_t m_nextId = 1;
};

// Loads the machine at first use (machine_description.cpp).
void LoadStartupMachine(Engine& engine);

}  // namespace zqplatform::audio
