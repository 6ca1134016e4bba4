// The product table: config.xml beside the host application's executable, read once by Init,
// and the queries on it. Searches walk the table from its first entry and stop at the first
// match, so of two entries with the same key the earlier one in the file wins; texts compare
// with _wcsicmp (ASCII letters fold), versions exactly.
//
// The table is filled on the host's thread but read also by discovery on the notification
// thread, which may run before LoadConfig; so LoadConfig publishes the parsed entries under the
// microphone list's lock, which discovery holds. It never changes afterwards, so the host's
// own queries need no lock.
#include <vector>

#include "devices/HostFolder.h"
#include "devices/ProductTable.h"
#include "zqCoreAudio.h"

namespace {

bool InTable(const std::vector<_ZQ_CONFIG>& table, int nIndex) {
    return nIndex >= 0 && static_cast<size_t>(nIndex) < table.size();
}

bool SameText(const CStringW& a, const CStringW& b) { return _wcsicmp(a.GetString(), b.GetString()) == 0; }

}  // namespace

void CZQCoreAudio::LoadConfig() {
    LogInfo(L"CoreAudio: load config.xml");
    CStringW strPath;
    if (GetHostModuleFolder(strPath)) {
        strPath += L"config.xml";
        LogInfo(L"CoreAudio: config.xml path %s", strPath.GetString());
    }
    std::vector<_ZQ_CONFIG> entries;
    if (!ReadProductTable(strPath.GetString(), entries)) return;  // missing or malformed: not logged
    Concurrency::critical_section::scoped_lock lock(m_csHidDevices);
    m_vecProducts.insert(m_vecProducts.end(), entries.begin(), entries.end());
}

int CZQCoreAudio::GetProductCount() { return static_cast<int>(m_vecProducts.size()); }

// Outside the table: an empty text or 0.
CStringW CZQCoreAudio::GetProductNameByIndex(int nIndex) {
    return InTable(m_vecProducts, nIndex) ? m_vecProducts[static_cast<size_t>(nIndex)].strDeviceName : CStringW();
}

CStringW CZQCoreAudio::GetProductFriendlyNameByIndex(int nIndex) {
    return InTable(m_vecProducts, nIndex) ? m_vecProducts[static_cast<size_t>(nIndex)].strFriendlyName : CStringW();
}

unsigned char CZQCoreAudio::GetProductAPI(int nIndex) {
    return InTable(m_vecProducts, nIndex) ? m_vecProducts[static_cast<size_t>(nIndex)].nApi : 0;
}

unsigned char CZQCoreAudio::GetProductFW(int nIndex) {
    return InTable(m_vecProducts, nIndex) ? m_vecProducts[static_cast<size_t>(nIndex)].nFw : 0;
}

// Keyed by the friendly name, as the host shows it.
CStringW CZQCoreAudio::GetEditorExeByProduct(const CStringW& strFriendlyName) {
    for (const _ZQ_CONFIG& entry : m_vecProducts) {
        if (SameText(entry.strFriendlyName, strFriendlyName)) return entry.strEditor;
    }
    return CStringW();
}

int CZQCoreAudio::GetGroupId(const CStringW& strFriendlyName) {
    for (size_t i = 0; i < m_vecProducts.size(); ++i) {
        if (SameText(m_vecProducts[i].strFriendlyName, strFriendlyName)) return static_cast<int>(i) + 1;
    }
    return 0;
}

// Keyed by the USB product string, as the bridge reports it.
bool CZQCoreAudio::IsDeviceInConfig(const CStringW& strProduct) {
    for (const _ZQ_CONFIG& entry : m_vecProducts) {
        if (SameText(entry.strDeviceName, strProduct)) return true;
    }
    return false;
}

CStringW CZQCoreAudio::FindFriendlyNameDevice(unsigned char nApi, unsigned char nFw, const CStringW& strProduct) {
    for (const _ZQ_CONFIG& entry : m_vecProducts) {
        if (entry.nApi == nApi && entry.nFw == nFw && SameText(entry.strDeviceName, strProduct)) {
            return entry.strFriendlyName;
        }
    }
    return CStringW();
}
