#include "app/settings.h"

#include <cstring>

#include "app/errors.h"

namespace {
// Texts of 512 bytes or more are never read: the value keeps its default.
constexpr std::uint32_t text_buffer_size = 512;
}  // namespace

CapRegValue::CapRegValue(SettingsStore& root_, const std::string& key_path_,
                         const std::string& value_name_, std::int32_t& field)
    : key_path(key_path_), value_name(value_name_), root(root_), target(&field) {
    open();
    std::int32_t value = field;
    if (read_dword(&value, sizeof value)) {
        field = value;
    }
}

CapRegValue::CapRegValue(SettingsStore& root_, const std::string& key_path_,
                         const std::string& value_name_, std::string& field)
    : key_path(key_path_), value_name(value_name_), root(root_), target(&field) {
    open();
    const std::string default_text = field;
    read_text(field, default_text);
}

CapRegValue::CapRegValue(SettingsStore& root_, const std::string& key_path_,
                         const std::string& value_name_, double& field)
    : key_path(key_path_), value_name(value_name_), root(root_), target(&field) {
    open();
    double value = field;
    if (read_dword(&value, sizeof value)) {
        field = value;
    }
}

CapRegValue::CapRegValue(SettingsStore& root_, const std::string& key_path_,
                         const std::string& value_name_, bool& field)
    : key_path(key_path_), value_name(value_name_), root(root_), target(&field) {
    open();
    // Read as a byte: a stored byte other than 0 or 1 must not become an invalid bool.
    std::uint8_t value = field ? 1 : 0;
    if (read_dword(&value, sizeof value)) {
        field = value != 0;
    }
}

CapRegValue::~CapRegValue() {
    if (auto* i = std::get_if<std::int32_t*>(&target)) {
        write(*i, sizeof(std::int32_t), RegType::dword);
    } else if (auto* s = std::get_if<std::string*>(&target)) {
        // The text's bytes without a terminating zero.
        write((*s)->data(), static_cast<std::uint32_t>((*s)->size()), RegType::sz);
    } else if (auto* d = std::get_if<double*>(&target)) {
        write(*d, sizeof(double), RegType::binary);
    } else if (auto* b = std::get_if<bool*>(&target)) {
        const std::uint8_t byte = **b ? 1 : 0;
        write(&byte, 1, RegType::binary);
    }
    root.close_key(key);
}

void CapRegValue::open() {
    throw_if_failed(root.create_key(key_path, &key), ERR_READ_REGISTRY);
}

bool CapRegValue::read_dword(void* buffer, std::uint32_t size) {
    // The stored bytes land in a scratch buffer first: a failed read must leave the
    // caller's default untouched, whatever the store wrote meanwhile.
    unsigned char scratch[sizeof(double)] = {};
    if (size > sizeof scratch) {
        return false;
    }
    std::uint32_t got = size;
    if (FAILED(root.query_value(key, value_name, scratch, &got)) || got > size) {
        return false;
    }
    std::memcpy(buffer, scratch, got);
    return true;
}

void CapRegValue::read_text(std::string& out, const std::string& default_text) {
    char buffer[text_buffer_size];
    std::uint32_t got = text_buffer_size;
    if (FAILED(root.query_value(key, value_name, buffer, &got)) || got > text_buffer_size) {
        out = default_text;
        return;
    }
    // Up to the first zero byte or the end of the data, whichever comes first. A text
    // that fills the whole buffer leaves no room for its end and is not taken.
    const std::size_t length = strnlen(buffer, got);
    if (length >= text_buffer_size) {
        out = default_text;
        return;
    }
    out.assign(buffer, length);
}

void CapRegValue::write(const void* bytes, std::uint32_t size, RegType type) {
    // A failing write at exit is deliberately ignored: nothing could report it.
    (void)root.set_value(key, value_name, type, bytes, size);
}
