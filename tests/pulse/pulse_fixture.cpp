#include "pulse_fixture.h"

#include <chrono>
#include <cstdlib>

namespace zqtest::pulse {

void PulseTest::SetUp() {
    ZQ_REQUIRE_PULSE_SERVER();
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    comJoined = true;
    std::string error;
    ASSERT_TRUE(zqvm::SelectAudioBackend("pulse", &error)) << error;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                     reinterpret_cast<void**>(&enumerator)));
}

void PulseTest::TearDown() {
    enumerator.Release();
    if (comJoined) CoUninitialize();
}

CComPtr<IMMDevice> PulseTest::Device(const std::wstring& id) {
    CComPtr<IMMDevice> device;
    EXPECT_EQ(S_OK, enumerator->GetDevice(id.c_str(), &device));
    return device;
}

std::vector<std::wstring> PulseTest::ActiveIds(EDataFlow flow) {
    std::vector<std::wstring> ids;
    CComPtr<IMMDeviceCollection> collection;
    if (FAILED(enumerator->EnumAudioEndpoints(flow, DEVICE_STATE_ACTIVE, &collection))) return ids;
    UINT count = 0;
    collection->GetCount(&count);
    for (UINT i = 0; i < count; ++i) {
        CComPtr<IMMDevice> device;
        LPWSTR id = nullptr;
        if (SUCCEEDED(collection->Item(i, &device)) && SUCCEEDED(device->GetId(&id))) {
            ids.emplace_back(id);
            CoTaskMemFree(id);
        }
    }
    return ids;
}

std::wstring PulseTest::FriendlyName(IMMDevice* device) {
    CComPtr<IPropertyStore> store;
    if (FAILED(device->OpenPropertyStore(STGM_READ, &store))) return {};
    PROPVARIANT value;
    if (FAILED(store->GetValue(PKEY_Device_FriendlyName, &value)) || value.vt != VT_LPWSTR) return {};
    std::wstring name = value.pwszVal;
    PropVariantClear(&value);
    return name;
}

GUID PulseTest::Container(IMMDevice* device) {
    CComPtr<IPropertyStore> store;
    GUID container{};
    PROPVARIANT value;
    if (SUCCEEDED(device->OpenPropertyStore(STGM_READ, &store)) &&
        SUCCEEDED(store->GetValue(PKEY_Device_ContainerId, &value)) && value.vt == VT_CLSID) {
        container = *value.puuid;
        PropVariantClear(&value);
    }
    return container;
}

std::string PulseTest::UsbFolder(int port) {
    const char* root = std::getenv("ZQ_SYSFS_ROOT");
    return std::string(root != nullptr ? root : "") + "/devices/pci0000:00/0000:00:14.0/usb1/1-" +
           std::to_string(port);
}

HRESULT RecordingClient::QueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IUnknown || riid == IID_IMMNotificationClient) {
        *ppv = static_cast<IMMNotificationClient*>(this);
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

HRESULT RecordingClient::OnDeviceStateChanged(LPCWSTR id, DWORD state) {
    Note(L"state " + std::wstring(id) + L" " + std::to_wstring(state));
    return S_OK;
}

HRESULT RecordingClient::OnDeviceAdded(LPCWSTR id) {
    if (onAdded) onAdded(id);
    Note(L"added " + std::wstring(id));
    return S_OK;
}

HRESULT RecordingClient::OnDeviceRemoved(LPCWSTR id) {
    Note(L"removed " + std::wstring(id));
    return S_OK;
}

HRESULT RecordingClient::OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR id) {
    Note(L"default " + std::to_wstring(flow) + L" " + std::to_wstring(role) + L" " + (id != nullptr ? id : L"(none)"));
    return S_OK;
}

void RecordingClient::Note(std::wstring line) {
    {
        std::lock_guard lock(m_mutex);
        m_lines.push_back(std::move(line));
        if (std::this_thread::get_id() == m_testThread) m_onTestThread = true;
    }
    m_changed.notify_all();
}

bool RecordingClient::WaitFor(const std::wstring& line, int timeoutMs) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return std::find(m_lines.begin(), m_lines.end(), line) != m_lines.end();
    });
}

std::vector<std::wstring> RecordingClient::Lines() {
    std::lock_guard lock(m_mutex);
    return m_lines;
}

bool RecordingClient::AllOnOtherThreads() {
    std::lock_guard lock(m_mutex);
    return !m_onTestThread;
}

}  // namespace zqtest::pulse
