// An in-memory settings store for unit tests: keys of values with their types and
// exact bytes, every call recorded, and scripted failures.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/settings_store.h"

class FakeSettingsStore : public SettingsStore {
  public:
    struct Value {
        RegType type = RegType::binary;
        std::vector<std::uint8_t> bytes;
    };
    // key path -> value name -> value
    std::map<std::string, std::map<std::string, Value>> keys;

    // Scripted answers: create_key fails with this when negative; set_value fails
    // (storing nothing) for the names listed.
    HRESULT create_key_result = S_OK;
    // With a failing create_key_result: this many calls succeed before it is answered.
    int create_key_successes = 0;
    std::set<std::string> failing_writes;

    // "create_key(path)", "query_value(name,size)", "set_value(name,type,size)",
    // "close_key" in call order.
    std::vector<std::string> calls;
    // Handles handed out and not yet closed.
    int open_keys() const { return static_cast<int>(open.size()); }
    // Calls whose text starts with `prefix`.
    std::size_t count_calls(const std::string& prefix) const;
    // Names written, in order.
    std::vector<std::string> written_names() const;

    // Test setup helpers.
    void put_dword(const std::string& name, std::uint32_t value);
    void put_text(const std::string& name, const std::string& text);
    void put_binary(const std::string& name, const std::vector<std::uint8_t>& bytes);
    const Value* find(const std::string& name) const;

    HRESULT create_key(const std::string& path, StoreKey* out) override;
    HRESULT query_value(StoreKey key, const std::string& name, void* data,
                        std::uint32_t* size) override;
    HRESULT set_value(StoreKey key, const std::string& name, RegType type, const void* data,
                      std::uint32_t size) override;
    void close_key(StoreKey key) override;

    // The key the helpers use.
    std::string default_path = "Software\\larkspur\\kestrel_cap";

  private:
    std::map<StoreKey, std::string> open;
    std::uintptr_t next_handle = 0x100;
    std::vector<std::string> writes;
};
