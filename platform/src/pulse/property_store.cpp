// IPropertyStore of a sink or source, read-only: its description as the friendly name and the
// container of the USB device it belongs to (GUID_NULL when it belongs to none).
#include "../audio/com_object.h"
#include "../audio/text.h"
#include "objects.h"

namespace zqplatform::pulse {
namespace {

using audio::AnswerQuery;
using audio::ComObject;

class PropertyStore final : public IPropertyStore, private ComObject {
public:
    explicit PropertyStore(Endpoint endpoint) : m_endpoint(std::move(endpoint)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<IPropertyStore>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }

    HRESULT STDMETHODCALLTYPE GetCount(DWORD* cProps) override {
        if (cProps == nullptr) return E_POINTER;
        *cProps = 2;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetAt(DWORD iProp, PROPERTYKEY* pkey) override {
        if (pkey == nullptr) return E_POINTER;
        if (iProp > 1) return E_INVALIDARG;
        *pkey = iProp == 0 ? PKEY_Device_FriendlyName : PKEY_Device_ContainerId;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* pv) override {
        if (pv == nullptr) return E_POINTER;
        PropVariantInit(pv);
        if (key == PKEY_Device_FriendlyName) {
            pv->pwszVal = audio::TaskMemCopy(m_endpoint.description);
            if (pv->pwszVal == nullptr) return E_OUTOFMEMORY;
            pv->vt = VT_LPWSTR;
        } else if (key == PKEY_Device_ContainerId) {
            pv->puuid = static_cast<CLSID*>(CoTaskMemAlloc(sizeof(CLSID)));
            if (pv->puuid == nullptr) return E_OUTOFMEMORY;
            *pv->puuid = m_endpoint.container;
            pv->vt = VT_CLSID;
        }
        // Any other key: S_OK with an empty value, as Windows answers for a property not set.
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, REFPROPVARIANT) override { return E_ACCESSDENIED; }
    HRESULT STDMETHODCALLTYPE Commit() override { return E_ACCESSDENIED; }

private:
    const Endpoint m_endpoint;
};

}  // namespace

HRESULT CreatePropertyStore(Endpoint endpoint, IPropertyStore** out) {
    auto* store = new (std::nothrow) PropertyStore(std::move(endpoint));
    if (store == nullptr) return E_OUTOFMEMORY;
    *out = store;
    return S_OK;
}

}  // namespace zqplatform::pulse
