// The version queries of one discovery, side by side: one thread per bridge, each running the
// record's own query (CWMAudioDevice::InitVer, with its 150 ms read time-out), so that a
// discovery of n microphones waits about one read time-out instead of n.
//
// Threads: the discovery's thread starts and waits for the queries; each query runs on a
// thread of its own and touches only its record, which nobody else sees until the discovery
// lists it after Wait. Each bridge index is given to one query, and discoveries run one at a
// time, so a bridge is opened by one query at a time. A query whose thread cannot be made runs
// on the discovery's thread when it is waited for.
#pragma once

#include <deque>

#include "zqCoreAudio.h"

class CVersionQueries {
public:
    CVersionQueries() = default;
    ~CVersionQueries();  // waits for every query still running
    CVersionQueries(const CVersionQueries&) = delete;
    CVersionQueries& operator=(const CVersionQueries&) = delete;

    // Starts pDevice->InitVer(nBridge); returns the query's number for Wait.
    size_t Start(CWMAudioDevice* pDevice, int nBridge);
    // Until query n has ended; its record then holds the versions (0 after a failed query).
    void Wait(size_t n);

private:
    struct Query {
        CWMAudioDevice* pDevice;
        int nBridge;
        UniqueHandle hThread;  // empty: not started on a thread of its own, or already joined
        bool bDone;
    };
    static DWORD WINAPI QueryThread(LPVOID pContext);
    static void Join(Query& query);

    // A deque: adding a query never moves one whose thread runs.
    std::deque<Query> m_queries;
};
