#include "platform/win/win_settings_store.h"

// The store's value types are the registry's own numbers, passed on as they are.
static_assert(static_cast<DWORD>(RegType::sz) == REG_SZ);
static_assert(static_cast<DWORD>(RegType::binary) == REG_BINARY);
static_assert(static_cast<DWORD>(RegType::dword) == REG_DWORD);
static_assert(STORE_E_NOT_FOUND == hresult_from_win32(ERROR_FILE_NOT_FOUND));
static_assert(STORE_E_MORE_DATA == hresult_from_win32(ERROR_MORE_DATA));

namespace {
// The class string is stored with a key that the call creates; nothing reads it.
char key_class[] = "stuff";
}  // namespace

WinSettingsStore::WinSettingsStore(HKEY root_) : root(root_) {}

HRESULT WinSettingsStore::create_key(const std::string& path, StoreKey* out) {
    HKEY key = nullptr;
    DWORD disposition = 0;
    const LSTATUS status =
        RegCreateKeyExA(root, path.c_str(), 0, key_class, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                        nullptr, &key, &disposition);
    *out = status == ERROR_SUCCESS ? reinterpret_cast<StoreKey>(key) : nullptr;
    return hresult_from_win32(static_cast<DWORD>(status));
}

HRESULT WinSettingsStore::query_value(StoreKey key, const std::string& name, void* data,
                                      std::uint32_t* size) {
    DWORD bytes = *size;
    const LSTATUS status = RegQueryValueExA(hkey_of(key), name.c_str(), nullptr, nullptr,
                                            static_cast<BYTE*>(data), &bytes);
    if (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) {
        *size = bytes;
    }
    return hresult_from_win32(static_cast<DWORD>(status));
}

HRESULT WinSettingsStore::set_value(StoreKey key, const std::string& name, RegType type,
                                    const void* data, std::uint32_t size) {
    const LSTATUS status = RegSetValueExA(hkey_of(key), name.c_str(), 0, static_cast<DWORD>(type),
                                          static_cast<const BYTE*>(data), size);
    return hresult_from_win32(static_cast<DWORD>(status));
}

void WinSettingsStore::close_key(StoreKey key) {
    if (key != nullptr) {
        RegCloseKey(hkey_of(key));
    }
}
