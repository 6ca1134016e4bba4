// The simulated bridges' backend (bridge_ops.h): a table of bridges that tests and the host add
// and remove, each with its strings, its UART and the microphone firmware behind it.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "bridge_ops.h"
#include "instance_key.h"
#include "zqplatform/vm/bridges.h"
#include "zqplatform/vm/registry.h"
#include "zqplatform/win/winreg.h"

namespace {

using zqvm::BridgeDescription;
using zqvm::BridgeId;
using zqvm::BridgeState;
using zqvm::BridgeString;
using zqvm::BridgeTiming;
using zqplatform::bridges::BackendHandle;
using zqplatform::bridges::BridgeOps;
using zqplatform::bridges::UartConfig;

constexpr uint8_t kVersionQuery = 0x03;
constexpr DWORD kDefaultBaudRate = 115200;  // a bridge's UART after it is opened
constexpr DWORD kDefaultWriteTimeoutMs = 1000;

struct Bridge {
    BridgeId id = 0;
    BridgeDescription description;
    BridgeState state;
    std::deque<uint8_t> pending;  // sent by the firmware, not yet read
    std::wstring registryPath;    // the device instance key written for it, if any
};

struct Bridges {
    std::mutex mutex;
    std::condition_variable changed;  // a bridge was removed or a handle closed
    std::vector<std::shared_ptr<Bridge>> present;  // in listing order
    std::map<BridgeId, std::shared_ptr<Bridge>> all;
    std::map<BackendHandle, std::shared_ptr<Bridge>> handles;
    BackendHandle nextHandle = 1;
    BridgeId nextId = 1;
    BridgeTiming timing = BridgeTiming::RealTime;
};

Bridges& TheBridges() {
    static Bridges* bridges = new Bridges;  // reachable to the end: threads may still call in
    return *bridges;
}

bool Matches(const Bridge& bridge, WORD vid, WORD pid) {
    return (vid == 0 || bridge.description.vid == vid) && (pid == 0 || bridge.description.pid == pid);
}

// The deviceNum-th present bridge that passes the filter. Caller holds the lock.
std::shared_ptr<Bridge> Find(Bridges& b, DWORD deviceNum, WORD vid, WORD pid) {
    DWORD index = 0;
    for (const auto& bridge : b.present) {
        if (!Matches(*bridge, vid, pid)) continue;
        if (index == deviceNum) return bridge;
        ++index;
    }
    return nullptr;
}

// Runs call on the bridge behind an opened handle under the bridges' lock; a bridge removed since
// it was opened fails every call.
template <class Call>
HID_UART_STATUS OnBridge(BackendHandle handle, Call call) {
    Bridges& b = TheBridges();
    std::unique_lock<std::mutex> lock(b.mutex);
    const auto it = b.handles.find(handle);
    if (it == b.handles.end()) return HID_UART_INVALID_DEVICE_OBJECT;
    const std::shared_ptr<Bridge> bridge = it->second;
    if (!bridge->state.present) return HID_UART_DEVICE_IO_FAILED;
    return call(b, lock, *bridge);
}

void PublishRegistry(Bridge& bridge) {
    if (!bridge.description.containerId) return;
    bridge.registryPath = zqplatform::bridges::InstanceKeyPath(bridge.description.vid, bridge.description.pid,
                                                               bridge.description.serial.bytes);
    if (bridge.registryPath.empty()) return;
    zqplatform::bridges::PublishContainerId(bridge.registryPath, *bridge.description.containerId);
}

void WithdrawRegistry(Bridge& bridge) {
    if (!bridge.registryPath.empty()) zqvm::RegistryDeleteKey(HKEY_LOCAL_MACHINE, bridge.registryPath);
    bridge.registryPath.clear();
}

const BridgeString* StringFor(const BridgeDescription& d, DWORD option) {
    switch (option) {
        case HID_UART_GET_SERIAL_STR: return &d.serial;
        case HID_UART_GET_MANUFACTURER_STR: return &d.manufacturer;
        case HID_UART_GET_PRODUCT_STR: return &d.product;
        default: return nullptr;
    }
}

void WriteString(char* out, const std::string& bytes) {
    const size_t n = std::min<size_t>(bytes.size(), HID_UART_DEVICE_STRLEN);
    std::memcpy(out, bytes.data(), n);
    if (n < HID_UART_DEVICE_STRLEN) out[n] = '\0';
}

// The firmware hears the query only at its own speed and framing.
bool FirmwareUnderstands(const Bridge& bridge) {
    const BridgeState& s = bridge.state;
    return s.baudRate == bridge.description.firmwareBaudRate && s.dataBits == HID_UART_EIGHT_DATA_BITS &&
           s.parity == HID_UART_NO_PARITY && s.stopBits == HID_UART_SHORT_STOP_BIT;
}

namespace simulated {

HID_UART_STATUS CountDevices(WORD vid, WORD pid, DWORD* count) {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    *count = static_cast<DWORD>(
        std::count_if(b.present.begin(), b.present.end(), [&](const auto& br) { return Matches(*br, vid, pid); }));
    return HID_UART_SUCCESS;
}

HID_UART_STATUS GetString(DWORD deviceNum, WORD vid, WORD pid, DWORD option, char* text) {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    std::shared_ptr<Bridge> bridge = Find(b, deviceNum, vid, pid);
    if (!bridge) return HID_UART_DEVICE_NOT_FOUND;
    if (const BridgeString* s = StringFor(bridge->description, option)) {
        if (s->status == HID_UART_SUCCESS || s->writtenOnFailure) WriteString(text, s->bytes);
        return s->status;
    }
    char made[64];
    if (option == HID_UART_GET_PATH_STR) {
        std::snprintf(made, sizeof(made), "zqvm:hid-uart:%llu", static_cast<unsigned long long>(bridge->id));
    } else {
        std::snprintf(made, sizeof(made), "%04X",
                      option == HID_UART_GET_VID_STR ? bridge->description.vid : bridge->description.pid);
    }
    WriteString(text, made);
    return HID_UART_SUCCESS;
}

HID_UART_STATUS Open(DWORD deviceNum, WORD vid, WORD pid, BackendHandle* handle) {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    std::shared_ptr<Bridge> bridge = Find(b, deviceNum, vid, pid);
    if (!bridge) return HID_UART_DEVICE_NOT_FOUND;
    if (bridge->description.openStatus != HID_UART_SUCCESS) return bridge->description.openStatus;
    if (bridge->state.open) return HID_UART_DEVICE_ACCESS_ERROR;  // one handle per bridge, as with the HID driver
    BridgeState& s = bridge->state;
    s.open = true;
    ++s.opens;
    s.baudRate = kDefaultBaudRate;
    s.dataBits = HID_UART_EIGHT_DATA_BITS;
    s.parity = HID_UART_NO_PARITY;
    s.stopBits = HID_UART_SHORT_STOP_BIT;
    s.flowControl = HID_UART_NO_FLOW_CONTROL;
    s.readTimeoutMs = 0;
    s.writeTimeoutMs = kDefaultWriteTimeoutMs;
    bridge->pending.clear();
    *handle = b.nextHandle++;
    b.handles[*handle] = bridge;
    return HID_UART_SUCCESS;
}

void Close(BackendHandle handle) {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    const auto it = b.handles.find(handle);
    if (it == b.handles.end()) return;
    Bridge& bridge = *it->second;
    bridge.state.open = false;
    ++bridge.state.closes;
    bridge.pending.clear();
    b.handles.erase(it);
    b.changed.notify_all();
}

HID_UART_STATUS SetUartConfig(BackendHandle handle, const UartConfig& config) {
    return OnBridge(handle, [&](Bridges&, std::unique_lock<std::mutex>&, Bridge& bridge) -> HID_UART_STATUS {
        if (bridge.description.configStatus != HID_UART_SUCCESS) return bridge.description.configStatus;
        BridgeState& s = bridge.state;
        s.baudRate = config.baudRate;
        s.dataBits = config.dataBits;
        s.parity = config.parity;
        s.stopBits = config.stopBits;
        s.flowControl = config.flowControl;
        return HID_UART_SUCCESS;
    });
}

HID_UART_STATUS GetTimeouts(BackendHandle handle, DWORD* readMs, DWORD* writeMs) {
    return OnBridge(handle, [&](Bridges&, std::unique_lock<std::mutex>&, Bridge& bridge) -> HID_UART_STATUS {
        if (bridge.description.getTimeoutsStatus != HID_UART_SUCCESS) return bridge.description.getTimeoutsStatus;
        *readMs = bridge.state.readTimeoutMs;
        *writeMs = bridge.state.writeTimeoutMs;
        return HID_UART_SUCCESS;
    });
}

HID_UART_STATUS SetTimeouts(BackendHandle handle, DWORD readMs, DWORD writeMs) {
    return OnBridge(handle, [&](Bridges&, std::unique_lock<std::mutex>&, Bridge& bridge) -> HID_UART_STATUS {
        if (bridge.description.setTimeoutsStatus != HID_UART_SUCCESS) return bridge.description.setTimeoutsStatus;
        bridge.state.readTimeoutMs = readMs;
        bridge.state.writeTimeoutMs = writeMs;
        return HID_UART_SUCCESS;
    });
}

HID_UART_STATUS Write(BackendHandle handle, const BYTE* buffer, DWORD count, DWORD* written) {
    return OnBridge(handle, [&](Bridges&, std::unique_lock<std::mutex>&, Bridge& bridge) -> HID_UART_STATUS {
        if (bridge.description.writeStatus != HID_UART_SUCCESS) {
            *written = 0;
            return bridge.description.writeStatus;
        }
        const bool understood = FirmwareUnderstands(bridge);
        for (DWORD i = 0; i < count; ++i) {
            bridge.state.received.push_back(buffer[i]);
            if (understood && buffer[i] == kVersionQuery) {
                const auto& reply = bridge.description.versionReply;
                bridge.pending.insert(bridge.pending.end(), reply.begin(), reply.end());
            }
        }
        *written = count;
        return HID_UART_SUCCESS;
    });
}

HID_UART_STATUS Read(BackendHandle handle, BYTE* buffer, DWORD count, DWORD* read) {
    return OnBridge(handle, [&](Bridges& b, std::unique_lock<std::mutex>& lock, Bridge& bridge) -> HID_UART_STATUS {
        if (bridge.description.readStatus != HID_UART_SUCCESS) {
            *read = 0;
            return bridge.description.readStatus;
        }
        const size_t n = std::min<size_t>(count, bridge.pending.size());
        std::copy_n(bridge.pending.begin(), n, buffer);
        bridge.pending.erase(bridge.pending.begin(), bridge.pending.begin() + static_cast<ptrdiff_t>(n));
        *read = static_cast<DWORD>(n);
        if (n == count) return HID_UART_SUCCESS;
        // Nothing else will arrive: the firmware answers only what it is asked.
        const DWORD timeoutMs = bridge.state.readTimeoutMs;
        bridge.state.waitedMs += timeoutMs;
        if (b.timing == BridgeTiming::RealTime && timeoutMs != 0) {
            b.changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
                return !bridge.state.present || b.handles.find(handle) == b.handles.end();
            });
        }
        return bridge.state.present ? HID_UART_READ_TIMED_OUT : HID_UART_DEVICE_IO_FAILED;
    });
}

}  // namespace simulated

}  // namespace

