// The classes CoCreateInstance can create, and CoCreateInstance itself.
#include "class_registry.h"

#include "../faults/call_faults.h"

#include <memory>
#include <mutex>
#include <vector>

namespace zqplatform {
namespace {

struct Registration {
    CLSID clsid;
    std::shared_ptr<const ClassFactory> factory;
};

struct Registry {
    std::mutex lock;
    std::vector<Registration> classes;
};

Registry& TheRegistry() {
    static Registry* registry = new Registry;  // never destroyed: creation may race the exit
    return *registry;
}

std::shared_ptr<const ClassFactory> FindFactory(const CLSID& clsid) {
    Registry& registry = TheRegistry();
    std::lock_guard lock(registry.lock);
    for (const Registration& registration : registry.classes)
        if (registration.clsid == clsid) return registration.factory;
    return nullptr;
}

}  // namespace

void RegisterComClass(const CLSID& clsid, ClassFactory factory) {
    auto shared = std::make_shared<const ClassFactory>(std::move(factory));
    Registry& registry = TheRegistry();
    std::lock_guard lock(registry.lock);
    for (Registration& registration : registry.classes) {
        if (registration.clsid == clsid) {
            registration.factory = std::move(shared);  // an instance being created keeps the old one
            return;
        }
    }
    registry.classes.push_back(Registration{clsid, std::move(shared)});
}

}  // namespace zqplatform

extern "C" {

HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid, LPVOID* ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (pUnkOuter != nullptr) return CLASS_E_NOAGGREGATION;
    if (!zqplatform::IsComInitializedOnThisThread()) return CO_E_NOTINITIALIZED;
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("CoCreateInstance", fault)) return static_cast<HRESULT>(fault);
    // Every registered class is an in-process server.
    if ((dwClsContext & CLSCTX_INPROC_SERVER) == 0) return REGDB_E_CLASSNOTREG;
    const std::shared_ptr<const zqplatform::ClassFactory> factory = zqplatform::FindFactory(rclsid);
    if (!factory || !*factory) return REGDB_E_CLASSNOTREG;
    // The factory runs without the registry's lock: it may register or create other classes.
    const HRESULT hr = (*factory)(riid, ppv);
    if (FAILED(hr)) *ppv = nullptr;
    return hr;
}

}
