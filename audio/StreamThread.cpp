#include "audio/StreamThread.h"

#include "audio/AudioLog.h"
#include "core/FailureReport.h"

bool StartStreamThread(std::atomic<HANDLE>& thread, LPTHREAD_START_ROUTINE proc, void* engine, IAudioClient* client,
                       const StreamThreadTexts& texts) {
    if (thread != nullptr) return true;
    audiolog::Info(texts.startThread);
    thread = CreateThread(nullptr, 0, proc, engine, 0, nullptr);
    if (thread == nullptr) {
        ReportEngineFailure(L"Unable to create transport thread: %x.", GetLastError());
        return false;
    }
    audiolog::Info(texts.startClient);
    const HRESULT hr = client->Start();
    if (FAILED(hr)) {
        ReportEngineFailure(texts.clientFailure, hr);
        return false;
    }
    return true;
}

void StopStreamThread(std::atomic<HANDLE>& thread, HANDLE shutdownEvent, IAudioClient* client,
                      const StreamThreadTexts& texts) {
    if (shutdownEvent != nullptr) {
        if (texts.setShutdown != nullptr) audiolog::Info(texts.setShutdown);
        SetEvent(shutdownEvent);
    }
    if (client != nullptr) {
        audiolog::Info(texts.stopClient);
        const HRESULT hr = client->Stop();
        if (FAILED(hr)) ReportEngineFailure(L"Unable to stop audio client: %x\n", hr);
    }
    audiolog::Info(texts.joinThread);
    const UniqueHandle joined(thread.load());
    WaitForSingleObject(joined.get(), INFINITE);
    thread = nullptr;
}

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