namespace zqplatform::bridges {

const BridgeOps& SimulatedBridgeOps() {
    static const BridgeOps ops{&simulated::CountDevices, &simulated::GetString,     &simulated::Open,
                               &simulated::Close,        &simulated::SetUartConfig, &simulated::GetTimeouts,
                               &simulated::SetTimeouts,  &simulated::Write,         &simulated::Read};
    return ops;
}

}  // namespace zqplatform::bridges

namespace zqvm {

BridgeId AddBridge(const BridgeDescription& description) {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    auto bridge = std::make_shared<Bridge>();
    bridge->id = b.nextId++;
    bridge->description = description;
    bridge->state.present = true;
    PublishRegistry(*bridge);
    b.present.push_back(bridge);
    b.all[bridge->id] = bridge;
    return bridge->id;
}

bool RemoveBridge(BridgeId id) {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    auto it = std::find_if(b.present.begin(), b.present.end(), [&](const auto& br) { return br->id == id; });
    if (it == b.present.end()) return false;
    (*it)->state.present = false;
    WithdrawRegistry(**it);
    b.present.erase(it);
    b.changed.notify_all();
    return true;
}

void RemoveAllBridges() {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    for (auto& bridge : b.present) {
        bridge->state.present = false;
        WithdrawRegistry(*bridge);
    }
    b.present.clear();
    b.changed.notify_all();
}

std::vector<PresentBridge> PresentBridges() {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    std::vector<PresentBridge> out;
    out.reserve(b.present.size());
    for (const auto& bridge : b.present) out.push_back({bridge->id, bridge->description});
    return out;
}

bool ChangeBridge(BridgeId id, const BridgeDescription& description) {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    auto it = std::find_if(b.present.begin(), b.present.end(), [&](const auto& br) { return br->id == id; });
    if (it == b.present.end()) return false;
    WithdrawRegistry(**it);
    (*it)->description = description;
    PublishRegistry(**it);
    return true;
}

void SetBridgeTiming(BridgeTiming timing) {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    b.timing = timing;
}

BridgeTiming GetBridgeTiming() {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    return b.timing;
}

std::optional<BridgeState> GetBridgeState(BridgeId id) {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    auto it = b.all.find(id);
    if (it == b.all.end()) return std::nullopt;
    return it->second->state;
}

}  // namespace zqvm
