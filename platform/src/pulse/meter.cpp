// IAudioMeterInformation of a sink or source. A sound server keeps no meter per device, so the
// meter reports the peak of the samples that passed through the process's streams on the
// endpoint since the meter was last read (0 when nothing passed): a render stream's samples as
// handed to the server, a capture stream's as the server delivered them, both before the
// session volume. Every channel reads the same, overall peak.
#include "../audio/com_object.h"
#include "objects.h"

namespace zqplatform::pulse {
namespace {

using audio::AnswerQuery;
using audio::ComObject;

class Meter final : public IAudioMeterInformation, private ComObject {
public:
    Meter(std::shared_ptr<Connection> connection, std::shared_ptr<Session> session, UINT channels)
        : m_connection(std::move(connection)), m_session(std::move(session)), m_channels(channels) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioMeterInformation>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetPeakValue(float* pfPeak) override {
        if (pfPeak == nullptr) return E_POINTER;
        if (!m_connection->Alive()) return AUDCLNT_E_DEVICE_INVALIDATED;
        *pfPeak = std::min(1.0f, m_session->TakePeak());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT* pnChannelCount) override {
        if (pnChannelCount == nullptr) return E_POINTER;
        *pnChannelCount = m_channels;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32 u32ChannelCount, float* afPeakValues) override {
        if (afPeakValues == nullptr) return E_POINTER;
        if (u32ChannelCount != m_channels) return E_INVALIDARG;
        if (!m_connection->Alive()) return AUDCLNT_E_DEVICE_INVALIDATED;
        const float peak = std::min(1.0f, m_session->TakePeak());
        for (UINT32 i = 0; i < u32ChannelCount; ++i) afPeakValues[i] = peak;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* pdwHardwareSupportMask) override {
        if (pdwHardwareSupportMask == nullptr) return E_POINTER;
        *pdwHardwareSupportMask = 0;  // metered in software
        return S_OK;
    }

private:
    const std::shared_ptr<Connection> m_connection;
    const std::shared_ptr<Session> m_session;
    const UINT m_channels;
};

}  // namespace

HRESULT CreateMeter(std::shared_ptr<Connection> connection, const Endpoint& endpoint, REFIID riid, void** ppv) {
    std::shared_ptr<Session> session = connection->SessionOf(endpoint);
    auto* meter = new (std::nothrow) Meter(std::move(connection), std::move(session), endpoint.sampleSpec.channels);
    if (meter == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = meter->QueryInterface(riid, ppv);
    meter->Release();
    return hr;
}

}  // namespace zqplatform::pulse
