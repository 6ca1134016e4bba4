// IAudioClient: a shared-mode stream of an endpoint. The bookkeeping is the backend's stream;
// this object checks arguments, injected failures and invalidation first.
#include "com_object.h"
#include "objects.h"

namespace zqplatform::coreaudio {
namespace {

constexpr REFERENCE_TIME kDevicePeriod = 100000;  // 10 ms, what every backend schedules
constexpr REFERENCE_TIME kMinimumPeriod = 30000;  // 3 ms, as Windows reports

class AudioClient final : public Implements<IAudioClient> {
public:
    AudioClient(std::shared_ptr<Endpoint> endpoint, std::shared_ptr<Stream> stream)
        : m_endpoint(std::move(endpoint)), m_stream(std::move(stream)) {}

    HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE ShareMode, DWORD StreamFlags,
                                         REFERENCE_TIME hnsBufferDuration, REFERENCE_TIME hnsPeriodicity,
                                         const WAVEFORMATEX* pFormat, LPCGUID /*AudioSessionGuid*/) override {
        // Every stream joins the endpoint's one session, whatever session GUID is asked for.
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioClient::Initialize", hr)) return hr;
        if (pFormat == nullptr) return E_POINTER;
        return m_stream->Initialize(ShareMode, StreamFlags, hnsBufferDuration, hnsPeriodicity, pFormat);
    }

    HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* pNumBufferFrames) override {
        if (pNumBufferFrames == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioClient::GetBufferSize", hr)) return hr;
        return m_stream->BufferSize(pNumBufferFrames);
    }

    HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME* phnsLatency) override {
        if (phnsLatency == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioClient::GetStreamLatency", hr)) return hr;
        return m_stream->Latency(phnsLatency);
    }

    HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32* pNumPaddingFrames) override {
        if (pNumPaddingFrames == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioClient::GetCurrentPadding", hr)) return hr;
        return m_stream->Padding(pNumPaddingFrames);
    }

    HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE ShareMode, const WAVEFORMATEX* pFormat,
                                                WAVEFORMATEX** ppClosestMatch) override {
        if (ppClosestMatch != nullptr) *ppClosestMatch = nullptr;
        if (pFormat == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioClient::IsFormatSupported", hr)) return hr;
        const bool same = m_endpoint->IsMixFormat(*pFormat);
        if (ShareMode == AUDCLNT_SHAREMODE_EXCLUSIVE)
            return same && m_endpoint->OffersExclusiveMode() ? S_OK : AUDCLNT_E_UNSUPPORTED_FORMAT;
        if (ShareMode != AUDCLNT_SHAREMODE_SHARED || ppClosestMatch == nullptr) return E_INVALIDARG;
        if (same) return S_OK;
        // Shared mode takes the mix format only: that is the closest match.
        *ppClosestMatch = m_endpoint->TaskMemMixFormat();
        return *ppClosestMatch != nullptr ? S_FALSE : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** ppDeviceFormat) override {
        if (ppDeviceFormat == nullptr) return E_POINTER;
        *ppDeviceFormat = nullptr;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioClient::GetMixFormat", hr)) return hr;
        *ppDeviceFormat = m_endpoint->TaskMemMixFormat();
        return *ppDeviceFormat != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME* phnsDefaultDevicePeriod,
                                              REFERENCE_TIME* phnsMinimumDevicePeriod) override {
        if (phnsDefaultDevicePeriod == nullptr && phnsMinimumDevicePeriod == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioClient::GetDevicePeriod", hr)) return hr;
        if (phnsDefaultDevicePeriod) *phnsDefaultDevicePeriod = kDevicePeriod;
        if (phnsMinimumDevicePeriod) *phnsMinimumDevicePeriod = kMinimumPeriod;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Start() override {
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioClient::Start", hr)) return hr;
        return m_stream->Start();
    }

    HRESULT STDMETHODCALLTYPE Stop() override {
        HRESULT hr;
        // A stream of a device that went away still stops (the backend says so).
        if (Intercepted(*m_endpoint, "IAudioClient::Stop", hr, false)) return hr;
        return m_stream->Stop();
    }

    HRESULT STDMETHODCALLTYPE Reset() override {
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioClient::Reset", hr)) return hr;
        return m_stream->Reset();
    }

    HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE eventHandle) override {
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioClient::SetEventHandle", hr)) return hr;
        if (eventHandle == nullptr || eventHandle == INVALID_HANDLE_VALUE) return E_INVALIDARG;
        return m_stream->SetEventHandle(eventHandle);
    }

    HRESULT STDMETHODCALLTYPE GetService(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        HRESULT hr;
        if (InjectedRequest(m_endpoint->Id(), "IAudioClient::GetService", riid, hr)) return hr;
        if (Intercepted(*m_endpoint, "IAudioClient::GetService", hr)) return hr;
        if (!m_stream->Initialized()) return AUDCLNT_E_NOT_INITIALIZED;
        const bool capture = m_endpoint->Flow() == eCapture;
        if (riid == IID_IAudioCaptureClient)
            return capture ? CreateCaptureClient(m_endpoint, m_stream, ppv) : AUDCLNT_E_WRONG_ENDPOINT_TYPE;
        if (riid == IID_IAudioRenderClient)
            return capture ? AUDCLNT_E_WRONG_ENDPOINT_TYPE : CreateRenderClient(m_endpoint, m_stream, ppv);
        if (riid == IID_ISimpleAudioVolume) return CreateSimpleVolume(m_endpoint, ppv);
        return E_NOINTERFACE;
    }

private:
    const std::shared_ptr<Endpoint> m_endpoint;
    const std::shared_ptr<Stream> m_stream;  // shared with the capture or render client
};

}  // namespace

HRESULT CreateAudioClient(std::shared_ptr<Endpoint> endpoint, REFIID riid, void** ppv) {
    std::shared_ptr<Stream> stream = endpoint->NewStream();
    if (!stream) return E_OUTOFMEMORY;
    return MakeAs<AudioClient>(riid, ppv, std::move(endpoint), std::move(stream));
}

}  // namespace zqplatform::coreaudio
