// Window classes: RegisterClassExW, UnregisterClassW.
#include "window_state.h"

#include "zqplatform/win/wstring.h"

namespace zqplatform::window {
namespace {

// An integer atom in a name's place, as MAKEINTATOM makes it.
bool IsAtom(LPCWSTR nameOrAtom) { return reinterpret_cast<ULONG_PTR>(nameOrAtom) <= 0xFFFF; }

}  // namespace

std::shared_ptr<WindowClass> FindClassLocked(WindowState& state, LPCWSTR nameOrAtom) {
    if (nameOrAtom == nullptr) return nullptr;
    for (const auto& cls : state.classes) {
        if (IsAtom(nameOrAtom) ? cls->atom == static_cast<ATOM>(reinterpret_cast<ULONG_PTR>(nameOrAtom))
                               : _wcsicmp(cls->name.c_str(), nameOrAtom) == 0) {
            return cls;
        }
    }
    return nullptr;
}

}  // namespace zqplatform::window

using namespace zqplatform::window;

ATOM RegisterClassExW(const WNDCLASSEXW* lpwcx) {
    if (lpwcx == nullptr || lpwcx->cbSize != sizeof(WNDCLASSEXW) || lpwcx->lpfnWndProc == nullptr ||
        lpwcx->lpszClassName == nullptr || IsAtom(lpwcx->lpszClassName) || lpwcx->lpszClassName[0] == L'\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    if (FindClassLocked(state, lpwcx->lpszClassName)) {
        SetLastError(ERROR_CLASS_ALREADY_EXISTS);
        return 0;
    }
    auto cls = std::make_shared<WindowClass>();
    cls->atom = state.nextAtom++;
    cls->name = lpwcx->lpszClassName;
    cls->desc = *lpwcx;
    cls->desc.lpszClassName = cls->name.c_str();  // the caller's text need not outlive the call
    cls->desc.lpszMenuName = nullptr;
    state.classes.push_back(cls);
    return cls->atom;
}

BOOL UnregisterClassW(LPCWSTR lpClassName, HINSTANCE /*hInstance*/) {
    WindowState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    const std::shared_ptr<WindowClass> cls = FindClassLocked(state, lpClassName);
    if (!cls) {
        SetLastError(ERROR_CLASS_DOES_NOT_EXIST);
        return FALSE;
    }
    if (cls->windows > 0) {
        SetLastError(ERROR_CLASS_HAS_WINDOWS);
        return FALSE;
    }
    std::erase(state.classes, cls);
    return TRUE;
}
