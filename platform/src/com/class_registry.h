// Classes that CoCreateInstance can create. Internal to the platform library (exported only
// for the platform's own tests).
#pragma once

#include <functional>

#include "zqplatform/win/com.h"

namespace zqplatform {

// Creates an instance and returns the requested interface through ppv (with one reference).
using ClassFactory = std::function<HRESULT(REFIID riid, void** ppv)>;

// Registers (or replaces) the factory of a class.
ZQPLATFORM_API void RegisterComClass(const CLSID& clsid, ClassFactory factory);
// Whether the calling thread has joined an apartment with CoInitializeEx and not left it.
ZQPLATFORM_API bool IsComInitializedOnThisThread();

}  // namespace zqplatform
