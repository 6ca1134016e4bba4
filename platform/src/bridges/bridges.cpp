// The simulated HID-to-UART bridges: the HidUart_* functions over a table of bridges that
// tests and the host add and remove, each with its strings, its UART and the microphone
// firmware behind it.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "../faults/call_faults.h"
#include "../hidraw/hidraw_bridges.h"
#include "bridge_backend.h"
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

constexpr uint8_t kVersionQuery = 0x03;
constexpr DWORD kDefaultBaudRate = 115200;  // a bridge's UART after it is opened
constexpr DWORD kDefaultWriteTimeoutMs = 1000;
constexpr size_t kMaxRecordedCalls = 1 << 16;

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
    std::map<uintptr_t, std::shared_ptr<Bridge>> handles;
    uintptr_t nextHandle = 0x10;
    BridgeId nextId = 1;
    BridgeTiming timing = BridgeTiming::RealTime;
    std::deque<std::string> calls;
};

Bridges& TheBridges() {
    static Bridges* bridges = new Bridges;  // reachable to the end: threads may still call in
    return *bridges;
}

// Caller holds the lock.
void Record(Bridges& b, const char* function, const std::string& args, int status) {
    char tail[16];
    std::snprintf(tail, sizeof(tail), " -> 0x%02X", static_cast<unsigned>(status) & 0xFFu);
    if (b.calls.size() == kMaxRecordedCalls) b.calls.pop_front();
    b.calls.push_back(std::string(function) + "(" + args + ")" + tail);
}

std::string Numbers(std::initializer_list<uint64_t> values) {
    std::string out;
    for (uint64_t v : values) {
        if (!out.empty()) out += ", ";
        out += std::to_string(v);
    }
    return out;
}

std::string Hex(const BYTE* data, size_t size) {
    std::string out;
    char byte[4];
    for (size_t i = 0; i < size; ++i) {
        std::snprintf(byte, sizeof(byte), i == 0 ? "%02X" : " %02X", data[i]);
        out += byte;
    }
    return out;
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

// Caller holds the lock. Null with the status to return for a handle that cannot be used.
std::shared_ptr<Bridge> Use(Bridges& b, HID_UART_DEVICE device, int& status) {
    auto it = b.handles.find(reinterpret_cast<uintptr_t>(device));
    if (it == b.handles.end()) {
        status = HID_UART_INVALID_DEVICE_OBJECT;
        return nullptr;
    }
    if (!it->second->state.present) {
        status = HID_UART_DEVICE_IO_FAILED;
        return nullptr;
    }
    status = HID_UART_SUCCESS;
    return it->second;
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

}  // namespace

extern "C" {

HID_UART_STATUS HidUart_GetNumDevices(DWORD* numDevices, WORD vid, WORD pid) {
    if (zqplatform::bridges::HidrawChosen()) return zqplatform::hidraw::GetNumDevices(numDevices, vid, pid);
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("HidUart_GetNumDevices", fault)) {
        Record(b, "HidUart_GetNumDevices", "injected", static_cast<int>(fault));
        return static_cast<HID_UART_STATUS>(fault);
    }
    int status = HID_UART_SUCCESS;
    if (numDevices == nullptr) {
        status = HID_UART_INVALID_PARAMETER;
    } else {
        *numDevices = static_cast<DWORD>(std::count_if(b.present.begin(), b.present.end(),
                                                       [&](const auto& br) { return Matches(*br, vid, pid); }));
    }
    Record(b, "HidUart_GetNumDevices", Numbers({vid, pid}), status);
    return status;
}

HID_UART_STATUS HidUart_GetString(DWORD deviceNum, WORD vid, WORD pid, char* deviceString, DWORD options) {
    if (zqplatform::bridges::HidrawChosen()) return zqplatform::hidraw::GetString(deviceNum, vid, pid, deviceString, options);
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("HidUart_GetString", fault)) {
        Record(b, "HidUart_GetString", "injected", static_cast<int>(fault));
        return static_cast<HID_UART_STATUS>(fault);
    }
    int status = HID_UART_SUCCESS;
    std::shared_ptr<Bridge> bridge = Find(b, deviceNum, vid, pid);
    if (deviceString == nullptr || options < HID_UART_GET_VID_STR || options > HID_UART_GET_PRODUCT_STR) {
        status = HID_UART_INVALID_PARAMETER;
    } else if (!bridge) {
        status = HID_UART_DEVICE_NOT_FOUND;
    } else if (const BridgeString* s = StringFor(bridge->description, options)) {
        status = s->status;
        if (status == HID_UART_SUCCESS || s->writtenOnFailure) WriteString(deviceString, s->bytes);
    } else {
        char text[64];
        if (options == HID_UART_GET_PATH_STR) {
            std::snprintf(text, sizeof(text), "zqvm:hid-uart:%llu", static_cast<unsigned long long>(bridge->id));
        } else {
            std::snprintf(text, sizeof(text), "%04X", options == HID_UART_GET_VID_STR ? bridge->description.vid
                                                                                       : bridge->description.pid);
        }
        WriteString(deviceString, text);
    }
    Record(b, "HidUart_GetString", Numbers({deviceNum, vid, pid, options}), status);
    return status;
}

