// IAudioCaptureClient and IAudioRenderClient: packet access to a stream, from the capture and
// render threads (backend.h: nothing here allocates or waits).
#include "com_object.h"
#include "objects.h"

namespace zqplatform::coreaudio {
namespace {

// What both clients hold: the endpoint (for the checks) and the stream they share with their
// IAudioClient.
template <typename Interface>
class StreamClient : public Implements<Interface> {
public:
    StreamClient(std::shared_ptr<Endpoint> endpoint, std::shared_ptr<Stream> stream)
        : m_endpoint(std::move(endpoint)), m_stream(std::move(stream)) {}

protected:
    bool Fails(const char* method, HRESULT& hr) const { return Intercepted(*m_endpoint, method, hr); }

    const std::shared_ptr<Endpoint> m_endpoint;
    const std::shared_ptr<Stream> m_stream;
};

class CaptureClient final : public StreamClient<IAudioCaptureClient> {
public:
    using StreamClient::StreamClient;

    HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** ppData, UINT32* pNumFramesToRead, DWORD* pdwFlags,
                                        UINT64* pu64DevicePosition, UINT64* pu64QPCPosition) override {
        if (ppData == nullptr || pNumFramesToRead == nullptr || pdwFlags == nullptr) return E_POINTER;
        HRESULT hr;
        if (Fails("IAudioCaptureClient::GetBuffer", hr)) return hr;
        return m_stream->CaptureGetBuffer(ppData, pNumFramesToRead, pdwFlags, pu64DevicePosition, pu64QPCPosition);
    }

    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 NumFramesRead) override {
        HRESULT hr;
        if (Fails("IAudioCaptureClient::ReleaseBuffer", hr)) return hr;
        return m_stream->CaptureReleaseBuffer(NumFramesRead);
    }

    HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* pNumFramesInNextPacket) override {
        if (pNumFramesInNextPacket == nullptr) return E_POINTER;
        HRESULT hr;
        if (Fails("IAudioCaptureClient::GetNextPacketSize", hr)) return hr;
        return m_stream->NextPacketSize(pNumFramesInNextPacket);
    }
};

class RenderClient final : public StreamClient<IAudioRenderClient> {
public:
    using StreamClient::StreamClient;

    HRESULT STDMETHODCALLTYPE GetBuffer(UINT32 NumFramesRequested, BYTE** ppData) override {
        if (ppData == nullptr) return E_POINTER;
        *ppData = nullptr;
        HRESULT hr;
        if (Fails("IAudioRenderClient::GetBuffer", hr)) return hr;
        return m_stream->RenderGetBuffer(NumFramesRequested, ppData);
    }

    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 NumFramesWritten, DWORD dwFlags) override {
        HRESULT hr;
        if (Fails("IAudioRenderClient::ReleaseBuffer", hr)) return hr;
        return m_stream->RenderReleaseBuffer(NumFramesWritten, dwFlags);
    }
};

}  // namespace

HRESULT CreateCaptureClient(std::shared_ptr<Endpoint> endpoint, std::shared_ptr<Stream> stream, void** ppv) {
    return Make<IAudioCaptureClient, CaptureClient>(reinterpret_cast<IAudioCaptureClient**>(ppv), std::move(endpoint),
                                                    std::move(stream));
}

HRESULT CreateRenderClient(std::shared_ptr<Endpoint> endpoint, std::shared_ptr<Stream> stream, void** ppv) {
    return Make<IAudioRenderClient, RenderClient>(reinterpret_cast<IAudioRenderClient**>(ppv), std::move(endpoint),
                                                  std::move(stream));
}

}  // namespace zqplatform::coreaudio
