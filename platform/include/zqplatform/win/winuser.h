// Window messages: window classes, windows as message targets, and the message queue of the
// thread that created each window.
//
// A window belongs to the thread that created it; its window procedure runs only on that
// thread. PostMessageW queues a message for the owner thread and returns at once.
// SendMessageW calls the procedure directly when the caller owns the window; from another
// thread it queues the message and waits until the owner thread has handled it in its pump
// (GetMessageW, PeekMessageW, or a SendMessageW of its own), and returns the procedure's
// result. While waiting, the sender still handles messages sent to its own windows, so two
// threads sending to each other do not deadlock. If the window is destroyed, or its thread
// ends, before the message was handled, the sender gets 0.
//
// Sent messages are handled before posted ones; posted messages arrive in the order they were
// posted; WM_QUIT comes when no other posted message is left. When a thread ends, its windows
// are destroyed without messages and what was queued for it is dropped.
//
// Window classes are process-wide here (the instance handle is recorded but not used to tell
// classes apart). A window's parent may be null, HWND_MESSAGE or a window; it is recorded
// only: windows are not destroyed with their parent.
#pragma once

#include "zqplatform/win/wintypes.h"

typedef WORD ATOM;
typedef struct HMENU__* HMENU;
typedef struct HICON__* HICON;
typedef HICON HCURSOR;
typedef struct HBRUSH__* HBRUSH;

typedef LRESULT(CALLBACK* WNDPROC)(HWND hWnd, UINT uMsg, WPARAM wParam, LPARAM lParam);

struct POINT {
    LONG x;
    LONG y;
};

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;  // milliseconds of a steady clock when the message was queued
    POINT pt;    // always 0, 0: there is no pointer here
};
typedef MSG* LPMSG;

struct WNDCLASSEXW {
    UINT cbSize;  // must be sizeof(WNDCLASSEXW)
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;  // a name, or an atom from RegisterClassExW (MAKEINTATOM)
    HICON hIconSm;
};

// What WM_NCCREATE and WM_CREATE carry in lParam.
struct CREATESTRUCTW {
    LPVOID lpCreateParams;
    HINSTANCE hInstance;
    HMENU hMenu;
    HWND hwndParent;
    int cy;
    int cx;
    int y;
    int x;
    LONG style;
    LPCWSTR lpszName;
    LPCWSTR lpszClass;
    DWORD dwExStyle;
};

#define MAKEINTATOM(i) (reinterpret_cast<LPCWSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(i))))
#define HWND_MESSAGE (reinterpret_cast<HWND>(static_cast<LONG_PTR>(-3)))
#define CW_USEDEFAULT (static_cast<int>(0x80000000u))

#define WM_NULL 0x0000
#define WM_CREATE 0x0001
#define WM_DESTROY 0x0002
#define WM_CLOSE 0x0010
#define WM_QUIT 0x0012
#define WM_NCCREATE 0x0081
#define WM_NCDESTROY 0x0082
#define WM_USER 0x0400
#define WM_APP 0x8000

#define PM_NOREMOVE 0x0000u
#define PM_REMOVE 0x0001u

#define QS_POSTMESSAGE 0x0008u
#define QS_SENDMESSAGE 0x0040u
#define QS_ALLPOSTMESSAGE 0x0100u

#define GWLP_WNDPROC (-4)
#define GWLP_USERDATA (-21)

#define ERROR_CANNOT_FIND_WND_CLASS 1407L
#define ERROR_CLASS_ALREADY_EXISTS 1410L
#define ERROR_CLASS_DOES_NOT_EXIST 1411L
#define ERROR_CLASS_HAS_WINDOWS 1412L
#define ERROR_INVALID_INDEX 1413L