HID_UART_STATUS HidUart_Open(HID_UART_DEVICE* device, DWORD deviceNum, WORD vid, WORD pid) {
    if (zqplatform::bridges::HidrawChosen()) return zqplatform::hidraw::Open(device, deviceNum, vid, pid);
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("HidUart_Open", fault)) {
        Record(b, "HidUart_Open", "injected", static_cast<int>(fault));
        return static_cast<HID_UART_STATUS>(fault);
    }
    int status = HID_UART_SUCCESS;
    std::shared_ptr<Bridge> bridge = Find(b, deviceNum, vid, pid);
    if (device == nullptr) {
        status = HID_UART_INVALID_PARAMETER;
    } else if (!bridge) {
        status = HID_UART_DEVICE_NOT_FOUND;
    } else if (bridge->description.openStatus != HID_UART_SUCCESS) {
        status = bridge->description.openStatus;
    } else if (bridge->state.open) {
        status = HID_UART_DEVICE_ACCESS_ERROR;  // one handle per bridge, as with the HID driver
    } else {
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
        const uintptr_t handle = b.nextHandle;
        b.nextHandle += 0x10;
        b.handles[handle] = bridge;
        *device = reinterpret_cast<HID_UART_DEVICE>(handle);
    }
    Record(b, "HidUart_Open", Numbers({deviceNum, vid, pid}), status);
    return status;
}

HID_UART_STATUS HidUart_Close(HID_UART_DEVICE device) {
    if (zqplatform::bridges::HidrawChosen()) return zqplatform::hidraw::Close(device);
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    int status = HID_UART_SUCCESS;
    auto it = b.handles.find(reinterpret_cast<uintptr_t>(device));
    if (it == b.handles.end()) {
        status = HID_UART_INVALID_DEVICE_OBJECT;
    } else {
        Bridge& bridge = *it->second;
        bridge.state.open = false;
        ++bridge.state.closes;
        bridge.pending.clear();
        b.handles.erase(it);
        b.changed.notify_all();
        // An injected failure is reported after the handle was freed, as the driver frees it anyway.
        if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("HidUart_Close", fault)) status = static_cast<int>(fault);
    }
    Record(b, "HidUart_Close", "", status);
    return status;
}

