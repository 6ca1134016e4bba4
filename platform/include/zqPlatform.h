// The one platform header of the system's own code (core/, audio/, analysis/, devices/).
// On Windows it brings the SDK, framework and vendor headers; elsewhere it brings the
// platform layer that stands in for them. Nothing in the system includes a header below
// platform/ directly.
#pragma once

#if defined(_WIN32)
#  include <windows.h>
#  include <mmdeviceapi.h>
#  include <audioclient.h>
#  include <audiopolicy.h>
#  include <endpointvolume.h>
#  include <functiondiscoverykeys_devpkey.h>
#  include <avrt.h>
#  include "zqplatform/framework.h"
#else
#  include "zqplatform/win/wintypes.h"
#  include "zqplatform/win/wstring.h"
#  include "zqplatform/win/stringapiset.h"
#  include "zqplatform/win/systime.h"
#  include "zqplatform/win/debugapi.h"
#  include "zqplatform/win/interlocked.h"
#  include "zqplatform/win/concrt.h"
#  include "zqplatform/win/com.h"
#  include "zqplatform/win/coreaudio.h"
#  include "zqplatform/win/kernel.h"
#  include "zqplatform/win/winuser.h"
#  include "zqplatform/win/winreg.h"
#  include "zqplatform/win/libloader.h"
#  include "zqplatform/win/hiduart.h"
#  include "zqplatform/win/avrt.h"
#endif
#include "zqplatform/owning.h"
#include "zqplatform/zqSystem.h"
