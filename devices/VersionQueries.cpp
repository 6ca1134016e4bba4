// The version queries of one discovery, side by side: see VersionQueries.h.
#include "devices/VersionQueries.h"

#include "core/FailureReport.h"

CVersionQueries::~CVersionQueries() {
    for (size_t n = 0; n < m_queries.size(); ++n) Join(m_queries[n]);
}

DWORD WINAPI CVersionQueries::QueryThread(LPVOID pContext) {
    Query* query = static_cast<Query*>(pContext);
    query->pDevice->InitVer(query->nBridge);  // after a failed query both versions are 0
    return 0;
}

size_t CVersionQueries::Start(CWMAudioDevice* pDevice, int nBridge) {
    Query& query = m_queries.emplace_back(Query{pDevice, nBridge, UniqueHandle(), false});
    query.hThread.reset(CreateThread(nullptr, 0, QueryThread, &query, 0, nullptr));
    if (!query.hThread) {
        ReportQuietFailure(L"CoreAudio: a version query runs on the discovery's own thread (CreateThread: %d)",
                           GetLastError());
    }
    return m_queries.size() - 1;
}

void CVersionQueries::Join(Query& query) {
    if (!query.hThread) return;
    WaitForSingleObject(query.hThread.get(), INFINITE);
    query.hThread.reset();
}

void CVersionQueries::Wait(size_t n) {
    Query& query = m_queries[n];
    if (query.bDone) return;
    if (query.hThread) {
        Join(query);
    } else {
        query.pDevice->InitVer(query.nBridge);
    }
    query.bDone = true;
}
