// COM task memory and PROPVARIANT clean-up.
#include <cstdlib>

#include "zqplatform/win/com.h"

extern "C" {

LPVOID CoTaskMemAlloc(size_t cb) {
    return std::malloc(cb != 0 ? cb : 1);  // a zero-byte request still gets a distinct block
}

void CoTaskMemFree(LPVOID pv) { std::free(pv); }

// Frees what the variant owns; the kinds of value it can hold are those property stores hand out.
HRESULT PropVariantClear(PROPVARIANT* pvar) {
    if (pvar == nullptr) return S_OK;
    switch (pvar->vt) {
        case VT_LPWSTR:
            CoTaskMemFree(pvar->pwszVal);
            break;
        case VT_CLSID:
            CoTaskMemFree(pvar->puuid);
            break;
        case VT_BLOB:
            CoTaskMemFree(pvar->blob.pBlobData);
            break;
        default:
            break;  // values held in place own nothing
    }
    std::memset(pvar, 0, sizeof(PROPVARIANT));  // VT_EMPTY, and no pointer left to free twice
    return S_OK;
}

}
