// CapRegValue: binds one field of the application object to one value of the per-user
// settings store. It reads the value when constructed and writes the field back when
// destroyed, so the settings are read once at start and written once at exit.
#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "platform/settings_store.h"

inline constexpr const char* settings_key_path = "Software\\larkspur\\kestrel_cap";

class CapRegValue {
  public:
    // Opens (creates) the key and reads the value into `field`, which must already hold
    // its default. Raises ComError "Failed to read registry" when the key cannot be
    // opened.
    CapRegValue(SettingsStore& root, const std::string& key_path, const std::string& value_name,
                std::int32_t& field);
    CapRegValue(SettingsStore& root, const std::string& key_path, const std::string& value_name,
                std::string& field);
    CapRegValue(SettingsStore& root, const std::string& key_path, const std::string& value_name,
                double& field);
    CapRegValue(SettingsStore& root, const std::string& key_path, const std::string& value_name,
                bool& field);
    CapRegValue(const CapRegValue&) = delete;
    CapRegValue& operator=(const CapRegValue&) = delete;
    // Writes the field's current value (result ignored) and closes the key.
    ~CapRegValue();

    bool read_dword(void* buffer, std::uint32_t size);
    void read_text(std::string& out, const std::string& default_text);
    void write(const void* bytes, std::uint32_t size, RegType type);

    std::string key_path;
    std::string value_name;
    SettingsStore& root;
    StoreKey key = nullptr;
    std::variant<std::int32_t*, std::string*, double*, bool*> target;

  private:
    void open();
};
