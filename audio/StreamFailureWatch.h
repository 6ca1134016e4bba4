// A stream thread's watch over the calls of its loop. A call that fails now and then is skipped
// silently, as the loop always did: the device may just be busy. A failure that lasts for
// kPersistentWakeUps wake-ups in a row is reported once, as an error naming the call and its
// code, and the host is told with one of its device messages, so that it rebuilds the stream
// (a device that is gone stops signalling and never gets here). A pass without failure ends
// the run, so a later one is reported again.
//
// Used only by its stream thread; posting is the one thing it does beyond logging, so it never
// waits for the host.
#pragma once

#include "zqPlatform.h"

class CStreamFailureWatch {
public:
    static constexpr int kPersistentWakeUps = 10;  // 100 ms at the usual 10 ms period

    // reportFormat: the engine's text with "%s" for the call and "%x" for its code; message:
    // what the host is posted (wParam 0, lParam 0).
    CStreamFailureWatch(const wchar_t* reportFormat, UINT message) : m_reportFormat(reportFormat), m_message(message) {}

    void Failed(const wchar_t* call, HRESULT hr);
    void Passed() { m_nFailedWakeUps = 0; }

private:
    const wchar_t* m_reportFormat;
    UINT m_message;
    int m_nFailedWakeUps = 0;
};
