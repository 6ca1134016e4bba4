// libFuzzer target: the texts microphone discovery reads from the machine. From one input it
// takes bridge string buffers of up to 260 bytes with or without a NUL, simulated bridges that
// report such strings with any status, a registry "ContainerID" value of any type, length and
// content under a serial number taken from a bridge, and container identifier texts of any
// characters; each is checked against what the helpers promise, in the "C" locale and in a
// UTF-8 one alike.
#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "devices/MicrophoneIdentity.h"
#include "zqCoreAudio.h"
#include "zqplatform/vm/bridges.h"
#include "zqplatform/vm/registry.h"

namespace {

[[noreturn]] void Fail(const char* what, const char* file, int line) {
    std::fprintf(stderr, "bridge_strings_fuzz: check failed: %s (%s:%d)\n", what, file, line);
    std::abort();
}
#define FUZZ_CHECK(condition) ((condition) ? static_cast<void>(0) : Fail(#condition, __FILE__, __LINE__))

constexpr wchar_t kUsbKey[] = L"SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_10C4&PID_EAB0\\";
constexpr size_t kValueBytes = MAX_PATH * sizeof(wchar_t);  // the reader's buffer

// ---- bridge string buffers ----

// The text BridgeTextToWide must give for these bytes: up to the first NUL or the end, read as
// UTF-8 whatever the locale. ASCII bytes are their own characters; a text without U+FFFD (no
// byte failed to decode) spells exactly those bytes in UTF-8.
void CheckBridgeText(const char* bytes, size_t size, const CStringW& text) {
    const size_t textBytes = bytes == nullptr ? 0 : strnlen(bytes, size);
    FUZZ_CHECK(text.GetLength() >= 0 && static_cast<size_t>(text.GetLength()) <= textBytes);
    FUZZ_CHECK(std::wcslen(text.GetString()) == static_cast<size_t>(text.GetLength()));  // no NUL inside
    bool ascii = true;
    for (size_t i = 0; i < textBytes; ++i) ascii = ascii && static_cast<unsigned char>(bytes[i]) < 0x80;
    if (ascii) {
        FUZZ_CHECK(static_cast<size_t>(text.GetLength()) == textBytes);
        for (size_t i = 0; i < textBytes; ++i) {
            FUZZ_CHECK(text[static_cast<int>(i)] == static_cast<wchar_t>(static_cast<unsigned char>(bytes[i])));
        }
    }
    if (text.Find(L'\uFFFD') < 0) FUZZ_CHECK(text.ToUtf8() == std::string(bytes == nullptr ? "" : bytes, textBytes));
    if (textBytes > 0) FUZZ_CHECK(!text.IsEmpty());
}

// A buffer of exactly `size` bytes on the heap, so that reading one byte past it is caught.
void FuzzBridgeBuffer(FuzzedDataProvider& fdp) {
    const size_t size = fdp.ConsumeBool() ? HID_UART_DEVICE_STRLEN : fdp.ConsumeIntegralInRange<size_t>(0, 300);
    const std::vector<char> bytes = fdp.ConsumeBytes<char>(size);
    std::unique_ptr<char[]> buffer(new char[bytes.size() == 0 ? 1 : bytes.size()]);
    if (!bytes.empty()) std::memcpy(buffer.get(), bytes.data(), bytes.size());
    CheckBridgeText(buffer.get(), bytes.size(), BridgeTextToWide(buffer.get(), bytes.size()));
    FUZZ_CHECK(BridgeTextToWide(nullptr, bytes.size()).IsEmpty());
}

// ---- simulated bridges ----

zqvm::BridgeString FuzzBridgeString(FuzzedDataProvider& fdp) {
    static const int kStatuses[] = {HID_UART_SUCCESS, HID_UART_READ_TIMED_OUT, HID_UART_DEVICE_IO_FAILED,
                                    HID_UART_DEVICE_NOT_FOUND, HID_UART_UNKNOWN_ERROR};
    const int status = fdp.PickValueInArray(kStatuses);
    const bool written = fdp.ConsumeBool();
    const size_t length = fdp.ConsumeBool() ? HID_UART_DEVICE_STRLEN + fdp.ConsumeIntegralInRange<size_t>(0, 8)
                                            : fdp.ConsumeIntegralInRange<size_t>(0, 64);
    return zqvm::BridgeString(fdp.ConsumeBytesAsString(length), status, written);
}

// What HidUart_GetString leaves in the caller's buffer, as discovery reads it.
CStringW ExpectedBridgeText(const zqvm::BridgeString& s) {
    if (s.status != HID_UART_SUCCESS && !s.writtenOnFailure) return CStringW();
    char buffer[HID_UART_DEVICE_STRLEN] = {};
    std::memcpy(buffer, s.bytes.data(), std::min<size_t>(s.bytes.size(), sizeof(buffer)));
    return BridgeTextToWide(buffer, sizeof(buffer));
}

// Gives the one simulated bridge fuzzed strings, reads them back through discovery's reader
// and returns the serial number it read. The bridge is added once and changed for each input:
// the machine remembers every bridge ever added, so adding one per input would only grow.
CStringW FuzzBridge(FuzzedDataProvider& fdp, zqvm::BridgeId bridge) {
    zqvm::BridgeDescription d;
    d.manufacturer = FuzzBridgeString(fdp);
    d.product = FuzzBridgeString(fdp);
    d.serial = FuzzBridgeString(fdp);
    FUZZ_CHECK(zqvm::ChangeBridge(bridge, d));

    const struct {
        DWORD option;
        const zqvm::BridgeString* string;
    } reads[] = {{HID_UART_GET_MANUFACTURER_STR, &d.manufacturer},
                 {HID_UART_GET_PRODUCT_STR, &d.product},
                 {HID_UART_GET_SERIAL_STR, &d.serial}};
    CStringW serial;
    for (const auto& r : reads) {
        CStringW text = L"stale";
        FUZZ_CHECK(ReadBridgeString(0, r.option, text) == r.string->status);
        FUZZ_CHECK(text == ExpectedBridgeText(*r.string));
        if (r.option == HID_UART_GET_SERIAL_STR) serial = text;
    }
    CStringW text = L"stale";
    FUZZ_CHECK(ReadBridgeString(1, HID_UART_GET_SERIAL_STR, text) == HID_UART_DEVICE_NOT_FOUND);
    FUZZ_CHECK(text.IsEmpty());
    FUZZ_CHECK(zqvm::BridgeOpenHandleCount() == 0);
    zqvm::ClearBridgeCalls();
    return serial;
}

// ---- the registry's container identifier value ----

// Value bytes: a text in the platform's wide characters with or without its NUL and with a
// few stray bytes, or any bytes at all, short or around the reader's buffer size.
std::vector<uint8_t> FuzzValueBytes(FuzzedDataProvider& fdp) {
    std::vector<uint8_t> bytes;
    if (fdp.ConsumeBool()) {
        const size_t chars = fdp.ConsumeBool() ? fdp.ConsumeIntegralInRange<size_t>(0, 40)
                                               : fdp.ConsumeIntegralInRange<size_t>(MAX_PATH - 3, MAX_PATH + 2);
        std::wstring text;
        for (size_t i = 0; i < chars; ++i) {
            text += fdp.ConsumeBool() ? static_cast<wchar_t>(fdp.PickValueInArray({L'{', L'}', L'-', L'0', L'a', L'F'}))
                                      : static_cast<wchar_t>(fdp.ConsumeIntegral<int32_t>());
        }
        if (fdp.ConsumeBool()) text += L'\0';
        const auto* p = reinterpret_cast<const uint8_t*>(text.data());
        bytes.assign(p, p + text.size() * sizeof(wchar_t));
        const size_t stray = fdp.ConsumeIntegralInRange<size_t>(0, 3);
        for (size_t i = 0; i < stray; ++i) bytes.push_back(fdp.ConsumeIntegral<uint8_t>());
    } else {
        const size_t size = fdp.ConsumeBool() ? fdp.ConsumeIntegralInRange<size_t>(0, 16)
                                              : fdp.ConsumeIntegralInRange<size_t>(kValueBytes - 8, kValueBytes + 8);
        bytes = fdp.ConsumeBytes<uint8_t>(size);
        bytes.resize(size, fdp.ConsumeIntegral<uint8_t>());
    }
    return bytes;
}

// Reads the value the way discovery does and checks the outcome against the rules.
CStringW FuzzContainerIdValue(FuzzedDataProvider& fdp, const CStringW& serial) {
    static const DWORD kTypes[] = {REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ, REG_BINARY, REG_DWORD, REG_QWORD, REG_NONE};
    zqvm::RegistryClear();
    const DWORD type = fdp.ConsumeBool() ? fdp.PickValueInArray(kTypes) : fdp.ConsumeIntegral<DWORD>();
    const std::vector<uint8_t> bytes = FuzzValueBytes(fdp);
    const bool usableSerial = !serial.IsEmpty() && serial.Find(L'\\') < 0;
    // The value under this serial number's key (with its name's case changed, as the registry
    // ignores it), under another key, or missing.
    const int where = fdp.ConsumeIntegralInRange<int>(0, 3);
    const std::wstring key = std::wstring(kUsbKey) + (usableSerial ? serial.GetString() : L"SN");
    const wchar_t* name = where == 1 ? L"containerid" : L"ContainerID";
    if (where <= 1) {
        zqvm::RegistrySetValue(HKEY_LOCAL_MACHINE, key, name, type, bytes.data(), bytes.size());
    } else if (where == 2) {
        zqvm::RegistrySetValue(HKEY_LOCAL_MACHINE, key + L"x", name, type, bytes.data(), bytes.size());
    }

    bool expected = usableSerial && where <= 1 && (type == REG_SZ || type == REG_EXPAND_SZ) &&
                    bytes.size() <= kValueBytes && bytes.size() % sizeof(wchar_t) == 0;
    std::wstring chars(bytes.size() / sizeof(wchar_t), L'\0');
    if (!chars.empty()) std::memcpy(chars.data(), bytes.data(), chars.size() * sizeof(wchar_t));
    if (expected && !chars.empty() && chars.back() != L'\0') expected = false;

    CStringW text = L"unchanged";
    const bool read = ReadContainerIdText(serial, text);
    FUZZ_CHECK(zqvm::RegistryOpenHandleCount() == 0);
    FUZZ_CHECK(read == expected);
    if (read) {
        FUZZ_CHECK(text == CStringW(chars.c_str()));  // up to the first NUL
        FUZZ_CHECK(text.GetLength() < MAX_PATH);
    } else {
        FUZZ_CHECK(text == L"unchanged");
    }
    zqvm::RegistryClear();
    return read ? text : CStringW();
}

// ---- container identifier texts ----

int HexDigit(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    return -1;
}

// The GUID an "8-4-4-4-12" text spells, braces optional as a pair; GUID_NULL otherwise.
GUID ReferenceGuid(const std::wstring& whole) {
    std::wstring text = whole;
    if (text.size() == 38 && text.front() == L'{' && text.back() == L'}') text = text.substr(1, 36);
    if (text.size() != 36) return GUID_NULL;
    uint8_t nibbles[32];
    size_t n = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != L'-') return GUID_NULL;
            continue;
        }
        const int v = HexDigit(text[i]);
        if (v < 0) return GUID_NULL;
        nibbles[n++] = static_cast<uint8_t>(v);
    }
    auto take = [&](size_t first, size_t count) {
        uint64_t value = 0;
        for (size_t i = first; i < first + count; ++i) value = (value << 4) | nibbles[i];
        return value;
    };
    GUID guid = GUID_NULL;
    guid.Data1 = static_cast<uint32_t>(take(0, 8));
    guid.Data2 = static_cast<uint16_t>(take(8, 4));
    guid.Data3 = static_cast<uint16_t>(take(12, 4));
    for (size_t i = 0; i < 8; ++i) guid.Data4[i] = static_cast<uint8_t>(take(16 + 2 * i, 2));
    return guid;
}

