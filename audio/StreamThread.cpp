#include "audio/StreamThread.h"

#include "audio/AudioLog.h"
#include "core/FailureReport.h"

DWORD RunStreamThread(void (*loop)(void* engine), void* engine, const wchar_t* endOfThreadLine) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    DWORD taskIndex = 0;
    const HANDLE mmcss = AvSetMmThreadCharacteristicsW(L"Audio", &taskIndex);
    // The stream runs all the same, at the thread's ordinary priority.
    if (mmcss == nullptr) ReportEngineFailure(L"Unable to set the Audio task characteristics: %d.\n", GetLastError());
    loop(engine);
    if (mmcss != nullptr) AvRevertMmThreadCharacteristics(mmcss);
    CoUninitialize();
    audiolog::Info(endOfThreadLine);
    return 0;
}
