// IPropertyStore of an endpoint, read-only: the friendly name and the container identifier.
#include "../audio/text.h"
#include "com_object.h"
#include "objects.h"

namespace zqplatform::coreaudio {
namespace {

class PropertyStore final : public Implements<IPropertyStore> {
public:
    explicit PropertyStore(std::shared_ptr<Device> device) : m_device(std::move(device)) {}

    HRESULT STDMETHODCALLTYPE GetCount(DWORD* cProps) override {
        if (cProps == nullptr) return E_POINTER;
        HRESULT hr;
        if (Fails("IPropertyStore::GetCount", hr)) return hr;
        *cProps = 2;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetAt(DWORD iProp, PROPERTYKEY* pkey) override {
        if (pkey == nullptr) return E_POINTER;
        HRESULT hr;
        if (Fails("IPropertyStore::GetAt", hr)) return hr;
        if (iProp > 1) return E_INVALIDARG;
        *pkey = iProp == 0 ? PKEY_Device_FriendlyName : PKEY_Device_ContainerId;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* pv) override {
        if (pv == nullptr) return E_POINTER;
        PropVariantInit(pv);
        HRESULT hr;
        if (Fails("IPropertyStore::GetValue", hr)) return hr;
        if (key == PKEY_Device_FriendlyName) {
            pv->pwszVal = audio::TaskMemCopy(m_device->FriendlyName());
            if (pv->pwszVal == nullptr) return E_OUTOFMEMORY;
            pv->vt = VT_LPWSTR;
        } else if (key == PKEY_Device_ContainerId) {
            pv->puuid = static_cast<CLSID*>(CoTaskMemAlloc(sizeof(CLSID)));
            if (pv->puuid == nullptr) return E_OUTOFMEMORY;
            *pv->puuid = m_device->Container();
            pv->vt = VT_CLSID;
        }
        // Any other key: S_OK with an empty value, as Windows answers for a property not set.
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY /*key*/, REFPROPVARIANT /*propvar*/) override {
        HRESULT hr;
        if (Fails("IPropertyStore::SetValue", hr)) return hr;
        return E_ACCESSDENIED;  // opened for reading only
    }

    HRESULT STDMETHODCALLTYPE Commit() override {
        HRESULT hr;
        if (Fails("IPropertyStore::Commit", hr)) return hr;
        return E_ACCESSDENIED;
    }

private:
    bool Fails(const char* method, HRESULT& hr) const {
        return Injected(m_device->Id(), method, hr);
    }

    const std::shared_ptr<Device> m_device;
};

}  // namespace

HRESULT CreatePropertyStore(std::shared_ptr<Device> device, IPropertyStore** out) {
    return Make<IPropertyStore, PropertyStore>(out, std::move(device));
}

}  // namespace zqplatform::coreaudio
