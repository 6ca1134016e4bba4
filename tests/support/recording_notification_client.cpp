#include "recording_notification_client.h"

#include <algorithm>

namespace zqtest {

void Latch::Close() {
    std::lock_guard lock(m_lock);
    m_open = false;
}

void Latch::Open() {
    {
        std::lock_guard lock(m_lock);
        m_open = true;
    }
    m_changed.notify_all();
}

void Latch::Pass() {
    std::unique_lock lock(m_lock);
    m_waiting = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_open; });
    m_waiting = false;
}

bool Latch::WaitUntilHeld(std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, timeout, [this] { return m_waiting; });
}

std::vector<DeviceEvent> RecordingClient::Events() {
    std::lock_guard lock(m_lock);
    return m_events;
}

void RecordingClient::Clear() {
    std::lock_guard lock(m_lock);
    m_events.clear();
}

bool RecordingClient::WaitFor(DeviceEvent::Kind kind, const std::wstring& id, std::chrono::milliseconds timeout) {
    return WaitUntilRecorded([&](const DeviceEvent& e) { return e.kind == kind && e.id == id; }, timeout);
}

bool RecordingClient::WaitForState(const std::wstring& id, DWORD state, std::chrono::milliseconds timeout) {
    return WaitUntilRecorded(
        [&](const DeviceEvent& e) { return e.kind == DeviceEvent::Kind::State && e.id == id && e.state == state; },
        timeout);
}

bool RecordingClient::WaitUntilRecorded(const std::function<bool(const DeviceEvent&)>& matches,
                                        std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_lock);
    return m_recorded.wait_for(lock, timeout,
                               [&] { return std::any_of(m_events.begin(), m_events.end(), matches); });
}

HRESULT RecordingClient::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IMMNotificationClient) return E_NOINTERFACE;
    *ppv = static_cast<IMMNotificationClient*>(this);
    AddRef();
    return S_OK;
}

HRESULT RecordingClient::OnDeviceAdded(LPCWSTR id) {
    if (onAdded) onAdded(id);
    return Record(DeviceEvent::Kind::Added, id);
}

HRESULT RecordingClient::Record(DeviceEvent::Kind kind, LPCWSTR id, DWORD state, EDataFlow flow, ERole role) {
    inCallback = true;
    {
        std::lock_guard lock(m_lock);
        m_events.push_back(DeviceEvent{kind, id, state, flow, role, std::this_thread::get_id()});
    }
    m_recorded.notify_all();
    latch.Pass();
    inCallback = false;
    return S_OK;
}

}  // namespace zqtest