extern "C" {
// 0 with ERROR_INVALID_PARAMETER for a wrong cbSize, no procedure or no name, and with
// ERROR_CLASS_ALREADY_EXISTS for a name in use (names compare without letter case).
ZQPLATFORM_API ATOM RegisterClassExW(const WNDCLASSEXW* lpwcx);
// FALSE with ERROR_CLASS_DOES_NOT_EXIST, or ERROR_CLASS_HAS_WINDOWS while windows of it live.
ZQPLATFORM_API BOOL UnregisterClassW(LPCWSTR lpClassName, HINSTANCE hInstance);

// Creates a window owned by the calling thread, then sends it WM_NCCREATE (FALSE refuses the
// window) and WM_CREATE (-1 refuses it), both with a CREATESTRUCTW; a refused window gets
// WM_DESTROY and WM_NCDESTROY and the result is null. Null with ERROR_CANNOT_FIND_WND_CLASS for an unknown class or
// ERROR_INVALID_WINDOW_HANDLE for a parent that is not a window.
ZQPLATFORM_API HWND CreateWindowExW(DWORD dwExStyle, LPCWSTR lpClassName, LPCWSTR lpWindowName, DWORD dwStyle, int X,
                                    int Y, int nWidth, int nHeight, HWND hWndParent, HMENU hMenu,
                                    HINSTANCE hInstance, LPVOID lpParam);
// Only on the owner thread (else FALSE, ERROR_ACCESS_DENIED). Sends WM_DESTROY and
// WM_NCDESTROY; then the handle is invalid, messages queued for it are dropped and threads
// waiting in SendMessageW for it return 0.
ZQPLATFORM_API BOOL DestroyWindow(HWND hWnd);
ZQPLATFORM_API BOOL IsWindow(HWND hWnd);
// WM_NCCREATE: TRUE; WM_CLOSE: DestroyWindow; anything else: 0.
ZQPLATFORM_API LRESULT DefWindowProcW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam);
// GWLP_USERDATA and GWLP_WNDPROC, from any thread; 0 with ERROR_INVALID_INDEX for another
// index, ERROR_INVALID_WINDOW_HANDLE for a bad window. Set returns the previous value.
ZQPLATFORM_API LONG_PTR GetWindowLongPtrW(HWND hWnd, int nIndex);
ZQPLATFORM_API LONG_PTR SetWindowLongPtrW(HWND hWnd, int nIndex, LONG_PTR dwNewLong);
// The thread identifier (GetCurrentThreadId) of the window's owner; 0 for a bad window.
ZQPLATFORM_API DWORD GetWindowThreadProcessId(HWND hWnd, LPDWORD lpdwProcessId);

// A null hWnd posts to the calling thread's own queue (a thread message). FALSE with
// ERROR_INVALID_WINDOW_HANDLE for a window that does not exist.
ZQPLATFORM_API BOOL PostMessageW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam);
// 0 with ERROR_INVALID_WINDOW_HANDLE for a window that does not exist.
ZQPLATFORM_API LRESULT SendMessageW(HWND hWnd, UINT Msg, WPARAM wParam, LPARAM lParam);
// TRUE while the calling thread's window procedure handles a message that another thread sent
// and that has not been replied to yet.
ZQPLATFORM_API BOOL InSendMessage(void);
// Completes the message another thread sent to the calling thread and is being handled now:
// its sender returns with lResult at once, while the procedure goes on (what it returns later
// is dropped). FALSE when there is no such message, or it was replied to already.
ZQPLATFORM_API BOOL ReplyMessage(LRESULT lResult);
// Handles sent messages while it waits for a posted one matching the filter (hWnd: that
// window only, (HWND)-1: thread messages only; min and max both 0: any message). FALSE for
// WM_QUIT (whatever the filter), -1 for a null lpMsg.
ZQPLATFORM_API BOOL GetMessageW(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax);
// Handles sent messages, then looks for a posted one without waiting.
ZQPLATFORM_API BOOL PeekMessageW(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax, UINT wRemoveMsg);
// There are no keyboard messages to translate: always FALSE.
ZQPLATFORM_API BOOL TranslateMessage(const MSG* lpMsg);
// Calls the procedure of lpMsg->hwnd and returns its result; 0 for thread messages and
// windows that no longer exist.
ZQPLATFORM_API LRESULT DispatchMessageW(const MSG* lpMsg);
// Queues WM_QUIT with that exit code for the calling thread.
ZQPLATFORM_API void PostQuitMessage(int nExitCode);
// What the calling thread's queue holds (QS_SENDMESSAGE, QS_POSTMESSAGE, QS_ALLPOSTMESSAGE;
// WM_QUIT counts as posted), masked with flags: the high word what is there now, the low word
// what arrived since the last call (those bits are then cleared).
ZQPLATFORM_API DWORD GetQueueStatus(UINT flags);
}
