// PKEY_Device_ContainerId, for Windows SDK headers whose functiondiscoverykeys_devpkey.h lacks
// it (mingw-w64 10, as Debian 12 ships it, has only the DEVPROPKEY of devpkey.h). The format
// identifier and property identifier are the SDK's; with the Microsoft SDK this adds nothing.
#pragma once

#if !defined(_WIN32)
#  error "zqplatform/winsdk/ completes the Windows SDK; elsewhere zqPlatform.h brings the stand-ins"
#endif

#include <functiondiscoverykeys_devpkey.h>

#if defined(__MINGW32__)
inline constexpr PROPERTYKEY PKEY_Device_ContainerId = {
    {0x8c7ed206, 0x3f8a, 0x4827, {0xb3, 0xab, 0xae, 0x9e, 0x1f, 0xae, 0xfc, 0x6c}}, 2};
#endif
