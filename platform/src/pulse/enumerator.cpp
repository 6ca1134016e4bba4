// IMMDeviceEnumerator and IMMDeviceCollection over the sound server's sinks and sources.
#include "../audio/com_object.h"
#include "objects.h"

namespace zqplatform::pulse {
namespace {

using audio::AnswerQuery;
using audio::ComObject;

class DeviceEnumerator final : public IMMDeviceEnumerator, private ComObject {
public:
    explicit DeviceEnumerator(std::shared_ptr<Connection> connection) : m_connection(std::move(connection)) {}
    // Registrations made through this enumerator end with it (after a callback under way).
    ~DeviceEnumerator() override { Backend::Instance().Clients().RemoveOwner(this); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IMMDeviceEnumerator>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow dataFlow, DWORD dwStateMask,
                                                 IMMDeviceCollection** ppDevices) override {
        if (ppDevices == nullptr) return E_POINTER;
        *ppDevices = nullptr;
        if (dataFlow < eRender || dataFlow > eAll) return E_INVALIDARG;
        if (dwStateMask == 0 || (dwStateMask & ~static_cast<DWORD>(DEVICE_STATEMASK_ALL)) != 0) return E_INVALIDARG;
        return CreateDeviceCollection(m_connection, m_connection->Endpoints(dataFlow, dwStateMask), ppDevices);
    }

    HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow dataFlow, ERole role, IMMDevice** ppEndpoint) override {
        if (ppEndpoint == nullptr) return E_POINTER;
        *ppEndpoint = nullptr;
        if ((dataFlow != eRender && dataFlow != eCapture) || role < eConsole || role > eCommunications)
            return E_INVALIDARG;
        // The server's default sink or source serves every role.
        std::optional<Endpoint> endpoint = m_connection->Default(dataFlow);
        if (!endpoint || endpoint->state != DEVICE_STATE_ACTIVE) return E_NOTFOUND;
        return CreateDevice(m_connection, std::move(*endpoint), ppEndpoint);
    }

    HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR pwstrId, IMMDevice** ppDevice) override {
        if (pwstrId == nullptr || ppDevice == nullptr) return E_POINTER;
        *ppDevice = nullptr;
        std::optional<Endpoint> endpoint = m_connection->Find(pwstrId);
        if (!endpoint) return E_NOTFOUND;
        return CreateDevice(m_connection, std::move(*endpoint), ppDevice);
    }

    HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient* pClient) override {
        if (pClient == nullptr) return E_POINTER;
        Backend::Instance().Clients().Add(pClient, this);  // a second registration changes nothing
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(IMMNotificationClient* pClient) override {
        if (pClient == nullptr) return E_POINTER;
        // Waits for a callback to this client under way, unless called from inside one.
        return Backend::Instance().Clients().Remove(pClient) ? S_OK : E_NOTFOUND;
    }

private:
    const std::shared_ptr<Connection> m_connection;
};

class DeviceCollection final : public IMMDeviceCollection, private ComObject {
public:
    DeviceCollection(std::shared_ptr<Connection> connection, std::vector<Endpoint> endpoints)
        : m_connection(std::move(connection)), m_endpoints(std::move(endpoints)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IMMDeviceCollection>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetCount(UINT* pcDevices) override {
        if (pcDevices == nullptr) return E_POINTER;
        *pcDevices = static_cast<UINT>(m_endpoints.size());
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Item(UINT nDevice, IMMDevice** ppDevice) override {
        if (ppDevice == nullptr) return E_POINTER;
        *ppDevice = nullptr;
        if (nDevice >= m_endpoints.size()) return E_INVALIDARG;
        return CreateDevice(m_connection, m_endpoints[nDevice], ppDevice);
    }

private:
    const std::shared_ptr<Connection> m_connection;
    const std::vector<Endpoint> m_endpoints;
};

}  // namespace

HRESULT CreateDeviceEnumerator(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    std::string why;
    std::shared_ptr<Connection> connection = Backend::Instance().Connect(&why, true);
    if (!connection) return AUDCLNT_E_SERVICE_NOT_RUNNING;
    auto* enumerator = new (std::nothrow) DeviceEnumerator(std::move(connection));
    if (enumerator == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = enumerator->QueryInterface(riid, ppv);
    enumerator->Release();  // the creator's reference; the query's stays with the caller
    return hr;
}

HRESULT CreateDeviceCollection(std::shared_ptr<Connection> connection, std::vector<Endpoint> endpoints,
                               IMMDeviceCollection** out) {
    auto* collection = new (std::nothrow) DeviceCollection(std::move(connection), std::move(endpoints));
    if (collection == nullptr) return E_OUTOFMEMORY;
    *out = collection;
    return S_OK;
}

}  // namespace zqplatform::pulse
