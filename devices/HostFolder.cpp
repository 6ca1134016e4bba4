#include "devices/HostFolder.h"

bool GetHostModuleFolder(CStringW& strFolder) {
    wchar_t szModule[MAX_PATH] = {};
    // On this platform a null module names the host application's executable.
    const DWORD dwLength = GetModuleFileNameW(nullptr, szModule, MAX_PATH);
    if (dwLength == 0 || dwLength >= MAX_PATH) return false;  // none, or cut short
    wchar_t szDrive[3] = {};
    wchar_t szDir[256] = {};
    if (_wsplitpath_s(szModule, szDrive, 3, szDir, 256, nullptr, 0, nullptr, 0) != 0) return false;
    if (szDrive[0] == L'\0' && szDir[0] == L'\0') return false;
    strFolder.Format(L"%s%s", szDrive, szDir);
    return true;
}
