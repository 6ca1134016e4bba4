// The version queries of one discovery, side by side: see VersionQueries.h.
#include "devices/VersionQueries.h"

CVersionQueries::~CVersionQueries() {
    for (Query& query : m_queries) {
        if (query.hThread != nullptr) {
            WaitForSingleObject(query.hThread, INFINITE);
            CloseHandle(query.hThread);
        }
    }
}

DWORD WINAPI CVersionQueries::QueryThread(LPVOID pContext) {
    Query* query = static_cast<Query*>(pContext);
    query->pDevice->InitVer(query->nBridge);  // after a failed query both versions are 0
    return 0;
}

size_t CVersionQueries::Start(CWMAudioDevice* pDevice, int nBridge) {
    Query& query = m_queries.emplace_back(Query{pDevice, nBridge, nullptr, false});
    query.hThread = CreateThread(nullptr, 0, QueryThread, &query, 0, nullptr);
    return m_queries.size() - 1;
}

void CVersionQueries::Wait(size_t n) {
    Query& query = m_queries[n];
    if (query.bDone) return;
    if (query.hThread != nullptr) {
        WaitForSingleObject(query.hThread, INFINITE);
        CloseHandle(query.hThread);
        query.hThread = nullptr;
    } else {
        query.pDevice->InitVer(query.nBridge);
    }
    query.bDone = true;
}
