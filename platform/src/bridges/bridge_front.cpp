// The bridge library's entry points: each HidUart_* function takes an armed failure, checks its
// arguments, dispatches to a backend (bridge_ops.h) and logs the call, in that order and once
// for every backend. The handles handed out here name their backend, so a call on a handle goes
// to the backend that opened it whichever backend is chosen by then.
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <string>

#include "../faults/call_faults.h"
#include "bridge_backend.h"
#include "bridge_ops.h"
#include "zqplatform/vm/bridges.h"

namespace {

using zqplatform::bridges::BackendHandle;
using zqplatform::bridges::BridgeOps;

constexpr size_t kMaxRecordedCalls = 1 << 16;

struct Opened {
    const BridgeOps* ops = nullptr;
    BackendHandle handle = 0;
};

struct FrontEnd {
    std::mutex mutex;
    std::map<uintptr_t, Opened> handles;
    uintptr_t nextHandle = 0x10;
    std::deque<std::string> calls;
};

FrontEnd& TheFrontEnd() {
    static FrontEnd* front = new FrontEnd;  // reachable to the end: threads may still call in
    return *front;
}

void Record(const char* function, const std::string& args, HID_UART_STATUS status) {
    char tail[16];
    std::snprintf(tail, sizeof(tail), " -> 0x%02X", static_cast<unsigned>(status) & 0xFFu);
    FrontEnd& front = TheFrontEnd();
    std::lock_guard<std::mutex> lock(front.mutex);
    if (front.calls.size() == kMaxRecordedCalls) front.calls.pop_front();
    front.calls.push_back(std::string(function) + "(" + args + ")" + tail);
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

// An armed failure first, then the call; either way the call is logged with its outcome.
template <class Call>
HID_UART_STATUS Logged(const char* function, const std::string& args, Call call) {
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure(function, fault)) {
        Record(function, "injected", static_cast<HID_UART_STATUS>(fault));
        return static_cast<HID_UART_STATUS>(fault);
    }
    const HID_UART_STATUS status = call();
    Record(function, args, status);
    return status;
}

bool Find(HID_UART_DEVICE device, Opened& opened) {
    FrontEnd& front = TheFrontEnd();
    std::lock_guard<std::mutex> lock(front.mutex);
    const auto it = front.handles.find(reinterpret_cast<uintptr_t>(device));
    if (it == front.handles.end()) return false;
    opened = it->second;
    return true;
}

// A call on an opened bridge: an unknown handle is refused before its arguments are looked at.
template <class Call>
HID_UART_STATUS OnHandle(const char* function, HID_UART_DEVICE device, const std::string& args, Call call) {
    return Logged(function, args, [&] {
        Opened opened;
        if (!Find(device, opened)) return static_cast<HID_UART_STATUS>(HID_UART_INVALID_DEVICE_OBJECT);
        return call(*opened.ops, opened.handle);
    });
}

bool ValidOption(DWORD option) { return option >= HID_UART_GET_VID_STR && option <= HID_UART_GET_PRODUCT_STR; }

bool ValidConfig(const zqplatform::bridges::UartConfig& c) {
    return c.baudRate >= 300 && c.baudRate <= 1000000 && c.dataBits <= HID_UART_EIGHT_DATA_BITS &&
           c.parity <= HID_UART_SPACE_PARITY && c.stopBits <= HID_UART_LONG_STOP_BIT &&
           c.flowControl <= HID_UART_RTS_CTS_FLOW_CONTROL;
}

bool WriteLengthOk(DWORD count) { return count >= 1 && count <= HID_UART_MAX_WRITE_SIZE; }
bool ReadLengthOk(DWORD count) { return count >= 1 && count <= HID_UART_MAX_READ_SIZE; }

}  // namespace

