// The Core Audio front end's call trace: every method call, in order, with the endpoint of the
// object it was made on, for tests that check which calls a path makes (zqvm::CoreAudioCalls).
// Internal to the platform library.
//
// Off unless a test turns it on (zqvm::TraceCoreAudioCalls): the capture and render threads make
// calls every period, and while it is off a call costs one relaxed load and nothing else.
#pragma once

#include <string_view>

namespace zqplatform::coreaudio {

// Called by the front end at the entry of every method (objects.h, Injected), whatever the backend.
void TraceCall(std::wstring_view endpointId, std::string_view method);

}  // namespace zqplatform::coreaudio
