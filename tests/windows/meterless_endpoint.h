// Wine's Core Audio has no IAudioMeterInformation (Activate answers E_NOINTERFACE), and the
// library opens no stream without one, as on Windows, where every endpoint has it. So that
// the streams can still be run under Wine, the test hands the library its endpoints wrapped:
// every call goes to the real endpoint, except an Activate of the meter that the endpoint
// refuses, which gets a meter reading silence. The meter's own checks skip, naming the gap.
#pragma once

#include "zqCoreAudio.h"

namespace zqwintest {

// Whether the endpoint gives a meter of its own.
bool HasOwnMeter(IMMDevice* device);

// device itself when it has its own meter; else the wrapper around it (null for null).
CComPtr<IMMDevice> WithMeter(IMMDevice* device);

}  // namespace zqwintest
