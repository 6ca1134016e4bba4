// IMMDeviceCollection: the endpoints EnumAudioEndpoints found, as they were at that moment.
#include "com_object.h"
#include "objects.h"

namespace zqplatform::audio {
namespace {

class DeviceCollection final : public IMMDeviceCollection, private ComObject {
public:
    explicit DeviceCollection(std::vector<std::shared_ptr<EndpointState>> endpoints)
        : m_endpoints(std::move(endpoints)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IMMDeviceCollection>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetCount(UINT* pcDevices) override {
        if (pcDevices == nullptr) return E_POINTER;
        HRESULT hr;
        if (FailureRules::Instance().Match(L"", "IMMDeviceCollection::GetCount", hr)) return hr;
        *pcDevices = static_cast<UINT>(m_endpoints.size());
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Item(UINT nDevice, IMMDevice** ppDevice) override {
        if (ppDevice == nullptr) return E_POINTER;
        *ppDevice = nullptr;
        HRESULT hr;
        if (FailureRules::Instance().Match(L"", "IMMDeviceCollection::Item", hr)) return hr;
        if (nDevice >= m_endpoints.size()) return E_INVALIDARG;
        return CreateDevice(m_endpoints[nDevice], ppDevice);
    }

private:
    const std::vector<std::shared_ptr<EndpointState>> m_endpoints;
};

}  // namespace

HRESULT CreateDeviceCollection(std::vector<std::shared_ptr<EndpointState>> endpoints, IMMDeviceCollection** out) {
    auto* collection = new (std::nothrow) DeviceCollection(std::move(endpoints));
    if (collection == nullptr) return E_OUTOFMEMORY;
    *out = collection;
    return S_OK;
}

}  // namespace zqplatform::audio
