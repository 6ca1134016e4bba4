#include "meterless_endpoint.h"

#include <atomic>

namespace zqwintest {
namespace {

// COM reference counting shared by the two objects below.
template <class Interface>
class Counted : public Interface {
public:
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_refs;
        if (left == 0) delete this;
        return left;
    }

protected:
    virtual ~Counted() = default;
    HRESULT Answer(REFIID riid, void** ppv) {
        if (ppv == nullptr) return E_POINTER;
        if (riid == __uuidof(IUnknown) || riid == __uuidof(Interface)) {
            *ppv = static_cast<Interface*>(this);
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }

private:
    std::atomic<ULONG> m_refs{1};
};

class SilentMeter final : public Counted<IAudioMeterInformation> {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override { return Answer(riid, ppv); }
    HRESULT STDMETHODCALLTYPE GetPeakValue(float* peak) override {
        if (peak == nullptr) return E_POINTER;
        *peak = 0.0f;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT* count) override {
        if (count == nullptr) return E_POINTER;
        *count = 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32 count, float* peaks) override {
        if (peaks == nullptr) return E_POINTER;
        for (UINT32 i = 0; i < count; ++i) peaks[i] = 0.0f;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* mask) override {
        if (mask == nullptr) return E_POINTER;
        *mask = 0;
        return S_OK;
    }
};

class MeterCompletingEndpoint final : public Counted<IMMDevice> {
public:
    explicit MeterCompletingEndpoint(IMMDevice* real) : m_real(real) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        const HRESULT own = Answer(riid, ppv);
        return own == E_NOINTERFACE ? m_real->QueryInterface(riid, ppv) : own;
    }
    HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD context, PROPVARIANT* params, void** ppv) override {
        const HRESULT hr = m_real->Activate(iid, context, params, ppv);
        if (hr != E_NOINTERFACE || iid != __uuidof(IAudioMeterInformation) || ppv == nullptr) return hr;
        *ppv = static_cast<IAudioMeterInformation*>(new SilentMeter);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD access, IPropertyStore** store) override {
        return m_real->OpenPropertyStore(access, store);
    }
    HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) override { return m_real->GetId(id); }
    HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override { return m_real->GetState(state); }

private:
    CComPtr<IMMDevice> m_real;
};

}  // namespace

bool HasOwnMeter(IMMDevice* device) {
    CComPtr<IAudioMeterInformation> meter;
    return device != nullptr &&
           SUCCEEDED(device->Activate(__uuidof(IAudioMeterInformation), CLSCTX_ALL, nullptr,
                                      reinterpret_cast<void**>(&meter)));
}

CComPtr<IMMDevice> WithMeter(IMMDevice* device) {
    if (device == nullptr || HasOwnMeter(device)) return device;
    CComPtr<IMMDevice> wrapped;
    wrapped.Attach(new MeterCompletingEndpoint(device));
    return wrapped;
}

}  // namespace zqwintest