HID_UART_STATUS HidUart_SetUartConfig(HID_UART_DEVICE device, DWORD baudRate, BYTE dataBits, BYTE parity,
                                      BYTE stopBits, BYTE flowControl) {
    if (zqplatform::bridges::HidrawChosen()) {
        return zqplatform::hidraw::SetUartConfig(device, baudRate, dataBits, parity, stopBits, flowControl);
    }
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("HidUart_SetUartConfig", fault)) {
        Record(b, "HidUart_SetUartConfig", "injected", static_cast<int>(fault));
        return static_cast<HID_UART_STATUS>(fault);
    }
    int status = HID_UART_SUCCESS;
    std::shared_ptr<Bridge> bridge = Use(b, device, status);
    if (bridge) {
        if (bridge->description.configStatus != HID_UART_SUCCESS) {
            status = bridge->description.configStatus;
        } else if (baudRate < 300 || baudRate > 1000000 || dataBits > HID_UART_EIGHT_DATA_BITS ||
                   parity > HID_UART_SPACE_PARITY || stopBits > HID_UART_LONG_STOP_BIT ||
                   flowControl > HID_UART_RTS_CTS_FLOW_CONTROL) {
            status = HID_UART_INVALID_PARAMETER;
        } else {
            BridgeState& s = bridge->state;
            s.baudRate = baudRate;
            s.dataBits = dataBits;
            s.parity = parity;
            s.stopBits = stopBits;
            s.flowControl = flowControl;
        }
    }
    Record(b, "HidUart_SetUartConfig", Numbers({baudRate, dataBits, parity, stopBits, flowControl}), status);
    return status;
}

HID_UART_STATUS HidUart_GetTimeouts(HID_UART_DEVICE device, DWORD* readTimeout, DWORD* writeTimeout) {
    if (zqplatform::bridges::HidrawChosen()) return zqplatform::hidraw::GetTimeouts(device, readTimeout, writeTimeout);
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("HidUart_GetTimeouts", fault)) {
        Record(b, "HidUart_GetTimeouts", "injected", static_cast<int>(fault));
        return static_cast<HID_UART_STATUS>(fault);
    }
    int status = HID_UART_SUCCESS;
    std::shared_ptr<Bridge> bridge = Use(b, device, status);
    if (bridge) {
        if (readTimeout == nullptr || writeTimeout == nullptr) {
            status = HID_UART_INVALID_PARAMETER;
        } else if (bridge->description.getTimeoutsStatus != HID_UART_SUCCESS) {
            status = bridge->description.getTimeoutsStatus;
        } else {
            *readTimeout = bridge->state.readTimeoutMs;
            *writeTimeout = bridge->state.writeTimeoutMs;
        }
    }
    Record(b, "HidUart_GetTimeouts", "", status);
    return status;
}

HID_UART_STATUS HidUart_SetTimeouts(HID_UART_DEVICE device, DWORD readTimeout, DWORD writeTimeout) {
    if (zqplatform::bridges::HidrawChosen()) return zqplatform::hidraw::SetTimeouts(device, readTimeout, writeTimeout);
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("HidUart_SetTimeouts", fault)) {
        Record(b, "HidUart_SetTimeouts", "injected", static_cast<int>(fault));
        return static_cast<HID_UART_STATUS>(fault);
    }
    int status = HID_UART_SUCCESS;
    std::shared_ptr<Bridge> bridge = Use(b, device, status);
    if (bridge) {
        if (bridge->description.setTimeoutsStatus != HID_UART_SUCCESS) {
            status = bridge->description.setTimeoutsStatus;
        } else {
            bridge->state.readTimeoutMs = readTimeout;
            bridge->state.writeTimeoutMs = writeTimeout;
        }
    }
    Record(b, "HidUart_SetTimeouts", Numbers({readTimeout, writeTimeout}), status);
    return status;
}

