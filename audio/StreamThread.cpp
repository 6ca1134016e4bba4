#include "audio/StreamThread.h"

#include "audio/AudioLog.h"

DWORD RunStreamThread(void (*loop)(void* engine), void* engine, const wchar_t* endOfThreadLine) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    DWORD taskIndex = 0;
    const HANDLE mmcss = AvSetMmThreadCharacteristicsW(L"Audio", &taskIndex);
    loop(engine);
    if (mmcss != nullptr) AvRevertMmThreadCharacteristics(mmcss);
    CoUninitialize();
    audiolog::Info(endOfThreadLine);
    return 0;
}
