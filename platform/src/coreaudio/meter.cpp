// IAudioMeterInformation: the endpoint's peaks as its backend meters them, linear, 0 to 1.
#include "com_object.h"
#include "objects.h"

namespace zqplatform::coreaudio {
namespace {

class Meter final : public Implements<IAudioMeterInformation> {
public:
    explicit Meter(std::shared_ptr<Endpoint> endpoint) : m_endpoint(std::move(endpoint)) {}

    HRESULT STDMETHODCALLTYPE GetPeakValue(float* pfPeak) override {
        return Read(*m_endpoint, "IAudioMeterInformation::GetPeakValue", pfPeak,
                    [this] { return m_endpoint->Peak(); });
    }

    HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT* pnChannelCount) override {
        return Read(*m_endpoint, "IAudioMeterInformation::GetMeteringChannelCount", pnChannelCount,
                    [this] { return m_endpoint->Channels(); });
    }

    HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32 u32ChannelCount, float* afPeakValues) override {
        if (afPeakValues == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioMeterInformation::GetChannelsPeakValues", hr)) return hr;
        if (u32ChannelCount != m_endpoint->Channels()) return E_INVALIDARG;
        m_endpoint->ChannelPeaks(afPeakValues, u32ChannelCount);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* pdwHardwareSupportMask) override {
        return Read(*m_endpoint, "IAudioMeterInformation::QueryHardwareSupport", pdwHardwareSupportMask,
                    [] { return DWORD{0}; });  // every backend meters in software
    }

private:
    const std::shared_ptr<Endpoint> m_endpoint;
};

}  // namespace

HRESULT CreateMeter(std::shared_ptr<Endpoint> endpoint, REFIID riid, void** ppv) {
    return MakeAs<Meter>(riid, ppv, std::move(endpoint));
}

}  // namespace zqplatform::coreaudio