HID_UART_STATUS HidUart_Write(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToWrite, DWORD* numBytesWritten) {
    if (zqplatform::bridges::HidrawChosen()) return zqplatform::hidraw::Write(device, buffer, numBytesToWrite, numBytesWritten);
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("HidUart_Write", fault)) {
        Record(b, "HidUart_Write", "injected", static_cast<int>(fault));
        return static_cast<HID_UART_STATUS>(fault);
    }
    int status = HID_UART_SUCCESS;
    std::shared_ptr<Bridge> bridge = Use(b, device, status);
    const bool lengthOk = numBytesToWrite >= 1 && numBytesToWrite <= HID_UART_MAX_WRITE_SIZE;
    if (bridge) {
        if (buffer == nullptr || numBytesWritten == nullptr) {
            status = HID_UART_INVALID_PARAMETER;
        } else if (!lengthOk) {
            status = HID_UART_INVALID_REQUEST_LENGTH;
        } else if (bridge->description.writeStatus != HID_UART_SUCCESS) {
            *numBytesWritten = 0;
            status = bridge->description.writeStatus;
        } else {
            const bool understood = FirmwareUnderstands(*bridge);
            for (DWORD i = 0; i < numBytesToWrite; ++i) {
                bridge->state.received.push_back(buffer[i]);
                if (understood && buffer[i] == kVersionQuery) {
                    const auto& reply = bridge->description.versionReply;
                    bridge->pending.insert(bridge->pending.end(), reply.begin(), reply.end());
                }
            }
            *numBytesWritten = numBytesToWrite;
        }
    }
    const bool showData = buffer != nullptr && lengthOk;
    Record(b, "HidUart_Write", showData ? Hex(buffer, numBytesToWrite) : Numbers({numBytesToWrite}), status);
    return status;
}

HID_UART_STATUS HidUart_Read(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToRead, DWORD* numBytesRead) {
    if (zqplatform::bridges::HidrawChosen()) return zqplatform::hidraw::Read(device, buffer, numBytesToRead, numBytesRead);
    Bridges& b = TheBridges();
    std::unique_lock<std::mutex> lock(b.mutex);
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("HidUart_Read", fault)) {
        Record(b, "HidUart_Read", "injected", static_cast<int>(fault));
        return static_cast<HID_UART_STATUS>(fault);
    }
    int status = HID_UART_SUCCESS;
    std::shared_ptr<Bridge> bridge = Use(b, device, status);
    if (bridge) {
        if (buffer == nullptr || numBytesRead == nullptr) {
            status = HID_UART_INVALID_PARAMETER;
        } else if (numBytesToRead < 1 || numBytesToRead > HID_UART_MAX_READ_SIZE) {
            status = HID_UART_INVALID_REQUEST_LENGTH;
        } else if (bridge->description.readStatus != HID_UART_SUCCESS) {
            *numBytesRead = 0;
            status = bridge->description.readStatus;
        } else {
            const size_t n = std::min<size_t>(numBytesToRead, bridge->pending.size());
            std::copy_n(bridge->pending.begin(), n, buffer);
            bridge->pending.erase(bridge->pending.begin(), bridge->pending.begin() + static_cast<ptrdiff_t>(n));
            *numBytesRead = static_cast<DWORD>(n);
            if (n < numBytesToRead) {
                // Nothing else will arrive: the firmware answers only what it is asked.
                const DWORD timeoutMs = bridge->state.readTimeoutMs;
                bridge->state.waitedMs += timeoutMs;
                if (b.timing == BridgeTiming::RealTime && timeoutMs != 0) {
                    const uintptr_t key = reinterpret_cast<uintptr_t>(device);
                    b.changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
                        return !bridge->state.present || b.handles.find(key) == b.handles.end();
                    });
                }
                status = bridge->state.present ? HID_UART_READ_TIMED_OUT : HID_UART_DEVICE_IO_FAILED;
            }
        }
    }
    Record(b, "HidUart_Read", Numbers({numBytesToRead}), status);
    return status;
}

}  // extern "C"

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

std::vector<std::string> BridgeCalls() {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    return std::vector<std::string>(b.calls.begin(), b.calls.end());
}

void ClearBridgeCalls() {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    b.calls.clear();
}

size_t BridgeOpenHandleCount() {
    Bridges& b = TheBridges();
    std::lock_guard<std::mutex> lock(b.mutex);
    return b.handles.size();
}

}  // namespace zqvm