// A text near a GUID's spelling (so that the parser's later checks are reached), or any
// characters at all, NULs and values outside Unicode included.
std::wstring FuzzGuidText(FuzzedDataProvider& fdp) {
    std::wstring text;
    if (fdp.ConsumeBool()) {
        static const wchar_t kDigits[] = L"0123456789abcdefABCDEF";
        for (int i = 0; i < 36; ++i) {
            text += (i == 8 || i == 13 || i == 18 || i == 23) ? L'-' : kDigits[fdp.ConsumeIntegralInRange<int>(0, 21)];
        }
        if (fdp.ConsumeBool()) text = L"{" + text + L"}";
        const int edits = fdp.ConsumeIntegralInRange<int>(0, 2);
        for (int i = 0; i < edits; ++i) {
            const size_t at = fdp.ConsumeIntegralInRange<size_t>(0, text.size());
            const wchar_t c = static_cast<wchar_t>(fdp.ConsumeIntegral<int32_t>());
            switch (fdp.ConsumeIntegralInRange<int>(0, 2)) {
                case 0: text.insert(at, 1, c); break;
                case 1: if (at < text.size()) text.erase(at, 1); break;
                default: if (at < text.size()) text[at] = c; break;
            }
        }
    } else {
        const size_t length = fdp.ConsumeIntegralInRange<size_t>(0, 40);
        for (size_t i = 0; i < length; ++i) text += static_cast<wchar_t>(fdp.ConsumeIntegral<int32_t>());
    }
    return text;
}

