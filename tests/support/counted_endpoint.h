// An endpoint object that only counts its references, for tests of the records that hold
// endpoints. It is never freed through Release, so the count can be read after the last one.
#pragma once

#include <atomic>

#include "zqPlatform.h"

namespace zqtest {

class CountedEndpoint final : public IMMDevice {
public:
    ULONG Refs() const { return m_refs.load(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        if (riid == IID_IUnknown || riid == IID_IMMDevice) {
            *ppv = static_cast<IMMDevice*>(this);
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_refs; }
    HRESULT STDMETHODCALLTYPE Activate(REFIID, DWORD, PROPVARIANT*, void** ppInterface) override {
        if (ppInterface) *ppInterface = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore** store) override {
        if (store) *store = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) override {
        if (id) *id = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override {
        if (state) *state = DEVICE_STATE_ACTIVE;
        return S_OK;
    }

private:
    std::atomic<ULONG> m_refs{1};
};

}  // namespace zqtest
