// Injected failures.
#include "failure_rules.h"

#include <algorithm>
#include <array>

namespace zqplatform::audio {
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
};

}  // namespace

FailureRules& FailureRules::Instance() {
    static FailureRules* rules = new FailureRules;  // never destroyed: engine threads may still ask
    return *rules;
}

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
};
constexpr std::string_view kRequestingMethods[] = {"IMMDevice::Activate", "IAudioClient::GetService"};

}  // namespace

bool FailureRules::IsKnownMethod(std::string_view method) {
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

bool FailureRules::MatchRequest(std::wstring_view endpointId, std::string_view method, REFIID requested, HRESULT& hr) {
    if (m_count.load(std::memory_order_acquire) == 0) return false;
    if (Match(endpointId, method, hr)) return true;
    for (const RequestedInterface& r : kRequested) {
        if (*r.iid == requested) return Match(endpointId, std::string(method) + "/" + r.name, hr);
    }
    return false;
}

std::vector<std::string> FailureRules::Methods() {
    std::vector<std::string> methods(kMethods.begin(), kMethods.end());
    for (std::string_view base : kRequestingMethods) {
        for (const RequestedInterface& r : kRequested) methods.push_back(std::string(base) + "/" + r.name);
    }
    return methods;
}

void FailureRules::Add(std::wstring endpointId, std::string method, HRESULT hr, bool once, uint32_t skip) {
    std::lock_guard lock(m_lock);
    m_rules.push_back(Rule{std::move(endpointId), std::move(method), hr, once, skip});
    m_count.store(m_rules.size(), std::memory_order_release);
}

void FailureRules::Clear() {
    std::lock_guard lock(m_lock);
    m_rules.clear();
    m_count.store(0, std::memory_order_release);
}

bool FailureRules::Match(std::wstring_view endpointId, std::string_view method, HRESULT& hr) {
    if (m_count.load(std::memory_order_acquire) == 0) return false;
    std::lock_guard lock(m_lock);
    for (auto it = m_rules.begin(); it != m_rules.end(); ++it) {
        if (it->method != method) continue;
        if (!it->endpointId.empty() && it->endpointId != endpointId) continue;
        if (it->skip > 0) {
            --it->skip;
            return false;
        }
        hr = it->hr;
        if (it->once) {
            m_rules.erase(it);
            m_count.store(m_rules.size(), std::memory_order_release);
        }
        return true;
    }
    return false;
}

}  // namespace zqplatform::audio
