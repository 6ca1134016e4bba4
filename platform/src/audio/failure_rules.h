// Failures injected into the engine's COM methods by the control API. Internal to the
// platform library.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "zqplatform/win/wintypes.h"
#include "zqplatform/win/coreaudio.h"

namespace zqplatform::audio {

class FailureRules {
public:
    static FailureRules& Instance();
    // "Interface::Method" names the engine implements.
    static bool IsKnownMethod(std::string_view method);

    // A once-rule lets `skip` matching calls pass before it fails one.
    void Add(std::wstring endpointId, std::string method, HRESULT hr, bool once, uint32_t skip = 0);
    size_t Count() const { return m_count.load(std::memory_order_acquire); }
    // Every name Add takes, the requested-interface forms included.
    static std::vector<std::string> Methods();
    void Clear();
    // Whether a call of method on an object of endpointId (empty: the enumerator's and
    // collections' own methods) is to fail, and with what. A once-rule is used up here.
    // Without rules this is one atomic load, cheap enough for every GetBuffer.
    bool Match(std::wstring_view endpointId, std::string_view method, HRESULT& hr);
    // The same for a method that hands out the interface it is asked for (IMMDevice::Activate,
    // IAudioClient::GetService): a rule for "Interface::Method" matches every call, a rule for
    // "Interface::Method/Requested" (e.g. "IMMDevice::Activate/IAudioMeterInformation") only
    // the calls asking for that interface.
    bool MatchRequest(std::wstring_view endpointId, std::string_view method, REFIID requested, HRESULT& hr);

private:
    struct Rule {
        std::wstring endpointId;
        std::string method;
        HRESULT hr;
        bool once;
        uint32_t skip;
    };
    std::atomic<size_t> m_count{0};
    std::mutex m_lock;
    std::vector<Rule> m_rules;
};

}  // namespace zqplatform::audio
