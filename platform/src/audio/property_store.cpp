// IPropertyStore of an endpoint, read-only: the friendly name and the container identifier.
// The pulse backend's endpoints have the same store.
#include "com_object.h"
#include "objects.h"
#include "text.h"

namespace zqplatform::audio {
namespace {

class PropertyStore final : public IPropertyStore, private ComObject {
public:
    PropertyStore(std::wstring id, std::wstring name, const GUID& container)
        : m_id(std::move(id)), m_name(std::move(name)), m_container(container) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IPropertyStore>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetCount(DWORD* cProps) override {
        if (cProps == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected("IPropertyStore::GetCount", hr)) return hr;
        *cProps = 2;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetAt(DWORD iProp, PROPERTYKEY* pkey) override {
        if (pkey == nullptr) return E_POINTER;
        HRESULT hr;
        if (Injected("IPropertyStore::GetAt", hr)) return hr;
        if (iProp > 1) return E_INVALIDARG;
        *pkey = iProp == 0 ? PKEY_Device_FriendlyName : PKEY_Device_ContainerId;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* pv) override {
        if (pv == nullptr) return E_POINTER;
        PropVariantInit(pv);
        HRESULT hr;
        if (Injected("IPropertyStore::GetValue", hr)) return hr;
        if (key == PKEY_Device_FriendlyName) {
            pv->pwszVal = TaskMemCopy(m_name);
            if (pv->pwszVal == nullptr) return E_OUTOFMEMORY;
            pv->vt = VT_LPWSTR;
        } else if (key == PKEY_Device_ContainerId) {
            pv->puuid = static_cast<CLSID*>(CoTaskMemAlloc(sizeof(CLSID)));
            if (pv->puuid == nullptr) return E_OUTOFMEMORY;
            *pv->puuid = m_container;
            pv->vt = VT_CLSID;
        }
        // Any other key: S_OK with an empty value, as Windows answers for a property not set.
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY /*key*/, REFPROPVARIANT /*propvar*/) override {
        HRESULT hr;
        if (Injected("IPropertyStore::SetValue", hr)) return hr;
        return E_ACCESSDENIED;  // opened for reading only
    }

    HRESULT STDMETHODCALLTYPE Commit() override {
        HRESULT hr;
        if (Injected("IPropertyStore::Commit", hr)) return hr;
        return E_ACCESSDENIED;
    }

private:
    bool Injected(const char* method, HRESULT& hr) const {
        return FailureRules::Instance().Match(m_id, method, hr);
    }

    const std::wstring m_id;
    const std::wstring m_name;
    const GUID m_container;
};

}  // namespace

HRESULT CreatePropertyStore(std::shared_ptr<EndpointState> endpoint, IPropertyStore** out) {
    return CreatePropertyStore(endpoint->id, endpoint->name, endpoint->container, out);
}

HRESULT CreatePropertyStore(std::wstring id, std::wstring name, const GUID& container, IPropertyStore** out) {
    PropertyStore* store;
    try {
        store = new PropertyStore(std::move(id), std::move(name), container);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    *out = store;
    return S_OK;
}

}  // namespace zqplatform::audio
