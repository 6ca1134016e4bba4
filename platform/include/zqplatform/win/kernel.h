// Kernel objects: events, waitable timers, threads, handles and waits.
// Every handle is a counted reference to its object; CloseHandle drops it. A thread handle is
// signalled when the thread has returned; closing it does not stop the thread.
#pragma once

#include "zqplatform/win/wintypes.h"

#define WAIT_OBJECT_0 0x00000000u
#define WAIT_ABANDONED 0x00000080u
#define WAIT_TIMEOUT 0x00000102u
#define WAIT_FAILED 0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64

#define CREATE_EVENT_MANUAL_RESET 0x00000001u
#define CREATE_EVENT_INITIAL_SET 0x00000002u
#define CREATE_WAITABLE_TIMER_MANUAL_RESET 0x00000001u
#define DELETE 0x00010000u
#define SYNCHRONIZE 0x00100000u
#define EVENT_MODIFY_STATE 0x00000002u
#define EVENT_ALL_ACCESS 0x001F0003u
#define TIMER_MODIFY_STATE 0x00000002u
#define TIMER_ALL_ACCESS 0x001F0003u
#define DUPLICATE_CLOSE_SOURCE 0x00000001u
#define DUPLICATE_SAME_ACCESS 0x00000002u
#define CREATE_SUSPENDED 0x00000004u
#define STILL_ACTIVE 259u

typedef DWORD(WINAPI* PTHREAD_START_ROUTINE)(LPVOID lpThreadParameter);
typedef PTHREAD_START_ROUTINE LPTHREAD_START_ROUTINE;
typedef void(CALLBACK* PTIMERAPCROUTINE)(LPVOID lpArgToCompletionRoutine, DWORD dwTimerLowValue,
                                         DWORD dwTimerHighValue);

extern "C" {
ZQPLATFORM_API HANDLE CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset, BOOL bInitialState,
                                   LPCWSTR lpName);
ZQPLATFORM_API HANDLE CreateEventExW(LPSECURITY_ATTRIBUTES lpEventAttributes, LPCWSTR lpName, DWORD dwFlags,
                                     DWORD dwDesiredAccess);
ZQPLATFORM_API BOOL SetEvent(HANDLE hEvent);
ZQPLATFORM_API BOOL ResetEvent(HANDLE hEvent);

// Timers run on the platform clock (real time, or stepped by a test: zqplatform/vm/clock.h).
// A due time below 0 is relative, in 100-ns units; at or above 0 it is absolute on that clock.
// Expiries that fall due while nobody waits coalesce into one signalled state.
ZQPLATFORM_API HANDLE CreateWaitableTimerW(LPSECURITY_ATTRIBUTES lpTimerAttributes, BOOL bManualReset,
                                           LPCWSTR lpTimerName);
ZQPLATFORM_API HANDLE CreateWaitableTimerExW(LPSECURITY_ATTRIBUTES lpTimerAttributes, LPCWSTR lpTimerName,
                                             DWORD dwFlags, DWORD dwDesiredAccess);
ZQPLATFORM_API BOOL SetWaitableTimer(HANDLE hTimer, const LARGE_INTEGER* lpDueTime, LONG lPeriod,
                                     PTIMERAPCROUTINE pfnCompletionRoutine, LPVOID lpArgToCompletionRoutine,
                                     BOOL fResume);
ZQPLATFORM_API BOOL CancelWaitableTimer(HANDLE hTimer);

ZQPLATFORM_API HANDLE CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, size_t dwStackSize,
                                   LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter, DWORD dwCreationFlags,
                                   LPDWORD lpThreadId);
ZQPLATFORM_API DWORD ResumeThread(HANDLE hThread);
ZQPLATFORM_API BOOL GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode);
ZQPLATFORM_API DWORD GetCurrentThreadId();
ZQPLATFORM_API HANDLE GetCurrentProcess();
ZQPLATFORM_API BOOL DuplicateHandle(HANDLE hSourceProcessHandle, HANDLE hSourceHandle, HANDLE hTargetProcessHandle,
                                    PHANDLE lpTargetHandle, DWORD dwDesiredAccess, BOOL bInheritHandle,
                                    DWORD dwOptions);
ZQPLATFORM_API BOOL CloseHandle(HANDLE hObject);

// Waits in real time. WaitForMultipleObjects with bWaitAll FALSE returns WAIT_OBJECT_0 + the
// lowest index that is signalled; an auto-reset event or timer is consumed by the wait that
// returns it, and by no other.
ZQPLATFORM_API DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);
ZQPLATFORM_API DWORD WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll,
                                            DWORD dwMilliseconds);
ZQPLATFORM_API void Sleep(DWORD dwMilliseconds);
}