void CheckGuidText(const std::wstring& text) {
    const CStringW str(text.c_str(), static_cast<int>(text.size()));
    const GUID expected = ReferenceGuid(text);
    FUZZ_CHECK(Str2Guid(str) == expected);
    FUZZ_CHECK(ContainerIdFromText(str) == expected);
    if (!(expected == GUID_NULL)) {
        // The same identifier spelled back, in upper case without braces.
        auto hex = [](uint64_t value, int digits) {
            std::wstring out;
            for (int i = digits - 1; i >= 0; --i) out += L"0123456789ABCDEF"[(value >> (4 * i)) & 0xF];
            return out;
        };
        std::wstring spelled =
            hex(expected.Data1, 8) + L"-" + hex(expected.Data2, 4) + L"-" + hex(expected.Data3, 4) + L"-";
        for (int i = 0; i < 8; ++i) spelled += (i == 2 ? L"-" : L"") + hex(expected.Data4[i], 2);
        FUZZ_CHECK(Str2Guid(CStringW(spelled.c_str())) == expected);
        FUZZ_CHECK(Str2Guid(CStringW((L"{" + spelled + L"}").c_str())) == expected);
    }
}

// Nothing discovery reads may depend on the C library's locale: try the default "C" locale and
// a UTF-8 one (when the system has it).
void UseLocale(bool utf8) {
    static const bool haveUtf8 = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    static bool current = haveUtf8;
    const bool want = utf8 && haveUtf8;
    if (want != current) {
        std::setlocale(LC_CTYPE, want ? "C.UTF-8" : "C");
        current = want;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const zqvm::BridgeId bridge = [] {
        zqvm::SetBridgeTiming(zqvm::BridgeTiming::Instant);
        zqvm::RemoveAllBridges();
        zqvm::RegistryClear();
        return zqvm::AddBridge(zqvm::BridgeDescription());
    }();

    FuzzedDataProvider fdp(data, size);
    UseLocale(fdp.ConsumeBool());

    FuzzBridgeBuffer(fdp);
    const CStringW serial = FuzzBridge(fdp, bridge);
    const CStringW containerText = FuzzContainerIdValue(fdp, serial);
    CheckGuidText(std::wstring(containerText.GetString(), static_cast<size_t>(containerText.GetLength())));
    CheckGuidText(FuzzGuidText(fdp));
    // Whatever is left, as characters.
    std::wstring rest;
    while (fdp.remaining_bytes() >= sizeof(int32_t)) rest += static_cast<wchar_t>(fdp.ConsumeIntegral<int32_t>());
    CheckGuidText(rest);
    return 0;
}
