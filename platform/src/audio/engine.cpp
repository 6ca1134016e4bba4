// The virtual audio engine's machine: endpoints, defaults, notifications.
#include "engine.h"

#include <algorithm>
#include <cstdio>

#include "../faults/fault_rules.h"
#include "text.h"

namespace zqplatform::audio {
namespace {

bool IsEndpointFlow(EDataFlow flow) { return flow == eRender || flow == eCapture; }
bool IsRole(ERole role) { return role >= eConsole && role <= eCommunications; }
bool IsState(DWORD state) {
    return state == DEVICE_STATE_ACTIVE || state == DEVICE_STATE_DISABLED || state == DEVICE_STATE_NOTPRESENT ||
           state == DEVICE_STATE_UNPLUGGED;
}

}  // namespace

Engine& Engine::Unloaded() {
    // Never destroyed: its threads and the objects handed out may be in use while the process exits.
    static Engine* engine = new Engine;
    return *engine;
}

Engine& Engine::Instance() {
    Engine& engine = Unloaded();
    std::call_once(engine.m_loaded, [&engine] { LoadStartupMachine(engine); });
    return engine;
}

std::vector<std::shared_ptr<EndpointState>> Engine::Endpoints(EDataFlow flow, DWORD stateMask) {
    std::lock_guard lock(m_lock);
    std::vector<std::shared_ptr<EndpointState>> out;
    for (const auto& endpoint : m_endpoints) {
        if (flow != eAll && endpoint->flow != flow) continue;
        if ((endpoint->state.load() & stateMask) == 0) continue;
        out.push_back(endpoint);
    }
    if ((stateMask & DEVICE_STATE_NOTPRESENT) != 0) {
        for (const auto& endpoint : m_removed) {
            if (flow == eAll || endpoint->flow == flow) out.push_back(endpoint);
        }
    }
    return out;
}

std::shared_ptr<EndpointState> Engine::FindLocked(std::wstring_view id) {
    for (const auto& endpoint : m_endpoints)
        if (endpoint->id == id) return endpoint;
    return nullptr;
}

std::shared_ptr<EndpointState> Engine::FindRemovedLocked(std::wstring_view id) {
    for (const auto& endpoint : m_removed)
        if (endpoint->id == id) return endpoint;
    return nullptr;
}

std::shared_ptr<EndpointState> Engine::Find(std::wstring_view id) {
    std::lock_guard lock(m_lock);
    if (std::shared_ptr<EndpointState> endpoint = FindLocked(id)) return endpoint;
    return FindRemovedLocked(id);
}

std::shared_ptr<EndpointState> Engine::Default(EDataFlow flow, ERole role) {
    if (!IsEndpointFlow(flow) || !IsRole(role)) return nullptr;
    std::lock_guard lock(m_lock);
    const std::wstring& id = m_defaults[flow][role];
    return id.empty() ? nullptr : FindLocked(id);
}

std::wstring Engine::DefaultId(EDataFlow flow, ERole role) {
    if (!IsEndpointFlow(flow) || !IsRole(role)) return {};
    std::lock_guard lock(m_lock);
    return m_defaults[flow][role];
}

std::vector<std::wstring> Engine::Ids() {
    std::lock_guard lock(m_lock);
    std::vector<std::wstring> ids;
    for (const auto& endpoint : m_endpoints) ids.push_back(endpoint->id);
    return ids;
}

std::wstring Engine::MakeIdLocked(EDataFlow flow) {
    // The shape of Windows endpoint identifiers: "{0.0.<flow>.00000000}.{<guid>}".
    for (;;) {
        GUID guid = {m_nextId++, 0x7A56, 0x4E21, {0x9D, 0x0F, 0x5A, 0x0C, 0x2B, 0x1E, 0x3D, 0x47}};
        std::wstring id = std::wstring(L"{0.0.") + (flow == eCapture ? L"1" : L"0") + L".00000000}." + GuidText(guid);
        if (!FindLocked(id) && !FindRemovedLocked(id)) return id;
    }
}

std::shared_ptr<EndpointState> Engine::Build(const zqvm::EndpointSpec& endpointSpec, std::string* error) {
    const auto fail = [error](std::string why) -> std::shared_ptr<EndpointState> {
        if (error) *error = std::move(why);
        return nullptr;
    };
    if (!IsEndpointFlow(endpointSpec.flow)) return fail("an endpoint's flow is render or capture");
    if (!IsState(endpointSpec.state)) return fail("unknown endpoint state");
    for (ERole role : endpointSpec.defaultFor)
        if (!IsRole(role)) return fail("unknown role");
    if (!endpointSpec.defaultFor.empty() && endpointSpec.state != DEVICE_STATE_ACTIVE)
        return fail("only an active endpoint can be a default");
    // The played audio a render endpoint keeps, as float samples: refused past this, rather
    // than failing to allocate later.
    constexpr uint64_t kMaxKeptBytes = uint64_t{512} << 20;
    const uint64_t keptBytes = uint64_t{std::max<uint32_t>(endpointSpec.keepSeconds, 1)} * endpointSpec.rate *
                               endpointSpec.channels * sizeof(float);
    if (endpointSpec.flow == eRender && keptBytes > kMaxKeptBytes)
        return fail("keep_seconds " + std::to_string(endpointSpec.keepSeconds) + " at " +
                    std::to_string(endpointSpec.rate) + " Hz and " + std::to_string(endpointSpec.channels) +
                    " channels would keep " + std::to_string(keptBytes >> 20) + " MiB of played audio; at most " +
                    std::to_string(kMaxKeptBytes >> 20) + " MiB");
    std::string why;
    const std::optional<MixFormat> format =
        MixFormat::Make(endpointSpec.rate, endpointSpec.channels, endpointSpec.format, endpointSpec.extensible, endpointSpec.channelMask, &why);
    if (!format) return fail(why);
    std::optional<ResolvedSource> source;
    if (endpointSpec.flow == eCapture) {
        source = ResolveSource(endpointSpec.source, endpointSpec.rate, endpointSpec.channels, &why);
        if (!source) return fail(why);
    }
    auto endpoint = std::make_shared<EndpointState>(endpointSpec.id, endpointSpec.flow, *format, endpointSpec.name, endpointSpec.container,
                                                    endpointSpec.state, std::max<uint32_t>(endpointSpec.keepSeconds, 1),
                                                    m_sessionEvents);
    if (!endpoint->SetClock(endpointSpec.ppm, endpointSpec.phaseMs))
        return fail("ppm must lie within -1000 to 1000 and the phase within 0 to 10 ms");
    if (source) endpoint->SetSource(*source);
    if (endpointSpec.flow == eRender && !endpointSpec.renderWavPath.empty() && !endpoint->sink.OpenWav(endpointSpec.renderWavPath, &why))
        return fail(why);
    return endpoint;
}

bool Engine::InsertLocked(const std::shared_ptr<EndpointState>& endpoint, const std::vector<ERole>& roles,
                          Changes& changes, std::string* error) {
    if (FindLocked(endpoint->id)) {
        if (error) *error = "an endpoint with the id '" + Utf8FromWide(endpoint->id) + "' exists already";
        return false;
    }
    std::erase_if(m_removed, [&endpoint](const auto& removed) { return removed->id == endpoint->id; });
    m_endpoints.push_back(endpoint);
    changes.push_back(Change{Change::Kind::Added, endpoint->id});
    for (ERole role : roles) SetDefaultLocked(endpoint->flow, role, endpoint->id, changes);
    FixDefaultsLocked(changes);
    return true;
}

std::wstring Engine::Add(const zqvm::EndpointSpec& endpointSpec, std::string* error) {
    zqvm::EndpointSpec named = endpointSpec;
    if (named.id.empty()) {
        std::lock_guard lock(m_lock);
        named.id = MakeIdLocked(endpointSpec.flow);
    }
    const std::shared_ptr<EndpointState> endpoint = Build(named, error);
    if (!endpoint) return {};
    std::lock_guard lock(m_lock);
    Changes changes;
    if (!InsertLocked(endpoint, endpointSpec.defaultFor, changes, error)) return {};
    PostLocked(changes);
    return endpoint->id;
}

void Engine::InvalidateLocked(EndpointState& endpoint) {
    endpoint.generation.fetch_add(1, std::memory_order_acq_rel);
    endpoint.ClearPeaks();
    endpoint.session->Disconnect(DisconnectReasonDeviceRemoval);
}

bool Engine::Remove(const std::wstring& id) {
    std::shared_ptr<EndpointState> removed;
    {
        std::lock_guard lock(m_lock);
        const auto it = std::find_if(m_endpoints.begin(), m_endpoints.end(),
                                     [&id](const auto& endpoint) { return endpoint->id == id; });
        if (it == m_endpoints.end()) return false;
        removed = *it;
        m_endpoints.erase(it);
        m_removed.push_back(removed);
        const bool wasActive = removed->state.exchange(DEVICE_STATE_NOTPRESENT) == DEVICE_STATE_ACTIVE;
        if (wasActive) InvalidateLocked(*removed);
        Changes changes{Change{Change::Kind::Removed, id}};
        FixDefaultsLocked(changes);
        PostLocked(changes);
    }
    removed->sink.CloseWav();  // completes the file; outside m_lock, it may take a moment
    return true;
}

bool Engine::SetState(const std::wstring& id, DWORD state) {
    if (!IsState(state)) return false;
    std::lock_guard lock(m_lock);
    const std::shared_ptr<EndpointState> endpoint = FindLocked(id);
    if (!endpoint) return false;
    const DWORD old = endpoint->state.exchange(state);
    if (old == state) return true;
    if (old == DEVICE_STATE_ACTIVE) InvalidateLocked(*endpoint);
    Changes changes{Change{Change::Kind::State, id, state}};
    FixDefaultsLocked(changes);
    PostLocked(changes);
    return true;
}

bool Engine::SetDefault(EDataFlow flow, ERole role, const std::wstring& id) {
    if (!IsEndpointFlow(flow) || !IsRole(role)) return false;
    std::lock_guard lock(m_lock);
    if (!id.empty()) {
        const std::shared_ptr<EndpointState> endpoint = FindLocked(id);
        if (!endpoint || endpoint->flow != flow || endpoint->state.load() != DEVICE_STATE_ACTIVE) return false;
    }
    Changes changes;
    SetDefaultLocked(flow, role, id, changes);
    PostLocked(changes);
    return true;
}

void Engine::SetDefaultLocked(EDataFlow flow, ERole role, const std::wstring& id, Changes& changes) {
    std::wstring& current = m_defaults[flow][role];
    if (current == id) return;
    current = id;
    changes.push_back(Change{Change::Kind::Default, id, 0, flow, role});
}

void Engine::FixDefaultsLocked(Changes& changes) {
    for (EDataFlow flow : {eRender, eCapture}) {
        std::wstring firstActive;
        for (const auto& endpoint : m_endpoints) {
            if (endpoint->flow == flow && endpoint->state.load() == DEVICE_STATE_ACTIVE) {
                firstActive = endpoint->id;
                break;
            }
        }
        for (ERole role : {eConsole, eMultimedia, eCommunications}) {
            const std::wstring& current = m_defaults[flow][role];
            if (!current.empty()) {
                const std::shared_ptr<EndpointState> endpoint = FindLocked(current);
                if (endpoint && endpoint->state.load() == DEVICE_STATE_ACTIVE) continue;
            }
            SetDefaultLocked(flow, role, firstActive, changes);
        }
    }
}

void Engine::PostLocked(Changes& changes) {
    if (changes.empty()) return;
    // Clients registered after the change do not hear of it; those that leave before its turn neither.
    const std::vector<IMMNotificationClient*> clients = m_clients.Snapshot();
    for (Change& change : changes) {
        m_notifications.Post([this, clients, change = std::move(change)] {
            m_clients.Deliver(clients, [&change](IMMNotificationClient* client) {
                switch (change.kind) {
                    case Change::Kind::Added:
                        client->OnDeviceAdded(change.id.c_str());
                        break;
                    case Change::Kind::Removed:
                        client->OnDeviceRemoved(change.id.c_str());
                        break;
                    case Change::Kind::State:
                        client->OnDeviceStateChanged(change.id.c_str(), change.state);
                        break;
                    case Change::Kind::Default:
                        client->OnDefaultDeviceChanged(change.flow, change.role,
                                                       change.id.empty() ? nullptr : change.id.c_str());
                        break;
                }
            });
        });
    }
    changes.clear();
}

void Engine::Reset() {
    std::vector<std::shared_ptr<EndpointState>> removed;
    {
        std::lock_guard lock(m_lock);
        removed.swap(m_endpoints);
        m_removed.clear();
        for (const auto& endpoint : removed) {
            if (endpoint->state.exchange(DEVICE_STATE_NOTPRESENT) == DEVICE_STATE_ACTIVE)
                endpoint->generation.fetch_add(1, std::memory_order_acq_rel);
        }
        for (auto& flow : m_defaults)
            for (auto& id : flow) id.clear();
        m_nextId = 1;
    }
    faults::Disarm(faults::Armer::Methods);
    for (const auto& endpoint : removed) endpoint->sink.CloseWav();
}

bool Engine::Replace(const std::vector<zqvm::EndpointSpec>& endpointSpecs, std::string* error) {
    // Everything is built before anything changes, so a bad description leaves the machine as it was.
    std::vector<std::shared_ptr<EndpointState>> built;
    for (const zqvm::EndpointSpec& endpointSpec : endpointSpecs) {
        zqvm::EndpointSpec named = endpointSpec;
        if (named.id.empty()) {
            std::lock_guard lock(m_lock);
            named.id = MakeIdLocked(endpointSpec.flow);
        }
        std::string why;
        built.push_back(Build(named, &why));
        if (!built.back()) {
            if (error) *error = "endpoint '" + Utf8FromWide(endpointSpec.name) + "': " + why;
            return false;
        }
        for (size_t i = 0; i + 1 < built.size(); ++i) {
            if (built[i]->id == named.id) {
                if (error) *error = "two endpoints have the id '" + Utf8FromWide(named.id) + "'";
                return false;
            }
        }
    }
    Reset();
    std::lock_guard lock(m_lock);
    Changes quiet;
    for (size_t i = 0; i < built.size(); ++i) InsertLocked(built[i], endpointSpecs[i].defaultFor, quiet, nullptr);
    return true;  // quiet is dropped: a machine being loaded reports nothing
}

}  // namespace zqplatform::audio
