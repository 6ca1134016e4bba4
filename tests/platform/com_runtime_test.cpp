// The COM runtime: apartments, class creation, task memory and PROPVARIANT clean-up. Each
// apartment test runs on a fresh thread, whose apartment state starts empty.
#include <atomic>
#include <cwchar>
#include <thread>

#include "../../platform/src/com/class_registry.h"
#include "kernel_test_support.h"
#include "zqplatform/win/com.h"

namespace {

const CLSID CLSID_TestWidget = {0x6A1C0F52, 0x33B1, 0x4E0D, {0x9C, 0x21, 0x5E, 0x70, 0x11, 0x8A, 0x42, 0x01}};
const CLSID CLSID_Unregistered = {0x6A1C0F52, 0x33B1, 0x4E0D, {0x9C, 0x21, 0x5E, 0x70, 0x11, 0x8A, 0x42, 0x02}};
const IID IID_Unsupported = {0x6A1C0F52, 0x33B1, 0x4E0D, {0x9C, 0x21, 0x5E, 0x70, 0x11, 0x8A, 0x42, 0x03}};

std::atomic<int> g_liveWidgets{0};

// A class to create: counts its references and its live instances.
class Widget final : public IUnknown {
public:
    Widget() { g_liveWidgets.fetch_add(1); }
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        *ppv = nullptr;
        if (riid != IID_IUnknown) return E_NOINTERFACE;
        AddRef();
        *ppv = static_cast<IUnknown*>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG left = --m_references;
        if (left == 0) delete this;
        return left;
    }

private:
    ~Widget() { g_liveWidgets.fetch_sub(1); }
    std::atomic<ULONG> m_references{1};
};

void RegisterWidget() {
    zqplatform::RegisterComClass(CLSID_TestWidget, [](REFIID riid, void** ppv) -> HRESULT {
        auto* widget = new Widget;
        const HRESULT hr = widget->QueryInterface(riid, ppv);
        widget->Release();  // what was handed out holds the only reference left
        return hr;
    });
}

// The host's thread joins a single-threaded apartment, each stream thread the multithreaded
// one; a join that fails is not counted.
TEST(ComApartment, CountsJoinsPerThread) {
    std::thread([] {
        EXPECT_FALSE(zqplatform::IsComInitializedOnThisThread());
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), RPC_E_CHANGED_MODE);
        std::thread([] { EXPECT_FALSE(zqplatform::IsComInitializedOnThisThread()); }).join();
        CoUninitialize();
        EXPECT_TRUE(zqplatform::IsComInitializedOnThisThread());  // one join still open
        CoUninitialize();
        EXPECT_FALSE(zqplatform::IsComInitializedOnThisThread());
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);  // having left, it may join the other kind
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
        CoUninitialize();
        EXPECT_FALSE(zqplatform::IsComInitializedOnThisThread());
    }).join();
}

TEST(ComCreate, NeedsAnApartmentOnTheCallingThread) {
    RegisterWidget();
    std::thread([] {
        void* object = reinterpret_cast<void*>(0x1);
        EXPECT_EQ(CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_ALL, IID_IUnknown, &object), CO_E_NOTINITIALIZED);
        EXPECT_EQ(object, nullptr);
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        const int liveBefore = g_liveWidgets.load();
        CComPtr<IUnknown> widget;
        ASSERT_EQ(CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                   reinterpret_cast<void**>(&widget)),
                  S_OK);
        EXPECT_EQ(g_liveWidgets.load(), liveBefore + 1);
        widget.Release();
        EXPECT_EQ(g_liveWidgets.load(), liveBefore);  // ours was the only reference
        CoUninitialize();
        EXPECT_EQ(CoCreateInstance(CLSID_TestWidget, nullptr, CLSCTX_ALL, IID_IUnknown, &object), CO_E_NOTINITIALIZED);
    }).join();
}

TEST(ComCreate, ReportsEachKindOfFailure) {
    RegisterWidget();
    std::thread([] {
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        const int liveBefore = g_liveWidgets.load();
        const auto expect = [](HRESULT expected, REFCLSID clsid, REFIID iid) {
            void* object = reinterpret_cast<void*>(0x1);
            EXPECT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, iid, &object), expected);
            EXPECT_EQ(object, nullptr);
        };
        expect(REGDB_E_CLASSNOTREG, CLSID_Unregistered, IID_IUnknown);
        expect(E_NOINTERFACE, CLSID_TestWidget, IID_Unsupported);  // the factory's own
        EXPECT_EQ(g_liveWidgets.load(), liveBefore);  // nothing half-made left behind
        CoUninitialize();
    }).join();
}

// The address sanitizer run's leak check fails this if anything owned is left unfreed.
TEST(ComPropVariant, ClearFreesWhatTheVariantOwnsAndEmptiesIt) {
    PROPVARIANT variants[3];
    for (PROPVARIANT& variant : variants) PropVariantInit(&variant);
    variants[0].vt = VT_LPWSTR;
    variants[0].pwszVal = static_cast<LPWSTR>(CoTaskMemAlloc(6 * sizeof(wchar_t)));
    std::wcscpy(variants[0].pwszVal, L"Mic 1");
    variants[1].vt = VT_CLSID;
    variants[1].puuid = static_cast<CLSID*>(CoTaskMemAlloc(sizeof(CLSID)));
    *variants[1].puuid = CLSID_TestWidget;
    variants[2].vt = VT_UI4;
    variants[2].ulVal = 48000;
    for (PROPVARIANT& variant : variants) {
        EXPECT_EQ(PropVariantClear(&variant), S_OK);
        EXPECT_EQ(variant.vt, VT_EMPTY);
        EXPECT_EQ(variant.blob.cbSize, 0u);
        EXPECT_EQ(variant.blob.pBlobData, nullptr);
        EXPECT_EQ(PropVariantClear(&variant), S_OK);  // a second clear frees nothing twice
    }
    EXPECT_EQ(PropVariantClear(nullptr), S_OK);
}

}  // namespace
