#include "tests/fakes/fake_settings_store.h"

#include <cstring>

std::vector<std::string> FakeSettingsStore::written_names() const {
    return writes;
}

std::size_t FakeSettingsStore::count_calls(const std::string& prefix) const {
    std::size_t n = 0;
    for (const std::string& c : calls) {
        n += c.rfind(prefix, 0) == 0 ? 1 : 0;
    }
    return n;
}

void FakeSettingsStore::put_dword(const std::string& name, std::uint32_t value) {
    Value v{RegType::dword, std::vector<std::uint8_t>(4)};
    std::memcpy(v.bytes.data(), &value, 4);
    keys[default_path][name] = v;
}

void FakeSettingsStore::put_text(const std::string& name, const std::string& text) {
    keys[default_path][name] =
        Value{RegType::sz, std::vector<std::uint8_t>(text.begin(), text.end())};
}

void FakeSettingsStore::put_binary(const std::string& name,
                                   const std::vector<std::uint8_t>& bytes) {
    keys[default_path][name] = Value{RegType::binary, bytes};
}

const FakeSettingsStore::Value* FakeSettingsStore::find(const std::string& name) const {
    auto key = keys.find(default_path);
    if (key == keys.end()) {
        return nullptr;
    }
    auto value = key->second.find(name);
    return value == key->second.end() ? nullptr : &value->second;
}

HRESULT FakeSettingsStore::create_key(const std::string& path, StoreKey* out) {
    calls.push_back("create_key(" + path + ")");
    if (create_key_result < 0 && create_key_successes-- <= 0) {
        return create_key_result;
    }
    keys[path];
    *out = reinterpret_cast<StoreKey>(next_handle++);
    open[*out] = path;
    return S_OK;
}

HRESULT FakeSettingsStore::query_value(StoreKey key, const std::string& name, void* data,
                                       std::uint32_t* size) {
    calls.push_back("query_value(" + name + "," + std::to_string(*size) + ")");
    auto handle = open.find(key);
    if (handle == open.end()) {
        return E_INVALIDARG;
    }
    auto& values = keys[handle->second];
    auto value = values.find(name);
    if (value == values.end()) {
        return STORE_E_NOT_FOUND;
    }
    if (value->second.bytes.size() > *size) {
        *size = static_cast<std::uint32_t>(value->second.bytes.size());
        return STORE_E_MORE_DATA;
    }
    std::memcpy(data, value->second.bytes.data(), value->second.bytes.size());
    *size = static_cast<std::uint32_t>(value->second.bytes.size());
    return S_OK;
}

HRESULT FakeSettingsStore::set_value(StoreKey key, const std::string& name, RegType type,
                                     const void* data, std::uint32_t size) {
    calls.push_back("set_value(" + name + "," + std::to_string(static_cast<int>(type)) + "," +
                    std::to_string(size) + ")");
    writes.push_back(name);
    auto handle = open.find(key);
    if (handle == open.end()) {
        return E_INVALIDARG;
    }
    if (failing_writes.count(name) != 0) {
        return E_ACCESSDENIED;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    keys[handle->second][name] = Value{type, std::vector<std::uint8_t>(bytes, bytes + size)};
    return S_OK;
}

void FakeSettingsStore::close_key(StoreKey key) {
    calls.push_back("close_key");
    open.erase(key);
}
