// Reference counting and interface queries shared by every COM object of the virtual audio
// engine. Internal to the platform library.
#pragma once

#include <atomic>
#include <new>

#include "zqplatform/win/com.h"

namespace zqplatform::audio {

// Engine COM objects alive, for the control API's leak checks.
std::atomic<long>& LiveEngineObjects();

// Base of every engine object: one reference when created, owned by the creator; destroyed by
// the Release that takes the count to 0. Counts are atomic, as objects are shared by threads.
class ComObject {
public:
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

protected:
    ComObject() noexcept { LiveEngineObjects().fetch_add(1, std::memory_order_relaxed); }
    virtual ~ComObject() { LiveEngineObjects().fetch_sub(1, std::memory_order_acq_rel); }

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

// Hands a new object (created with its one reference) out through ppv as Interface.
template <typename Interface, typename Object>
HRESULT HandOut(Object* object, void** ppv) {
    *ppv = static_cast<Interface*>(object);
    return S_OK;
}

}  // namespace zqplatform::audio
