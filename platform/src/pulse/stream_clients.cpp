// IAudioCaptureClient and IAudioRenderClient: packet access to a stream's ring, from the
// capture and render threads (see stream.h: no lock, no wait, no allocation).
#include "../audio/com_object.h"
#include "objects.h"

namespace zqplatform::pulse {
namespace {

using audio::AnswerQuery;
using audio::ComObject;

class CaptureClient final : public IAudioCaptureClient, private ComObject {
public:
    explicit CaptureClient(std::shared_ptr<Stream> stream) : m_stream(std::move(stream)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioCaptureClient>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** ppData, UINT32* pNumFramesToRead, DWORD* pdwFlags,
                                        UINT64* pu64DevicePosition, UINT64* pu64QPCPosition) override {
        return m_stream->CaptureGetBuffer(ppData, pNumFramesToRead, pdwFlags, pu64DevicePosition, pu64QPCPosition);
    }
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 NumFramesRead) override {
        return m_stream->CaptureReleaseBuffer(NumFramesRead);
    }
    HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* pNumFramesInNextPacket) override {
        return m_stream->NextPacketSize(pNumFramesInNextPacket);
    }

private:
    const std::shared_ptr<Stream> m_stream;
};

class RenderClient final : public IAudioRenderClient, private ComObject {
public:
    explicit RenderClient(std::shared_ptr<Stream> stream) : m_stream(std::move(stream)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IAudioRenderClient>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetBuffer(UINT32 NumFramesRequested, BYTE** ppData) override {
        return m_stream->RenderGetBuffer(NumFramesRequested, ppData);
    }
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 NumFramesWritten, DWORD dwFlags) override {
        return m_stream->RenderReleaseBuffer(NumFramesWritten, dwFlags);
    }

private:
    const std::shared_ptr<Stream> m_stream;
};

}  // namespace

HRESULT CreateCaptureClient(std::shared_ptr<Stream> stream, void** ppv) {
    auto* client = new (std::nothrow) CaptureClient(std::move(stream));
    if (client == nullptr) return E_OUTOFMEMORY;
    return audio::HandOut<IAudioCaptureClient>(client, ppv);
}

HRESULT CreateRenderClient(std::shared_ptr<Stream> stream, void** ppv) {
    auto* client = new (std::nothrow) RenderClient(std::move(stream));
    if (client == nullptr) return E_OUTOFMEMORY;
    return audio::HandOut<IAudioRenderClient>(client, ppv);
}

}  // namespace zqplatform::pulse
