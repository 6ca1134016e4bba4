// An engine's list of device records, which it owns: a record goes with the list's entry, on
// Clear or with the list. No lock of its own: each engine reads and changes its list only while
// it holds its m_csDevices, and hands others the answers (count, record at, first device), never
// the list.
#pragma once

#include <memory>
#include <vector>

#include "core/OwnedCriticalSection.h"
#include "zqCoreAudio.h"

class CEngineDeviceList {
public:
    using Records = std::vector<std::unique_ptr<CWMAudioDevice>>;

    void Add(std::unique_ptr<CWMAudioDevice> record) { m_records.push_back(std::move(record)); }
    // The storage the core object's microphone list appends its copies to.
    Records& Storage() { return m_records; }
    void Clear() { m_records.clear(); }
    size_t Count() const { return m_records.size(); }
    // The record at index; null out of range, a negative index included. It stays the list's.
    CWMAudioDevice* At(int index) const {
        // Compared as unsigned, so a negative index is out of range too.
        if (static_cast<size_t>(static_cast<unsigned int>(index)) >= m_records.size()) return nullptr;
        return m_records[static_cast<unsigned int>(index)].get();
    }
    // The first record's endpoint; null for an empty list.
    IMMDevice* FirstDevice() const { return m_records.empty() ? nullptr : m_records.front()->GetDevice(); }

private:
    Records m_records;
};

// What each engine answers about its device list, each read under its m_csDevices, which also
// guards the opening and closing of the engine's stream.
class CEngineDevices {
public:
    unsigned int DeviceCount() {
        COwnedCriticalSection::scoped_lock lock(m_csDevices);
        return static_cast<unsigned int>(m_Devices.Count());
    }
    CWMAudioDevice* DeviceAt(int index) {
        COwnedCriticalSection::scoped_lock lock(m_csDevices);
        return m_Devices.At(index);
    }
    IMMDevice* FirstDevice() {
        COwnedCriticalSection::scoped_lock lock(m_csDevices);
        return m_Devices.FirstDevice();
    }

protected:
    CEngineDevices() = default;
    ~CEngineDevices() = default;

    CEngineDeviceList m_Devices;
    COwnedCriticalSection m_csDevices;
};
