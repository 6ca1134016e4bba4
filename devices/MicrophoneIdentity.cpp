#include "devices/MicrophoneIdentity.h"

#include "core/FailureReport.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

constexpr wchar_t kInstanceKeyFormat[] = L"SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_10C4&PID_EAB0\\%s";
constexpr wchar_t kContainerIdValue[] = L"ContainerID";
constexpr DWORD kValueChars = MAX_PATH;

}  // namespace

// The bridge library hands its USB strings over as narrow text, here as on Windows. They are read
// as UTF-8, by one explicit conversion, never by the C runtime's locale: a host need not set a
// locale, and in the default one every byte past 0x7F would become a character of its own, so
// a serial number holding an "Ü" would come back garbled and would no longer name its
// device's registry key, and a product so spelt would match no entry of the product table.
// UTF-8 is also the one narrow encoding that holds every character a USB string descriptor (UTF-16
// on the wire) can carry; ASCII strings, all most bridges carry, read alike under any rule.
// MultiByteToWideChar with CP_UTF8 is the same call with the same result on Windows.
CStringW BridgeTextToWide(const char* pBuffer, size_t nSize) {
    if (pBuffer == nullptr || nSize == 0) return CStringW();
    // Up to the first NUL, or every byte when the bridge filled the buffer without one.
    const size_t nBytes = static_cast<size_t>(std::find(pBuffer, pBuffer + nSize, '\0') - pBuffer);
    if (nBytes == 0) return CStringW();
    const int nChars = MultiByteToWideChar(CP_UTF8, 0, pBuffer, static_cast<int>(nBytes), nullptr, 0);
    if (nChars <= 0) return CStringW();
    std::vector<wchar_t> text(static_cast<size_t>(nChars));
    MultiByteToWideChar(CP_UTF8, 0, pBuffer, static_cast<int>(nBytes), text.data(), nChars);
    return CStringW(text.data(), nChars);
}

HID_UART_STATUS ReadBridgeString(DWORD dwDevice, DWORD dwOption, CStringW& strText) {
    char szBuffer[HID_UART_DEVICE_STRLEN] = {};
    const HID_UART_STATUS status = HidUart_GetString(dwDevice, 0, 0, szBuffer, dwOption);
    if (status != HID_UART_SUCCESS && status != HID_UART_READ_TIMED_OUT) {
        ReportQuietFailure(L"CoreAudio: a bridge's string cannot be read (HidUart_GetString: 0x%02x)", status);
    }
    strText = BridgeTextToWide(szBuffer, sizeof(szBuffer));
    return status;
}

bool ReadContainerIdText(const CStringW& strSerial, CStringW& strText) {
    if (strSerial.IsEmpty() || strSerial.Find(L'\\') >= 0) return false;
    CStringW strKey;
    strKey.Format(kInstanceKeyFormat, strSerial.GetString());

    HKEY hKey = nullptr;
    const LSTATUS opened = RegOpenKeyExW(HKEY_LOCAL_MACHINE, strKey.GetString(), 0, KEY_READ, &hKey);
    if (opened != ERROR_SUCCESS) {
        ReportQuietFailure(L"CoreAudio: no container for a microphone: its device key cannot be opened (RegOpenKeyExW: %d)",
                           opened);
        return false;
    }
    wchar_t szValue[kValueChars] = {};
    DWORD dwType = REG_NONE;
    DWORD cbData = sizeof(szValue);
    const LSTATUS status =
        RegQueryValueExW(hKey, kContainerIdValue, nullptr, &dwType, reinterpret_cast<LPBYTE>(szValue), &cbData);
    const LSTATUS closed = RegCloseKey(hKey);
    if (closed != ERROR_SUCCESS) ReportQuietFailure(L"CoreAudio: RegCloseKey failed: %d", closed);

    if (status != ERROR_SUCCESS) {
        ReportQuietFailure(L"CoreAudio: no container for a microphone: \"ContainerID\" cannot be read (RegQueryValueExW: %d)",
                           status);
        return false;
    }
    const DWORD nChars = cbData / sizeof(wchar_t);
    if ((dwType != REG_SZ && dwType != REG_EXPAND_SZ) || cbData % sizeof(wchar_t) != 0 ||
        (nChars != 0 && szValue[nChars - 1] != L'\0')) {
        ReportQuietFailure(L"CoreAudio: no container for a microphone: \"ContainerID\" is not a text (type %d)",
                           static_cast<long long>(dwType));
        return false;
    }
    strText = szValue;  // up to the first NUL; empty for an empty value
    return true;
}

GUID ContainerIdFromText(const CStringW& strText) {
    CStringW strUpper = strText;
    strUpper.MakeUpper();
    return Str2Guid(strUpper);
}
