// COM apartments: CoInitializeEx, CoInitialize, CoUninitialize. Each thread counts its own
// joins; there is no implicit multithreaded apartment, so a thread that has not joined cannot
// create objects, whatever other threads did.
#include "class_registry.h"

namespace {

enum class Apartment { None, SingleThreaded, MultiThreaded };

struct ApartmentState {
    Apartment kind = Apartment::None;
    unsigned joins = 0;  // successful CoInitialize(Ex) calls not yet matched by CoUninitialize
};

thread_local ApartmentState t_apartment;

}  // namespace

namespace zqplatform {

bool IsComInitializedOnThisThread() { return t_apartment.joins > 0; }

}  // namespace zqplatform

extern "C" {

HRESULT CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit) {
    if (pvReserved != nullptr) return E_INVALIDARG;
    const Apartment wanted =
        (dwCoInit & COINIT_APARTMENTTHREADED) != 0 ? Apartment::SingleThreaded : Apartment::MultiThreaded;
    ApartmentState& state = t_apartment;
    if (state.joins == 0) {
        state.kind = wanted;
        state.joins = 1;
        return S_OK;
    }
    if (state.kind != wanted) return RPC_E_CHANGED_MODE;  // not counted: no CoUninitialize is owed
    ++state.joins;
    return S_FALSE;
}

HRESULT CoInitialize(LPVOID pvReserved) { return CoInitializeEx(pvReserved, COINIT_APARTMENTTHREADED); }

void CoUninitialize() {
    ApartmentState& state = t_apartment;
    if (state.joins == 0) return;  // unbalanced: nothing to leave
    if (--state.joins == 0) state.kind = Apartment::None;
}

}
