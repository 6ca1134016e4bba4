// The in-process registry: a key tree per predefined root, open-key handles, and values kept
// as raw bytes so that reads follow Windows' size rules whatever was stored.
#include "../faults/call_faults.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "zqplatform/vm/registry.h"
#include "zqplatform/win/winreg.h"

namespace {

// Names compare as the registry does for ASCII; other characters compare by code.
std::wstring Fold(const std::wstring& name) {
    std::wstring folded = name;
    for (wchar_t& c : folded) {
        if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
    }
    return folded;
}

struct Value {
    DWORD type = REG_NONE;
    std::vector<uint8_t> data;
};

struct Key {
    std::map<std::wstring, std::shared_ptr<Key>> children;  // by folded name
    std::map<std::wstring, Value> values;                   // by folded name
    bool deleted = false;
};

struct OpenKey {
    std::shared_ptr<Key> key;
    REGSAM access;
};

struct Registry {
    std::mutex mutex;
    std::map<uintptr_t, std::shared_ptr<Key>> roots;
    std::map<uintptr_t, OpenKey> handles;
    uintptr_t nextHandle = 0x1000;
};

Registry& TheRegistry() {
    static Registry* registry = new Registry;  // lives to the end of the process: handles may outlive statics
    return *registry;
}

bool IsRoot(HKEY key) {
    return key == HKEY_CLASSES_ROOT || key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE || key == HKEY_USERS;
}

// Caller holds the registry's lock.
std::shared_ptr<Key> RootKey(Registry& reg, HKEY root) {
    auto& slot = reg.roots[reinterpret_cast<uintptr_t>(root)];
    if (!slot) slot = std::make_shared<Key>();
    return slot;
}

// The key names of a path; false for an empty name between two separators.
bool SplitPath(const std::wstring& path, std::vector<std::wstring>& parts) {
    parts.clear();
    size_t start = 0;
    while (start < path.size()) {
        size_t end = path.find(L'\\', start);
        if (end == std::wstring::npos) end = path.size();
        if (end == start) return false;
        parts.push_back(Fold(path.substr(start, end - start)));
        start = end + 1;
    }
    return true;
}

// Walks (and with create, builds) the path below key. Null when a key on the way is missing.
std::shared_ptr<Key> Walk(std::shared_ptr<Key> key, const std::wstring& path, bool create) {
    std::vector<std::wstring> parts;
    if (!SplitPath(path, parts)) return nullptr;
    for (const std::wstring& part : parts) {
        auto it = key->children.find(part);
        if (it == key->children.end()) {
            if (!create) return nullptr;
            it = key->children.emplace(part, std::make_shared<Key>()).first;
        }
        key = it->second;
    }
    return key;
}

void MarkDeleted(Key& key) {
    key.deleted = true;
    for (auto& child : key.children) MarkDeleted(*child.second);
}

// The key and access rights behind a handle (a root or an open key). Caller holds the lock.
bool Resolve(Registry& reg, HKEY handle, std::shared_ptr<Key>& key, REGSAM& access) {
    if (IsRoot(handle)) {
        key = RootKey(reg, handle);
        access = KEY_ALL_ACCESS;
        return true;
    }
    auto it = reg.handles.find(reinterpret_cast<uintptr_t>(handle));
    if (it == reg.handles.end()) return false;
    key = it->second.key;
    access = it->second.access;
    return true;
}

std::wstring ValueName(LPCWSTR name) { return Fold(name != nullptr ? std::wstring(name) : std::wstring()); }

std::wstring ControlPath(const std::wstring& path) {
    // The control API forgives a leading separator.
    return (!path.empty() && path.front() == L'\\') ? path.substr(1) : path;
}

}  // namespace

extern "C" {

LSTATUS RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult) {
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    *phkResult = nullptr;
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("RegOpenKeyExW", fault)) return static_cast<LSTATUS>(fault);
    if ((ulOptions & ~REG_OPTION_OPEN_LINK) != 0) return ERROR_INVALID_PARAMETER;
    const std::wstring path = lpSubKey != nullptr ? std::wstring(lpSubKey) : std::wstring();
    if (!path.empty() && path.front() == L'\\') return ERROR_BAD_PATHNAME;

    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    std::shared_ptr<Key> parent;
    REGSAM parentAccess = 0;
    if (!Resolve(reg, hKey, parent, parentAccess)) return ERROR_INVALID_HANDLE;
    if (parent->deleted) return ERROR_KEY_DELETED;
    // A trailing separator names the same key, as on Windows.
    std::wstring trimmed = path;
    if (!trimmed.empty() && trimmed.back() == L'\\') trimmed.pop_back();
    std::shared_ptr<Key> key = Walk(parent, trimmed, false);
    if (!key) return ERROR_FILE_NOT_FOUND;
    const uintptr_t value = reg.nextHandle;
    reg.nextHandle += 4;
    reg.handles[value] = OpenKey{key, samDesired};
    *phkResult = reinterpret_cast<HKEY>(value);
    return ERROR_SUCCESS;
}

