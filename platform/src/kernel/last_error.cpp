// The calling thread's last-error code.
#include "zqplatform/win/wintypes.h"

namespace {
thread_local DWORD t_lastError = ERROR_SUCCESS;
}

extern "C" {

DWORD GetLastError() { return t_lastError; }

void SetLastError(DWORD dwErrCode) { t_lastError = dwErrCode; }

}
