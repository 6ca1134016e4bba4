#include "devices/MicrophoneIdentity.h"

#include "core/FailureReport.h"

#include <cstring>
#include <vector>

namespace {

constexpr wchar_t kInstanceKeyFormat[] = L"SYSTEM\\CurrentControlSet\\Enum\\USB\\VID_10C4&PID_EAB0\\%s";
constexpr wchar_t kContainerIdValue[] = L"ContainerID";
constexpr DWORD kValueChars = MAX_PATH;

}  // namespace

CStringW BridgeTextToWide(const char* pBuffer, size_t nSize) {
    if (pBuffer == nullptr || nSize == 0) return CStringW();
    // A copy with room for a NUL of our own: the bridge may have filled every byte.
    std::vector<char> text(pBuffer, pBuffer + nSize);
    text.push_back('\0');
    CStringW strText;
    strText.Format(L"%S", text.data());
    return strText;
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
