// Reference counting and interface queries shared by every COM object of the Core Audio front
// end. Internal to the platform library.
#pragma once

#include <atomic>
#include <new>
#include <utility>

#include "zqplatform/win/com.h"

namespace zqplatform::coreaudio {

// Core Audio objects alive, whatever the backend, for the control API's leak checks.
inline std::atomic<long>& LiveObjects() {
    static std::atomic<long> count{0};
    return count;
}

// Base of every Core Audio object: one reference when created, owned by the creator; destroyed by
// the Release that takes the count to 0. Counts are atomic, as objects are shared by threads.
class ComObject {
public:
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

protected:
    ComObject() noexcept { LiveObjects().fetch_add(1, std::memory_order_relaxed); }
    virtual ~ComObject() { LiveObjects().fetch_sub(1, std::memory_order_acq_rel); }

    ULONG AddRefImpl() noexcept { return m_refs.fetch_add(1, std::memory_order_relaxed) + 1; }
    ULONG ReleaseImpl() noexcept {
        // acq_rel: every use of the object by other holders happens before its destruction.
        const ULONG left = m_refs.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) delete this;
        return left;
    }

private:
    std::atomic<ULONG> m_refs{1};
};

// QueryInterface for an object implementing Interfaces...: IID_IUnknown answers with the first
// of them, so every query for IUnknown yields the same pointer (COM identity).
template <typename First, typename... Rest, typename Object>
HRESULT AnswerQuery(Object* object, REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid == IID_IUnknown || riid == zq_iid_of<First>::get()) {
        *ppv = static_cast<First*>(object);
    } else {
        (void)((riid == zq_iid_of<Rest>::get() && (*ppv = static_cast<Rest*>(object), true)) || ...);
    }
    if (*ppv == nullptr) return E_NOINTERFACE;
    object->AddRef();
    return S_OK;
}

// IUnknown of an object implementing Interfaces... (the first of them answers for IUnknown).
template <typename... Interfaces>
class Implements : public Interfaces..., private ComObject {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return AnswerQuery<Interfaces...>(this, riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return AddRefImpl(); }
    ULONG STDMETHODCALLTYPE Release() override { return ReleaseImpl(); }
};

// Makes an Object with its one reference and hands it out as the interface riid names (the
// creator's reference then goes); E_OUTOFMEMORY when it cannot be made.
template <typename Object, typename... Args>
HRESULT MakeAs(REFIID riid, void** ppv, Args&&... args) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    Object* object;
    try {
        object = new Object(std::forward<Args>(args)...);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = object->QueryInterface(riid, ppv);
    object->Release();
    return hr;
}

// The same, handed out as Interface (the object's one reference goes to the caller).
template <typename Interface, typename Object, typename... Args>
HRESULT Make(Interface** out, Args&&... args) {
    return MakeAs<Object>(zq_iid_of<Interface>::get(), reinterpret_cast<void**>(out), std::forward<Args>(args)...);
}

}  // namespace zqplatform::coreaudio
