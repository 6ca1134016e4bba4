// IMMDevice and IMMEndpoint: one sink or source of the sound server as a device object.
#include "../audio/com_object.h"
#include "../audio/objects.h"
#include "../audio/text.h"
#include "objects.h"

namespace zqplatform::pulse {
namespace {

using audio::AnswerQuery;
using audio::ComObject;

class Device final : public IMMDevice, public IMMEndpoint, private ComObject {
public:
    Device(std::shared_ptr<Connection> connection, Endpoint endpoint)
        : m_connection(std::move(connection)), m_endpoint(std::move(endpoint)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IMMDevice, IMMEndpoint>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD /*dwClsCtx*/, PROPVARIANT* /*pActivationParams*/,
                                       void** ppInterface) override {
        if (ppInterface == nullptr) return E_POINTER;
        *ppInterface = nullptr;
        if (iid != IID_IAudioClient && iid != IID_IAudioMeterInformation && iid != IID_IAudioSessionManager &&
            iid != IID_IAudioEndpointVolume)
            return E_NOINTERFACE;
        // Audio objects are made from the device as the server describes it now.
        const std::optional<Endpoint> now = m_connection->Alive() ? m_connection->Find(m_endpoint.id) : std::nullopt;
        if (!now || now->state != DEVICE_STATE_ACTIVE) return AUDCLNT_E_DEVICE_INVALIDATED;
        if (iid == IID_IAudioClient) return CreateAudioClient(m_connection, *now, iid, ppInterface);
        if (iid == IID_IAudioMeterInformation) return CreateMeter(m_connection, *now, iid, ppInterface);
        if (iid == IID_IAudioEndpointVolume) return CreateEndpointVolume(m_connection, *now, iid, ppInterface);
        return CreateSessionManager(m_connection, *now, iid, ppInterface);
    }

    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD stgmAccess, IPropertyStore** ppProperties) override {
        if (ppProperties == nullptr) return E_POINTER;
        *ppProperties = nullptr;
        if (stgmAccess != STGM_READ)
            return stgmAccess == STGM_WRITE || stgmAccess == STGM_READWRITE ? E_ACCESSDENIED : E_INVALIDARG;
        // The virtual engine's store: the description is the friendly name.
        return audio::CreatePropertyStore(m_endpoint.id, m_endpoint.description, m_endpoint.container, ppProperties);
    }

    HRESULT STDMETHODCALLTYPE GetId(LPWSTR* ppstrId) override {
        if (ppstrId == nullptr) return E_POINTER;
        *ppstrId = audio::TaskMemCopy(m_endpoint.id);
        return *ppstrId != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetState(DWORD* pdwState) override {
        if (pdwState == nullptr) return E_POINTER;
        const std::optional<Endpoint> now = m_connection->Alive() ? m_connection->Find(m_endpoint.id) : std::nullopt;
        *pdwState = now ? now->state : DEVICE_STATE_NOTPRESENT;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetDataFlow(EDataFlow* pDataFlow) override {
        if (pDataFlow == nullptr) return E_POINTER;
        *pDataFlow = m_endpoint.flow;
        return S_OK;
    }

private:
    const std::shared_ptr<Connection> m_connection;
    const Endpoint m_endpoint;
};

}  // namespace

HRESULT CreateDevice(std::shared_ptr<Connection> connection, Endpoint endpoint, IMMDevice** out) {
    auto* device = new (std::nothrow) Device(std::move(connection), std::move(endpoint));
    if (device == nullptr) return E_OUTOFMEMORY;
    *out = device;
    return S_OK;
}

}  // namespace zqplatform::pulse
