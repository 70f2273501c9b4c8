// The settings file's text: keys and typed values in the notation of a registry export
// file, so that a person can read and edit it.
//
//   [HKEY_CURRENT_USER\Software\larkspur\kestrel_cap]
//   "DV2"=dword:00000000
//   "DefaultScene"="kestrel"
//   "DiskspaceWarning"=hex:9a,99,99,99,99,99,b9,3f
//
// dword:<8 hex digits> is a 4-byte REG_DWORD, "text" a REG_SZ (only \\ and \" are
// escapes), hex:<bytes> a REG_BINARY and hex(<type>):<bytes> any other type with its
// exact bytes; a trailing backslash continues a byte list on the next line. Lines
// starting with ';' are comments.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/settings_store.h"

struct RegTextValue {
    std::string name;
    RegType type = RegType::binary;
    std::vector<std::uint8_t> bytes;
};

struct RegTextKey {
    // The full path as written in the section header, root included.
    std::string path;
    std::vector<RegTextValue> values;
};

struct RegTextDocument {
    std::vector<RegTextKey> keys;

    // The key of that path, compared without regard to case; null when absent.
    RegTextKey* find_key(const std::string& path);
    RegTextKey& add_key(const std::string& path);
};

// Never fails: what cannot be understood is skipped (a damaged line, a value outside
// any key, a byte list cut off by a truncated file), so that every value that can be
// read is, and the others are simply absent.
RegTextDocument parse_reg_text(const std::string& text);
std::string format_reg_text(const RegTextDocument& document);

// The value of that name in `key`, compared without regard to case; null when absent.
RegTextValue* find_value(RegTextKey& key, const std::string& name);