LSTATUS RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                         LPDWORD lpcbData) {
    if (lpReserved != nullptr) return ERROR_INVALID_PARAMETER;
    if (lpData != nullptr && lpcbData == nullptr) return ERROR_INVALID_PARAMETER;
    if (int64_t fault = 0; zqplatform::faults::TakeCallFailure("RegQueryValueExW", fault)) return static_cast<LSTATUS>(fault);

    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    std::shared_ptr<Key> key;
    REGSAM access = 0;
    if (!Resolve(reg, hKey, key, access)) return ERROR_INVALID_HANDLE;
    if ((access & KEY_QUERY_VALUE) == 0) return ERROR_ACCESS_DENIED;
    if (key->deleted) return ERROR_KEY_DELETED;
    auto it = key->values.find(ValueName(lpValueName));
    if (it == key->values.end()) return ERROR_FILE_NOT_FOUND;

    const Value& value = it->second;
    const DWORD size = static_cast<DWORD>(value.data.size());
    if (lpType != nullptr) *lpType = value.type;
    if (lpData == nullptr) {
        if (lpcbData != nullptr) *lpcbData = size;
        return ERROR_SUCCESS;
    }
    if (*lpcbData < size) {
        *lpcbData = size;
        return ERROR_MORE_DATA;
    }
    if (size != 0) std::memcpy(lpData, value.data.data(), size);
    *lpcbData = size;
    return ERROR_SUCCESS;
}

LSTATUS RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE* lpData,
                       DWORD cbData) {
    if (Reserved != 0) return ERROR_INVALID_PARAMETER;
    if (lpData == nullptr && cbData != 0) return ERROR_INVALID_PARAMETER;

    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    std::shared_ptr<Key> key;
    REGSAM access = 0;
    if (!Resolve(reg, hKey, key, access)) return ERROR_INVALID_HANDLE;
    if ((access & KEY_SET_VALUE) == 0) return ERROR_ACCESS_DENIED;
    if (key->deleted) return ERROR_KEY_DELETED;
    Value& value = key->values[ValueName(lpValueName)];
    value.type = dwType;
    value.data.assign(lpData, lpData + cbData);
    return ERROR_SUCCESS;
}

LSTATUS RegCloseKey(HKEY hKey) {
    if (IsRoot(hKey)) return ERROR_SUCCESS;
    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    const bool closed = reg.handles.erase(reinterpret_cast<uintptr_t>(hKey)) != 0;
    // An injected failure is reported after the key was closed, as the system closes it anyway.
    if (int64_t fault = 0; closed && zqplatform::faults::TakeCallFailure("RegCloseKey", fault)) return static_cast<LSTATUS>(fault);
    return closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

}  // extern "C"

namespace zqvm {

void RegistrySetValue(HKEY root, const std::wstring& path, const std::wstring& name, DWORD type, const void* data,
                      size_t size) {
    if (!IsRoot(root)) return;
    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    std::shared_ptr<Key> key = Walk(RootKey(reg, root), ControlPath(path), true);
    if (!key) return;
    Value& value = key->values[Fold(name)];
    value.type = type;
    const auto* bytes = static_cast<const uint8_t*>(data);
    value.data.assign(bytes, bytes + (bytes != nullptr ? size : 0));
}

void RegistrySetString(HKEY root, const std::wstring& path, const std::wstring& name, const std::wstring& text,
                       DWORD type) {
    RegistrySetValue(root, path, name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

void RegistrySetDword(HKEY root, const std::wstring& path, const std::wstring& name, DWORD value) {
    RegistrySetValue(root, path, name, REG_DWORD, &value, sizeof(value));
}

void RegistryCreateKey(HKEY root, const std::wstring& path) {
    if (!IsRoot(root)) return;
    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    Walk(RootKey(reg, root), ControlPath(path), true);
}

bool RegistryDeleteValue(HKEY root, const std::wstring& path, const std::wstring& name) {
    if (!IsRoot(root)) return false;
    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    std::shared_ptr<Key> key = Walk(RootKey(reg, root), ControlPath(path), false);
    return key && key->values.erase(Fold(name)) != 0;
}

bool RegistryDeleteKey(HKEY root, const std::wstring& path) {
    if (!IsRoot(root)) return false;
    std::vector<std::wstring> parts;
    if (!SplitPath(ControlPath(path), parts) || parts.empty()) return false;  // a root cannot be deleted
    const std::wstring leaf = parts.back();
    parts.pop_back();

    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    std::shared_ptr<Key> parent = RootKey(reg, root);
    for (const std::wstring& part : parts) {
        auto it = parent->children.find(part);
        if (it == parent->children.end()) return false;
        parent = it->second;
    }
    auto it = parent->children.find(leaf);
    if (it == parent->children.end()) return false;
    MarkDeleted(*it->second);
    parent->children.erase(it);
    return true;
}

void RegistryClear() {
    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    for (auto& root : reg.roots) MarkDeleted(*root.second);
    reg.roots.clear();
}

bool RegistryGetValue(HKEY root, const std::wstring& path, const std::wstring& name, DWORD& type,
                      std::vector<uint8_t>& data) {
    if (!IsRoot(root)) return false;
    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    std::shared_ptr<Key> key = Walk(RootKey(reg, root), ControlPath(path), false);
    if (!key) return false;
    auto it = key->values.find(Fold(name));
    if (it == key->values.end()) return false;
    type = it->second.type;
    data = it->second.data;
    return true;
}

size_t RegistryOpenHandleCount() {
    Registry& reg = TheRegistry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    return reg.handles.size();
}

}  // namespace zqvm
