// IAudioClient: a shared-mode, event-driven stream on a sink or source. The work is the
// Stream's; this object hands out its services.
#include "../audio/com_object.h"
#include "objects.h"

namespace zqplatform::pulse {
namespace {

using audio::AnswerQuery;
using audio::ComObject;

class AudioClient final : public IAudioClient, private ComObject {
public:
    AudioClient(std::shared_ptr<Connection> connection, const Endpoint& endpoint)
        : m_stream(std::make_shared<Stream>(connection, endpoint, connection->SessionOf(endpoint))) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioClient>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE ShareMode, DWORD StreamFlags,
                                         REFERENCE_TIME hnsBufferDuration, REFERENCE_TIME /*hnsPeriodicity*/,
                                         const WAVEFORMATEX* pFormat, LPCGUID /*AudioSessionGuid*/) override {
        // Every stream of the process on a device joins its one session, whatever GUID is asked for.
        return m_stream->Initialize(ShareMode, StreamFlags, hnsBufferDuration, pFormat);
    }
    HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* pNumBufferFrames) override {
        return m_stream->BufferSize(pNumBufferFrames);
    }
    HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME* phnsLatency) override {
        return m_stream->Latency(phnsLatency);
    }
    HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32* pNumPaddingFrames) override {
        return m_stream->Padding(pNumPaddingFrames);
    }

    HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE ShareMode, const WAVEFORMATEX* pFormat,
                                                WAVEFORMATEX** ppClosestMatch) override {
        if (ppClosestMatch != nullptr) *ppClosestMatch = nullptr;
        if (pFormat == nullptr) return E_POINTER;
        if (ShareMode == AUDCLNT_SHAREMODE_EXCLUSIVE) return AUDCLNT_E_UNSUPPORTED_FORMAT;
        if (ShareMode != AUDCLNT_SHAREMODE_SHARED || ppClosestMatch == nullptr) return E_INVALIDARG;
        const pa_sample_spec& sampleSpec = m_stream->Device().sampleSpec;
        const bool same = pFormat->nChannels == sampleSpec.channels && pFormat->nSamplesPerSec == sampleSpec.rate &&
                          pFormat->wBitsPerSample == 32 &&
                          (pFormat->wFormatTag == WAVE_FORMAT_IEEE_FLOAT ||
                           (pFormat->wFormatTag == WAVE_FORMAT_EXTENSIBLE && pFormat->cbSize >= 22 &&
                            reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(pFormat)->SubFormat ==
                                KSDATAFORMAT_SUBTYPE_IEEE_FLOAT));
        if (same) return S_OK;
        // Shared mode takes the mix format only: that is the closest match.
        *ppClosestMatch = TaskMemMixFormat(sampleSpec, m_stream->Device().channelMap);
        return *ppClosestMatch != nullptr ? S_FALSE : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** ppDeviceFormat) override {
        if (ppDeviceFormat == nullptr) return E_POINTER;
        *ppDeviceFormat = nullptr;
        if (!m_stream->Valid()) return AUDCLNT_E_DEVICE_INVALIDATED;
        *ppDeviceFormat = TaskMemMixFormat(m_stream->Device().sampleSpec, m_stream->Device().channelMap);
        return *ppDeviceFormat != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME* phnsDefaultDevicePeriod,
                                              REFERENCE_TIME* phnsMinimumDevicePeriod) override {
        if (phnsDefaultDevicePeriod == nullptr && phnsMinimumDevicePeriod == nullptr) return E_POINTER;
        if (phnsDefaultDevicePeriod) *phnsDefaultDevicePeriod = Stream::kDevicePeriod;
        if (phnsMinimumDevicePeriod) *phnsMinimumDevicePeriod = Stream::kMinimumPeriod;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Start() override { return m_stream->Start(); }
    HRESULT STDMETHODCALLTYPE Stop() override { return m_stream->Stop(); }
    HRESULT STDMETHODCALLTYPE Reset() override { return m_stream->Reset(); }
    HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE eventHandle) override { return m_stream->SetEventHandle(eventHandle); }

    HRESULT STDMETHODCALLTYPE GetService(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        if (!m_stream->Initialized()) return AUDCLNT_E_NOT_INITIALIZED;
        if (!m_stream->Valid()) return AUDCLNT_E_DEVICE_INVALIDATED;
        const bool capture = m_stream->Device().flow == eCapture;
        if (riid == IID_IAudioCaptureClient)
            return capture ? CreateCaptureClient(m_stream, ppv) : AUDCLNT_E_WRONG_ENDPOINT_TYPE;
        if (riid == IID_IAudioRenderClient)
            return capture ? AUDCLNT_E_WRONG_ENDPOINT_TYPE : CreateRenderClient(m_stream, ppv);
        if (riid == IID_ISimpleAudioVolume)
            return CreateSimpleVolume(m_stream->ConnectionOfStream(), m_stream->SessionOfStream(), ppv);
        return E_NOINTERFACE;
    }

private:
    const std::shared_ptr<Stream> m_stream;  // shared with the capture or render client
};

}  // namespace

HRESULT CreateAudioClient(std::shared_ptr<Connection> connection, const Endpoint& endpoint, REFIID riid, void** ppv) {
    AudioClient* client;
    try {
        client = new AudioClient(std::move(connection), endpoint);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = client->QueryInterface(riid, ppv);
    client->Release();
    return hr;
}

}  // namespace zqplatform::pulse
