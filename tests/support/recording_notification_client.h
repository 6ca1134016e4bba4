// An endpoint notification client that records what it was told and on which thread, for the
// audio engines' notification tests. A latch can hold a callback in progress.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "zqPlatform.h"

namespace zqtest {

// Holds callbacks until opened; tells when one is waiting.
class Latch {
public:
    void Close();
    void Open();
    void Pass();
    bool WaitUntilHeld(std::chrono::milliseconds timeout);

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_open = true;
    bool m_waiting = false;
};

struct DeviceEvent {
    enum class Kind { Added, Removed, State, Default } kind;
    std::wstring id;  // empty for a default change to no endpoint
    DWORD state = 0;
    EDataFlow flow = eRender;
    ERole role = eConsole;
    std::thread::id thread;
};

class RecordingClient final : public IMMNotificationClient {
public:
    std::vector<DeviceEvent> Events();
    void Clear();
    // Wait (bounded) until an event of that kind for that endpoint, or that state change, was
    // recorded.
    bool WaitFor(DeviceEvent::Kind kind, const std::wstring& id,
                 std::chrono::milliseconds timeout = std::chrono::milliseconds(5000));
    bool WaitForState(const std::wstring& id, DWORD state,
                      std::chrono::milliseconds timeout = std::chrono::milliseconds(5000));
    Latch latch;
    std::atomic<bool> inCallback{false};
    // Called inside OnDeviceAdded, on the notification thread, before the event is recorded.
    std::function<void(const std::wstring& id)> onAdded;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }  // lives on the test's stack
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR id, DWORD state) override {
        return Record(DeviceEvent::Kind::State, id, state);
    }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR id) override { return Record(DeviceEvent::Kind::Removed, id); }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR id) override {
        return Record(DeviceEvent::Kind::Default, id != nullptr ? id : L"", 0, flow, role);
    }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }

private:
    bool WaitUntilRecorded(const std::function<bool(const DeviceEvent&)>& matches, std::chrono::milliseconds timeout);
    HRESULT Record(DeviceEvent::Kind kind, LPCWSTR id, DWORD state = 0, EDataFlow flow = eRender,
                   ERole role = eConsole);
    std::mutex m_lock;
    std::condition_variable m_recorded;
    std::vector<DeviceEvent> m_events;
};

}  // namespace zqtest
