// What the system's code takes from the application framework and the vendors on Windows,
// where the SDK headers are already in (zqPlatform.h includes them first): the framework's
// CStringW and CComPtr, the concurrency runtime's critical_section and concurrent_queue, and
// the bridge vendor's HID-to-UART interface; and the parts of the SDK that some editions of
// its headers lack (winsdk/). The stand-in headers below compile against the SDK and supply
// only what it lacks; the maker's zqSystem.h follows in zqPlatform.h.
#pragma once

#if !defined(_WIN32)
#  error "zqplatform/framework.h is the Windows side; elsewhere zqPlatform.h brings the stand-ins"
#endif

#include "zqplatform/export.h"
#include "zqplatform/win/wstring.h"
#include "zqplatform/win/concrt.h"
#include "zqplatform/win/com.h"
#include "zqplatform/win/hiduart.h"
#include "zqplatform/winsdk/audiometer.h"
#include "zqplatform/winsdk/devpkey_container.h"
