// The fixture of the pulse backend's interface tests: the test server required, COM joined,
// the pulse backend chosen, and small helpers over the Core Audio interfaces.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "pulse_test_support.h"
#include "zqPlatform.h"
#include "zqplatform/vm/audio_backend.h"

namespace zqtest::pulse {

class PulseTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    CComPtr<IMMDevice> Device(const std::wstring& id);
    std::vector<std::wstring> ActiveIds(EDataFlow flow);
    static std::wstring FriendlyName(IMMDevice* device);
    static GUID Container(IMMDevice* device);
    // The fake sysfs tree's USB device behind port n (scripts/pulse-server).
    static std::string UsbFolder(int port);

    CComPtr<IMMDeviceEnumerator> enumerator;
    bool comJoined = false;
};

// Records the notification callbacks as one line each ("added kv1_mic", "state kv1_mic 4",
// "removed kv1_mic", "default 0 1 speaker44"), and the thread each came on.
class RecordingClient : public IMMNotificationClient {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }  // lives on the test's stack
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR id, DWORD state) override;
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }

    // Waits (bounded) until the line was recorded.
    bool WaitFor(const std::wstring& line, int timeoutMs = 5000);
    std::vector<std::wstring> Lines();
    bool AllOnOtherThreads();
    // Called inside OnDeviceAdded, on the notification thread.
    std::function<void(const std::wstring& id)> onAdded;

private:
    void Note(std::wstring line);
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::wstring> m_lines;
    bool m_onTestThread = false;
    std::thread::id m_testThread = std::this_thread::get_id();
};

}  // namespace zqtest::pulse
