// IAudioClient: a shared-mode stream of an endpoint. The bookkeeping is the Stream's; this
// object checks injected failures and invalidation first, as every endpoint object does.
#include "com_object.h"
#include "objects.h"

namespace zqplatform::audio {
namespace {

class AudioClient final : public IAudioClient, private ComObject {
public:
    explicit AudioClient(const EndpointBinding& binding)
        : m_binding(binding), m_stream(std::make_shared<Stream>(binding)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioClient>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE ShareMode, DWORD StreamFlags,
                                         REFERENCE_TIME hnsBufferDuration, REFERENCE_TIME hnsPeriodicity,
                                         const WAVEFORMATEX* pFormat, LPCGUID /*AudioSessionGuid*/) override {
        // Every stream joins the endpoint's one session, whatever session GUID is asked for.
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::Initialize", hr)) return hr;
        return m_stream->Initialize(ShareMode, StreamFlags, hnsBufferDuration, hnsPeriodicity, pFormat);
    }

    HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* pNumBufferFrames) override {
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::GetBufferSize", hr)) return hr;
        return m_stream->BufferSize(pNumBufferFrames);
    }

    HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME* phnsLatency) override {
        if (phnsLatency == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::GetStreamLatency", hr)) return hr;
        if (!m_stream->Initialized()) return AUDCLNT_E_NOT_INITIALIZED;
        *phnsLatency = Stream::kDevicePeriod;  // the engine holds one period
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32* pNumPaddingFrames) override {
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::GetCurrentPadding", hr)) return hr;
        return m_stream->Padding(pNumPaddingFrames);
    }

    HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE ShareMode, const WAVEFORMATEX* pFormat,
                                                WAVEFORMATEX** ppClosestMatch) override {
        if (ppClosestMatch != nullptr) *ppClosestMatch = nullptr;
        if (pFormat == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::IsFormatSupported", hr)) return hr;
        const std::optional<MixFormat> asked = MixFormat::FromWaveFormat(pFormat);
        const bool same = asked && asked->SameStream(m_binding->format);
        if (ShareMode == AUDCLNT_SHAREMODE_EXCLUSIVE) return same ? S_OK : AUDCLNT_E_UNSUPPORTED_FORMAT;
        if (ShareMode != AUDCLNT_SHAREMODE_SHARED || ppClosestMatch == nullptr) return E_INVALIDARG;
        if (same) return S_OK;
        // Shared mode takes the mix format only: that is the closest match.
        *ppClosestMatch = m_binding->format.TaskMemCopy();
        return *ppClosestMatch != nullptr ? S_FALSE : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** ppDeviceFormat) override {
        if (ppDeviceFormat == nullptr) return E_POINTER;
        *ppDeviceFormat = nullptr;
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::GetMixFormat", hr)) return hr;
        *ppDeviceFormat = m_binding->format.TaskMemCopy();
        return *ppDeviceFormat != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME* phnsDefaultDevicePeriod,
                                              REFERENCE_TIME* phnsMinimumDevicePeriod) override {
        if (phnsDefaultDevicePeriod == nullptr && phnsMinimumDevicePeriod == nullptr) return E_POINTER;
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::GetDevicePeriod", hr)) return hr;
        if (phnsDefaultDevicePeriod) *phnsDefaultDevicePeriod = Stream::kDevicePeriod;
        if (phnsMinimumDevicePeriod) *phnsMinimumDevicePeriod = Stream::kMinimumPeriod;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Start() override {
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::Start", hr)) return hr;
        return m_stream->Start();
    }

    HRESULT STDMETHODCALLTYPE Stop() override {
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::Stop", hr, false)) return hr;
        const HRESULT stopped = m_stream->Stop();
        // A stream of a device that went away still stops (its clock is let go), but says so.
        return m_binding.Valid() ? stopped : AUDCLNT_E_DEVICE_INVALIDATED;
    }

    HRESULT STDMETHODCALLTYPE Reset() override {
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::Reset", hr)) return hr;
        return m_stream->Reset();
    }

    HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE eventHandle) override {
        HRESULT hr;
        if (m_binding.Intercept("IAudioClient::SetEventHandle", hr)) return hr;
        return m_stream->SetEventHandle(eventHandle);
    }

    HRESULT STDMETHODCALLTYPE GetService(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        HRESULT hr;
        if (FailureRules::Instance().MatchRequest(m_binding->id, "IAudioClient::GetService", riid, hr)) return hr;
        if (m_binding.Intercept("IAudioClient::GetService", hr)) return hr;
        if (!m_stream->Initialized()) return AUDCLNT_E_NOT_INITIALIZED;
        const bool capture = m_binding->flow == eCapture;
        if (riid == IID_IAudioCaptureClient)
            return capture ? CreateCaptureClient(m_binding, m_stream, ppv) : AUDCLNT_E_WRONG_ENDPOINT_TYPE;
        if (riid == IID_IAudioRenderClient)
            return capture ? AUDCLNT_E_WRONG_ENDPOINT_TYPE : CreateRenderClient(m_binding, m_stream, ppv);
        if (riid == IID_ISimpleAudioVolume) return CreateSimpleVolume(m_binding, ppv);
        return E_NOINTERFACE;
    }

private:
    const EndpointBinding m_binding;
    const std::shared_ptr<Stream> m_stream;  // shared with the capture or render client
};

}  // namespace

HRESULT CreateAudioClient(const EndpointBinding& binding, REFIID riid, void** ppv) {
    AudioClient* client;
    try {
        client = new AudioClient(binding);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = client->QueryInterface(riid, ppv);
    client->Release();
    return hr;
}

}  // namespace zqplatform::audio
