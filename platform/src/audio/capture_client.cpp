// IAudioCaptureClient: the packets of a capture stream.
#include "com_object.h"
#include "objects.h"

namespace zqplatform::audio {
namespace {

class CaptureClient final : public IAudioCaptureClient, private ComObject {
public:
    CaptureClient(const EndpointBinding& binding, std::shared_ptr<Stream> stream)
        : m_binding(binding), m_stream(std::move(stream)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioCaptureClient>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** ppData, UINT32* pNumFramesToRead, DWORD* pdwFlags,
                                        UINT64* pu64DevicePosition, UINT64* pu64QPCPosition) override {
        HRESULT hr;
        if (m_binding.Intercept("IAudioCaptureClient::GetBuffer", hr)) return hr;
        return m_stream->CaptureGetBuffer(ppData, pNumFramesToRead, pdwFlags, pu64DevicePosition, pu64QPCPosition);
    }

    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 NumFramesRead) override {
        HRESULT hr;
        if (m_binding.Intercept("IAudioCaptureClient::ReleaseBuffer", hr)) return hr;
        return m_stream->CaptureReleaseBuffer(NumFramesRead);
    }

    HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* pNumFramesInNextPacket) override {
        HRESULT hr;
        if (m_binding.Intercept("IAudioCaptureClient::GetNextPacketSize", hr)) return hr;
        return m_stream->NextPacketSize(pNumFramesInNextPacket);
    }

private:
    const EndpointBinding m_binding;
    const std::shared_ptr<Stream> m_stream;
};

}  // namespace

HRESULT CreateCaptureClient(const EndpointBinding& binding, std::shared_ptr<Stream> stream, void** ppv) {
    auto* client = new (std::nothrow) CaptureClient(binding, std::move(stream));
    if (client == nullptr) return E_OUTOFMEMORY;
    return HandOut<IAudioCaptureClient>(client, ppv);
}

}  // namespace zqplatform::audio
