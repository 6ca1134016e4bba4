// Unplugging and plugging in again one of the maker's microphones on the virtual machine.
//
// On a real machine pulling the microphone's USB cable takes away both its HID-to-UART bridge
// and its capture endpoint; here the host does both through the platform's control API: the
// bridge is removed and the endpoint marked not present, and plugging in adds the same bridge
// again and makes the endpoint active. The library hears of it from the engine's notification
// thread and tells the host by window message. Host's thread only; COM initialised on it.
#pragma once

#include <string>

#include "zqCoreAudio.h"
#include "zqplatform/vm/bridges.h"

namespace zqhost {

class SimulatedMicrophone {
public:
    // Unplugs the bridge with that serial number (empty: the first bridge listed); plugging in
    // again adds the same bridge, with the same strings, firmware and container.
    bool Unplug(const std::string& serial, std::string* error);
    bool Replug(std::string* error);
    bool IsUnplugged() const { return m_unplugged; }
    const std::string& Serial() const { return m_serial; }

private:
    bool m_unplugged = false;
    std::string m_serial;
    zqvm::BridgeDescription m_description;
    std::wstring m_endpointId;  // empty for a microphone without a paired endpoint
};

}  // namespace zqhost
