// IAudioRenderClient: writing frames into a render stream.
#include "com_object.h"
#include "objects.h"

namespace zqplatform::audio {
namespace {

class RenderClient final : public IAudioRenderClient, private ComObject {
public:
    RenderClient(const EndpointBinding& binding, std::shared_ptr<Stream> stream)
        : m_binding(binding), m_stream(std::move(stream)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioRenderClient>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetBuffer(UINT32 NumFramesRequested, BYTE** ppData) override {
        if (ppData == nullptr) return E_POINTER;
        *ppData = nullptr;
        HRESULT hr;
        if (m_binding.Intercept("IAudioRenderClient::GetBuffer", hr)) return hr;
        return m_stream->RenderGetBuffer(NumFramesRequested, ppData);
    }

    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 NumFramesWritten, DWORD dwFlags) override {
        HRESULT hr;
        if (m_binding.Intercept("IAudioRenderClient::ReleaseBuffer", hr)) return hr;
        return m_stream->RenderReleaseBuffer(NumFramesWritten, dwFlags);
    }

private:
    const EndpointBinding m_binding;
    const std::shared_ptr<Stream> m_stream;
};

}  // namespace

HRESULT CreateRenderClient(const EndpointBinding& binding, std::shared_ptr<Stream> stream, void** ppv) {
    auto* client = new (std::nothrow) RenderClient(binding, std::move(stream));
    if (client == nullptr) return E_OUTOFMEMORY;
    return HandOut<IAudioRenderClient>(client, ppv);
}

}  // namespace zqplatform::audio
