// The core's list of the maker's microphones. One lock serialises every change and read of the
// list, because the notification thread changes it while the host's thread reads it.
#include "zqCoreAudio.h"

void CZQCoreAudio::ClearDeviceZQ() {
    LogInfo(L"CoreAudio: ClearDeviceZQ ...");
    Concurrency::critical_section::scoped_lock lock(m_csHidDevices);
    // Records the host marked as being edited survive, in their order: the host may still hold
    // any of them. Every other record is deleted.
    std::vector<CWMAudioDevice*> kept;
    for (CWMAudioDevice* device : m_vecHidDevices) {
        if (device->IsEditNow()) {
            kept.push_back(device);
        } else {
            delete device;
        }
    }
    m_vecHidDevices.swap(kept);
}

unsigned int CZQCoreAudio::GetHidCaptureDeviceCount() {
    Concurrency::critical_section::scoped_lock lock(m_csHidDevices);
    return static_cast<unsigned int>(m_vecHidDevices.size());
}

CWMAudioDevice* CZQCoreAudio::GetHidCaptureDevice(int nIndex) {
    Concurrency::critical_section::scoped_lock lock(m_csHidDevices);
    if (nIndex < 0 || static_cast<size_t>(nIndex) >= m_vecHidDevices.size()) return nullptr;
    return m_vecHidDevices[static_cast<size_t>(nIndex)];
}

size_t CZQCoreAudio::CopyMicrophones(std::vector<std::unique_ptr<CWMAudioDevice>>& list) {
    Concurrency::critical_section::scoped_lock lock(m_csHidDevices);
    for (CWMAudioDevice* microphone : m_vecHidDevices) {
        if (microphone != nullptr) list.push_back(std::make_unique<CWMAudioDevice>(*microphone));
    }
    return m_vecHidDevices.size();
}
