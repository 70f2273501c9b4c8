// The per-user settings store on Windows: the registry itself. Each key the settings
// binding opens is a registry key under `root` (HKEY_CURRENT_USER for the program), and
// every read and write goes straight to the registry, which keeps the values safe on
// disk on its own; so the store holds no state of its own beyond the root.
#pragma once

#include "platform/win/win32.h"

class WinSettingsStore : public SettingsStore {
  public:
    // `root` stays owned by the caller and must outlive the store.
    explicit WinSettingsStore(HKEY root = HKEY_CURRENT_USER);

    // RegCreateKeyExA with all access; the key is created when absent.
    HRESULT create_key(const std::string& path, StoreKey* out) override;
    // RegQueryValueExA. Registry errors come back as their HRESULT form, so a value that
    // is absent fails with STORE_E_NOT_FOUND and one larger than the buffer with
    // STORE_E_MORE_DATA (with *size the size it needs).
    HRESULT query_value(StoreKey key, const std::string& name, void* data,
                        std::uint32_t* size) override;
    // RegSetValueExA with exactly `size` bytes: a text goes in as given, with no
    // terminating zero added.
    HRESULT set_value(StoreKey key, const std::string& name, RegType type, const void* data,
                      std::uint32_t size) override;
    void close_key(StoreKey key) override;

    static HKEY hkey_of(StoreKey key) { return reinterpret_cast<HKEY>(key); }

  private:
    HKEY root;
};
