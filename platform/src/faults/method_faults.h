// Failures injected into the Core Audio methods (zqvm::InjectFailure), by their
// "Interface::Method" names, over the one store of fault_rules.h. Internal to the platform
// library; the front end (coreaudio/) asks before each method, whatever the backend.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "zqplatform/win/coreaudio.h"
#include "zqplatform/win/wintypes.h"

namespace zqplatform::faults {

// The names InjectFailure takes: every method, and "Interface::Method/Requested" for the
// methods that hand out the interface they are asked for (IMMDevice::Activate,
// IAudioClient::GetService), e.g. "IMMDevice::Activate/IAudioMeterInformation".
bool IsInjectableMethod(std::string_view method);
std::vector<std::string> InjectableMethodNames();

// Whether a call of method on an object of endpointId (empty: the enumerator's and collections'
// own methods) is to fail, and with what.
bool MethodFails(std::wstring_view endpointId, std::string_view method, HRESULT& hr);
// The same for a method that hands out the interface requested: a rule for the method matches
// every call, a rule for "method/Requested" only the calls asking for that interface.
bool RequestFails(std::wstring_view endpointId, std::string_view method, REFIID requested, HRESULT& hr);

}  // namespace zqplatform::faults
