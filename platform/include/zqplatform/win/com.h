// COM as the system uses it: IUnknown, apartments, class creation, task memory, PROPVARIANT
// and the counted pointer CComPtr.
#pragma once

#include <memory>
#include <utility>

#include "zqplatform/win/wintypes.h"

#if !defined(_WIN32)  // the SDK has everything down to CComPtr's identifiers by type
#define DECLSPEC_UUID(x)
#define MIDL_INTERFACE(x) struct
#define STDMETHOD(method) virtual HRESULT STDMETHODCALLTYPE method
#define STDMETHOD_(type, method) virtual type STDMETHODCALLTYPE method
#define STDMETHODIMP HRESULT STDMETHODCALLTYPE
#define STDMETHODIMP_(type) type STDMETHODCALLTYPE
#define PURE = 0

typedef enum tagCOINIT {
    COINIT_APARTMENTTHREADED = 0x2,
    COINIT_MULTITHREADED = 0x0,
    COINIT_DISABLE_OLE1DDE = 0x4,
    COINIT_SPEED_OVER_MEMORY = 0x8
} COINIT;

typedef enum tagCLSCTX {
    CLSCTX_INPROC_SERVER = 0x1,
    CLSCTX_INPROC_HANDLER = 0x2,
    CLSCTX_LOCAL_SERVER = 0x4,
    CLSCTX_REMOTE_SERVER = 0x10,
} CLSCTX;
#define CLSCTX_ALL (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)

#define STGM_READ 0x00000000L
#define STGM_WRITE 0x00000001L
#define STGM_READWRITE 0x00000002L

struct IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

protected:
    ~IUnknown() = default;  // objects go through Release, never through delete of the interface
};
typedef IUnknown* LPUNKNOWN;

ZQPLATFORM_API extern const IID IID_IUnknown;

extern "C" {
// Joins the calling thread to an apartment. S_OK the first time, S_FALSE when the thread has
// already joined the same kind, RPC_E_CHANGED_MODE when it joined the other kind.
ZQPLATFORM_API HRESULT CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit);
ZQPLATFORM_API HRESULT CoInitialize(LPVOID pvReserved);
ZQPLATFORM_API void CoUninitialize();
// Creates an object of a registered class. CO_E_NOTINITIALIZED on a thread that has not
// joined an apartment, REGDB_E_CLASSNOTREG for an unknown class.
ZQPLATFORM_API HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid,
                                        LPVOID* ppv);
ZQPLATFORM_API LPVOID CoTaskMemAlloc(size_t cb);
ZQPLATFORM_API void CoTaskMemFree(LPVOID pv);
}

// PROPVARIANT, with the value types that endpoint property stores hand out.
typedef unsigned short VARTYPE;
enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I4 = 3,
    VT_UI4 = 19,
    VT_LPWSTR = 31,
    VT_CLSID = 72,
    VT_BLOB = 65,
};
struct BLOB {
    ULONG cbSize;
    BYTE* pBlobData;
};
struct PROPVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONG lVal;
        ULONG ulVal;
        LPWSTR pwszVal;
        CLSID* puuid;
        BLOB blob;
    };
};
typedef PROPVARIANT* LPPROPVARIANT;
typedef const PROPVARIANT* REFPROPVARIANT;

inline void PropVariantInit(PROPVARIANT* pv) { std::memset(pv, 0, sizeof(PROPVARIANT)); }
extern "C" ZQPLATFORM_API HRESULT PropVariantClear(PROPVARIANT* pvar);

struct PROPERTYKEY {
    GUID fmtid;
    DWORD pid;
};
typedef const PROPERTYKEY& REFPROPERTYKEY;
inline bool operator==(const PROPERTYKEY& a, const PROPERTYKEY& b) { return a.fmtid == b.fmtid && a.pid == b.pid; }

#endif  // !_WIN32

// Interface identifiers by type, for CComPtr::QueryInterface; every interface header
// specialises it with ZQ_DECLARE_IID. The SDK's interfaces carry theirs (__uuidof).
#if defined(_WIN32)
template <typename T>
struct zq_iid_of {
    static const IID& get() { return __uuidof(T); }
};
#else
template <typename T>
struct zq_iid_of;
#endif
#define ZQ_DECLARE_IID(Interface, IidName)              \
    template <>                                         \
    struct zq_iid_of<Interface> {                       \
        static const IID& get() { return IidName; }     \
    }
ZQ_DECLARE_IID(IUnknown, IID_IUnknown);

// Counted interface pointer: holds one reference while not null.
template <typename T>
class CComPtr {
public:
    CComPtr() noexcept = default;
    CComPtr(T* other) noexcept : p(other) {  // NOLINT: implicit, as in the framework
        if (p) p->AddRef();
    }
    CComPtr(const CComPtr& other) noexcept : CComPtr(other.p) {}
    CComPtr(CComPtr&& other) noexcept : p(std::exchange(other.p, nullptr)) {}
    ~CComPtr() { Release(); }

    CComPtr& operator=(T* other) noexcept {
        if (other) other->AddRef();  // before the release, so self-assignment is harmless
        T* old = std::exchange(p, other);
        if (old) old->Release();
        return *this;
    }
    CComPtr& operator=(const CComPtr& other) noexcept { return *this = other.p; }
    CComPtr& operator=(CComPtr&& other) noexcept {
        if (this != std::addressof(other)) {
            T* old = std::exchange(p, std::exchange(other.p, nullptr));
            if (old) old->Release();
        }
        return *this;
    }

    void Release() noexcept {
        T* old = std::exchange(p, nullptr);
        if (old) old->Release();
    }
    void Attach(T* other) noexcept {
        T* old = std::exchange(p, other);
        if (old) old->Release();
    }
    T* Detach() noexcept { return std::exchange(p, nullptr); }

    operator T*() const noexcept { return p; }  // NOLINT
    T* operator->() const noexcept { return p; }
    T& operator*() const noexcept { return *p; }
    // For out-parameters: the pointer must be empty, as the framework asserts.
    T** operator&() noexcept { return &p; }
    bool operator!() const noexcept { return p == nullptr; }

    template <typename Q>
    HRESULT QueryInterface(Q** pp) const noexcept {
        if (pp == nullptr) return E_POINTER;
        if (p == nullptr) return E_POINTER;
        return p->QueryInterface(zq_iid_of<Q>::get(), reinterpret_cast<void**>(pp));
    }

    T* p = nullptr;
};
