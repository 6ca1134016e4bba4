// IAudioMeterInformation: the endpoint's peak over the last device period of a running
// stream (0 while none runs), linear, 0 to 1.
#include "com_object.h"
#include "objects.h"

namespace zqplatform::audio {
namespace {

class Meter final : public IAudioMeterInformation, private ComObject {
public:
    explicit Meter(const EndpointBinding& binding) : m_binding(binding) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioMeterInformation>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetPeakValue(float* pfPeak) override {
        if (pfPeak == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioMeterInformation::GetPeakValue", hr)) return hr;
        *pfPeak = m_binding->Peak();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT* pnChannelCount) override {
        if (pnChannelCount == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioMeterInformation::GetMeteringChannelCount", hr)) return hr;
        *pnChannelCount = m_binding->format.Channels();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32 u32ChannelCount, float* afPeakValues) override {
        if (afPeakValues == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioMeterInformation::GetChannelsPeakValues", hr)) return hr;
        if (u32ChannelCount != m_binding->format.Channels()) return E_INVALIDARG;
        for (UINT32 c = 0; c < u32ChannelCount; ++c) afPeakValues[c] = m_binding->ChannelPeak(c);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* pdwHardwareSupportMask) override {
        if (pdwHardwareSupportMask == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioMeterInformation::QueryHardwareSupport", hr)) return hr;
        *pdwHardwareSupportMask = 0;  // metering is done in software
        return S_OK;
    }

private:
    const EndpointBinding m_binding;
};

}  // namespace

HRESULT CreateMeter(const EndpointBinding& binding, REFIID riid, void** ppv) {
    auto* meter = new (std::nothrow) Meter(binding);
    if (meter == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = meter->QueryInterface(riid, ppv);
    meter->Release();
    return hr;
}

}  // namespace zqplatform::audio
