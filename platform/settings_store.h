// The per-user settings store, shaped like the registry calls the settings binding
// makes: open (create) a key, read a value into a sized buffer, write a typed value,
// close. On Linux it is a text file in the XDG config directory.
#pragma once

#include <cstdint>
#include <string>

#include "platform/result.h"

struct OpaqueStoreKey;
using StoreKey = OpaqueStoreKey*;

enum class RegType : std::uint32_t { sz = 1, binary = 3, dword = 4 };

// Result of a read into a buffer that is too small for the stored data.
inline constexpr HRESULT STORE_E_MORE_DATA = static_cast<HRESULT>(0x800700EAu);
// Result of a read of a value that does not exist.
inline constexpr HRESULT STORE_E_NOT_FOUND = static_cast<HRESULT>(0x80070002u);

class SettingsStore {
  public:
    virtual ~SettingsStore() = default;

    // Opens the key at `path` (backslash-separated), creating it when absent.
    virtual HRESULT create_key(const std::string& path, StoreKey* out) = 0;
    // Reads up to *size bytes of the value into data; on success *size is the byte
    // count read. Fails with STORE_E_MORE_DATA when the stored data is larger.
    virtual HRESULT query_value(StoreKey key, const std::string& name, void* data,
                                std::uint32_t* size) = 0;
    virtual HRESULT set_value(StoreKey key, const std::string& name, RegType type, const void* data,
                              std::uint32_t size) = 0;
    virtual void close_key(StoreKey key) = 0;
};