extern "C" {

HID_UART_STATUS HidUart_GetNumDevices(DWORD* numDevices, WORD vid, WORD pid) {
    return Logged("HidUart_GetNumDevices", Numbers({vid, pid}), [&]() -> HID_UART_STATUS {
        if (numDevices == nullptr) return HID_UART_INVALID_PARAMETER;
        return zqplatform::bridges::ChosenBridgeOps().countDevices(vid, pid, numDevices);
    });
}

HID_UART_STATUS HidUart_GetString(DWORD deviceNum, WORD vid, WORD pid, char* deviceString, DWORD options) {
    return Logged("HidUart_GetString", Numbers({deviceNum, vid, pid, options}), [&]() -> HID_UART_STATUS {
        if (deviceString == nullptr || !ValidOption(options)) return HID_UART_INVALID_PARAMETER;
        return zqplatform::bridges::ChosenBridgeOps().getString(deviceNum, vid, pid, options, deviceString);
    });
}

HID_UART_STATUS HidUart_Open(HID_UART_DEVICE* device, DWORD deviceNum, WORD vid, WORD pid) {
    return Logged("HidUart_Open", Numbers({deviceNum, vid, pid}), [&]() -> HID_UART_STATUS {
        if (device == nullptr) return HID_UART_INVALID_PARAMETER;
        const BridgeOps& ops = zqplatform::bridges::ChosenBridgeOps();
        BackendHandle handle = 0;
        const HID_UART_STATUS status = ops.open(deviceNum, vid, pid, &handle);
        if (status != HID_UART_SUCCESS) return status;
        FrontEnd& front = TheFrontEnd();
        std::lock_guard<std::mutex> lock(front.mutex);
        const uintptr_t key = front.nextHandle;
        front.nextHandle += 0x10;
        front.handles[key] = Opened{&ops, handle};
        *device = reinterpret_cast<HID_UART_DEVICE>(key);
        return status;
    });
}

HID_UART_STATUS HidUart_Close(HID_UART_DEVICE device) {
    HID_UART_STATUS status = HID_UART_SUCCESS;
    Opened opened;
    {
        FrontEnd& front = TheFrontEnd();
        std::lock_guard<std::mutex> lock(front.mutex);
        const auto it = front.handles.find(reinterpret_cast<uintptr_t>(device));
        if (it != front.handles.end()) {
            opened = it->second;
            front.handles.erase(it);
        }
    }
    if (opened.ops == nullptr) {
        status = HID_UART_INVALID_DEVICE_OBJECT;
    } else {
        opened.ops->close(opened.handle);
        // An injected failure is reported after the handle was freed, as the driver frees it anyway.
        if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("HidUart_Close", fault)) {
            status = static_cast<HID_UART_STATUS>(fault);
        }
    }
    Record("HidUart_Close", "", status);
    return status;
}

HID_UART_STATUS HidUart_SetUartConfig(HID_UART_DEVICE device, DWORD baudRate, BYTE dataBits, BYTE parity,
                                      BYTE stopBits, BYTE flowControl) {
    const zqplatform::bridges::UartConfig config{baudRate, dataBits, parity, stopBits, flowControl};
    return OnHandle("HidUart_SetUartConfig", device, Numbers({baudRate, dataBits, parity, stopBits, flowControl}),
                    [&](const BridgeOps& ops, BackendHandle handle) -> HID_UART_STATUS {
                        if (!ValidConfig(config)) return HID_UART_INVALID_PARAMETER;
                        return ops.setUartConfig(handle, config);
                    });
}

HID_UART_STATUS HidUart_GetTimeouts(HID_UART_DEVICE device, DWORD* readTimeout, DWORD* writeTimeout) {
    return OnHandle("HidUart_GetTimeouts", device, "", [&](const BridgeOps& ops, BackendHandle handle) -> HID_UART_STATUS {
        if (readTimeout == nullptr || writeTimeout == nullptr) return HID_UART_INVALID_PARAMETER;
        return ops.getTimeouts(handle, readTimeout, writeTimeout);
    });
}

HID_UART_STATUS HidUart_SetTimeouts(HID_UART_DEVICE device, DWORD readTimeout, DWORD writeTimeout) {
    return OnHandle("HidUart_SetTimeouts", device, Numbers({readTimeout, writeTimeout}),
                    [&](const BridgeOps& ops, BackendHandle handle) {
                        return ops.setTimeouts(handle, readTimeout, writeTimeout);
                    });
}

HID_UART_STATUS HidUart_Write(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToWrite, DWORD* numBytesWritten) {
    const bool lengthOk = WriteLengthOk(numBytesToWrite);
    const std::string args = buffer != nullptr && lengthOk ? Hex(buffer, numBytesToWrite) : Numbers({numBytesToWrite});
    return OnHandle("HidUart_Write", device, args, [&](const BridgeOps& ops, BackendHandle handle) -> HID_UART_STATUS {
        if (buffer == nullptr || numBytesWritten == nullptr) return HID_UART_INVALID_PARAMETER;
        if (!lengthOk) return HID_UART_INVALID_REQUEST_LENGTH;
        return ops.write(handle, buffer, numBytesToWrite, numBytesWritten);
    });
}

HID_UART_STATUS HidUart_Read(HID_UART_DEVICE device, BYTE* buffer, DWORD numBytesToRead, DWORD* numBytesRead) {
    return OnHandle("HidUart_Read", device, Numbers({numBytesToRead}),
                    [&](const BridgeOps& ops, BackendHandle handle) -> HID_UART_STATUS {
                        if (buffer == nullptr || numBytesRead == nullptr) return HID_UART_INVALID_PARAMETER;
                        if (!ReadLengthOk(numBytesToRead)) return HID_UART_INVALID_REQUEST_LENGTH;
                        return ops.read(handle, buffer, numBytesToRead, numBytesRead);
                    });
}

}  // extern "C"

namespace zqvm {

std::vector<std::string> BridgeCalls() {
    FrontEnd& front = TheFrontEnd();
    std::lock_guard<std::mutex> lock(front.mutex);
    return std::vector<std::string>(front.calls.begin(), front.calls.end());
}

void ClearBridgeCalls() {
    FrontEnd& front = TheFrontEnd();
    std::lock_guard<std::mutex> lock(front.mutex);
    front.calls.clear();
}

size_t BridgeOpenHandleCount() {
    FrontEnd& front = TheFrontEnd();
    std::lock_guard<std::mutex> lock(front.mutex);
    return front.handles.size();
}

}  // namespace zqvm
