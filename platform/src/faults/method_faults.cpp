// The Core Audio methods that failures can be injected into (method_faults.h).
#include "method_faults.h"

#include <algorithm>
#include <array>

#include "fault_rules.h"

namespace zqplatform::faults {
namespace {

constexpr std::array kMethods = {
    "IMMDeviceEnumerator::EnumAudioEndpoints",
    "IMMDeviceEnumerator::GetDefaultAudioEndpoint",
    "IMMDeviceEnumerator::GetDevice",
    "IMMDeviceEnumerator::RegisterEndpointNotificationCallback",
    "IMMDeviceEnumerator::UnregisterEndpointNotificationCallback",
    "IMMDeviceCollection::GetCount",
    "IMMDeviceCollection::Item",
    "IMMDevice::Activate",
    "IMMDevice::OpenPropertyStore",
    "IMMDevice::GetId",
    "IMMDevice::GetState",
    "IMMEndpoint::GetDataFlow",
    "IPropertyStore::GetCount",
    "IPropertyStore::GetAt",
    "IPropertyStore::GetValue",
    "IPropertyStore::SetValue",
    "IPropertyStore::Commit",
    "IAudioClient::Initialize",
    "IAudioClient::GetBufferSize",
    "IAudioClient::GetStreamLatency",
    "IAudioClient::GetCurrentPadding",
    "IAudioClient::IsFormatSupported",
    "IAudioClient::GetMixFormat",
    "IAudioClient::GetDevicePeriod",
    "IAudioClient::Start",
    "IAudioClient::Stop",
    "IAudioClient::Reset",
    "IAudioClient::SetEventHandle",
    "IAudioClient::GetService",
    "IAudioCaptureClient::GetBuffer",
    "IAudioCaptureClient::ReleaseBuffer",
    "IAudioCaptureClient::GetNextPacketSize",
    "IAudioRenderClient::GetBuffer",
    "IAudioRenderClient::ReleaseBuffer",
    "ISimpleAudioVolume::SetMasterVolume",
    "ISimpleAudioVolume::GetMasterVolume",
    "ISimpleAudioVolume::SetMute",
    "ISimpleAudioVolume::GetMute",
    "IAudioMeterInformation::GetPeakValue",
    "IAudioMeterInformation::GetMeteringChannelCount",
    "IAudioMeterInformation::GetChannelsPeakValues",
    "IAudioMeterInformation::QueryHardwareSupport",
    "IAudioSessionManager::GetAudioSessionControl",
    "IAudioSessionManager::GetSimpleAudioVolume",
    "IAudioSessionControl::GetState",
    "IAudioSessionControl::GetDisplayName",
    "IAudioSessionControl::SetDisplayName",
    "IAudioSessionControl::GetIconPath",
    "IAudioSessionControl::SetIconPath",
    "IAudioSessionControl::GetGroupingParam",
    "IAudioSessionControl::SetGroupingParam",
    "IAudioSessionControl::RegisterAudioSessionNotification",
    "IAudioSessionControl::UnregisterAudioSessionNotification",
    "IAudioEndpointVolume::RegisterControlChangeNotify",
    "IAudioEndpointVolume::UnregisterControlChangeNotify",
    "IAudioEndpointVolume::GetChannelCount",
    "IAudioEndpointVolume::SetMasterVolumeLevel",
    "IAudioEndpointVolume::SetMasterVolumeLevelScalar",
    "IAudioEndpointVolume::GetMasterVolumeLevel",
    "IAudioEndpointVolume::GetMasterVolumeLevelScalar",
    "IAudioEndpointVolume::SetChannelVolumeLevel",
    "IAudioEndpointVolume::SetChannelVolumeLevelScalar",
    "IAudioEndpointVolume::GetChannelVolumeLevel",
    "IAudioEndpointVolume::GetChannelVolumeLevelScalar",
    "IAudioEndpointVolume::SetMute",
    "IAudioEndpointVolume::GetMute",
    "IAudioEndpointVolume::GetVolumeStepInfo",
    "IAudioEndpointVolume::VolumeStepUp",
    "IAudioEndpointVolume::VolumeStepDown",
    "IAudioEndpointVolume::QueryHardwareSupport",
    "IAudioEndpointVolume::GetVolumeRange",
};

}  // namespace

namespace {

// The interfaces that the requesting methods hand out, by the names rules give them.
struct RequestedInterface {
    const char* name;
    const IID* iid;
};
const RequestedInterface kRequested[] = {
    {"IAudioClient", &IID_IAudioClient},
    {"IAudioMeterInformation", &IID_IAudioMeterInformation},
    {"IAudioSessionManager", &IID_IAudioSessionManager},
    {"IAudioCaptureClient", &IID_IAudioCaptureClient},
    {"IAudioRenderClient", &IID_IAudioRenderClient},
    {"ISimpleAudioVolume", &IID_ISimpleAudioVolume},
    {"IAudioEndpointVolume", &IID_IAudioEndpointVolume},
};
constexpr std::string_view kRequestingMethods[] = {"IMMDevice::Activate", "IAudioClient::GetService"};

}  // namespace

bool IsInjectableMethod(std::string_view method) {
    if (std::find(kMethods.begin(), kMethods.end(), method) != kMethods.end()) return true;
    const size_t slash = method.find('/');
    if (slash == std::string_view::npos) return false;
    const std::string_view base = method.substr(0, slash);
    const std::string_view requested = method.substr(slash + 1);
    return std::find(std::begin(kRequestingMethods), std::end(kRequestingMethods), base) !=
               std::end(kRequestingMethods) &&
           std::any_of(std::begin(kRequested), std::end(kRequested),
                       [&](const RequestedInterface& r) { return requested == r.name; });
}

bool MethodFails(std::wstring_view endpointId, std::string_view method, HRESULT& hr) {
    int64_t code = 0;
    if (!Fails(method, endpointId, code)) return false;
    hr = static_cast<HRESULT>(code);
    return true;
}

bool RequestFails(std::wstring_view endpointId, std::string_view method, REFIID requested, HRESULT& hr) {
    if (!AnyArmed()) return false;  // before the name below is made
    if (MethodFails(endpointId, method, hr)) return true;
    for (const RequestedInterface& r : kRequested) {
        if (*r.iid == requested) return MethodFails(endpointId, std::string(method) + "/" + r.name, hr);
    }
    return false;
}

std::vector<std::string> InjectableMethodNames() {
    std::vector<std::string> methods(kMethods.begin(), kMethods.end());
    for (std::string_view base : kRequestingMethods) {
        for (const RequestedInterface& r : kRequested) methods.push_back(std::string(base) + "/" + r.name);
    }
    return methods;
}

}  // namespace zqplatform::faults
