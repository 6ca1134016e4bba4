// The frame both stream threads run their loop in: the multithreaded COM apartment and the
// scheduler's "Audio" task characteristics around the loop, then the engine's closing line.
#pragma once

#include "zqPlatform.h"

#include <atomic>

// Runs loop(engine) in that frame on the calling thread; returns the thread's result, 0.
DWORD RunStreamThread(void (*loop)(void* engine), void* engine, const wchar_t* endOfThreadLine);

// The engine's own lines around starting and stopping its stream thread.
struct StreamThreadTexts {
    const wchar_t* startThread;    // before the thread is created
    const wchar_t* startClient;    // before the audio client starts
    const wchar_t* clientFailure;  // "...: %x.\n" when it does not
    const wchar_t* setShutdown;    // null: the engine announces no step here
    const wchar_t* stopClient;
    const wchar_t* joinThread;
};

// Creates the stream thread into thread (running proc with engine), then starts the client;
// false, told with the engine's text, when either fails (a thread made stays until stopped).
// Host's thread; nothing happens when a thread runs already.
bool StartStreamThread(std::atomic<HANDLE>& thread, LPTHREAD_START_ROUTINE proc, void* engine, IAudioClient* client,
                       const StreamThreadTexts& texts);
// Signals the shutdown event, stops the client and joins the thread, then clears thread.
// Host's thread; never with a lock the stream thread takes.
void StopStreamThread(std::atomic<HANDLE>& thread, HANDLE shutdownEvent, IAudioClient* client,
                      const StreamThreadTexts& texts);
