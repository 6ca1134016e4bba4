// The frame both stream threads run their loop in: the multithreaded COM apartment and the
// scheduler's "Audio" task characteristics around the loop, then the engine's closing line.
#pragma once

#include "zqPlatform.h"

// Runs loop(engine) in that frame on the calling thread; returns the thread's result, 0.
DWORD RunStreamThread(void (*loop)(void* engine), void* engine, const wchar_t* endOfThreadLine);
