#include "platform/posix/reg_text.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace {
bool same_text(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

std::string trim(const std::string& s) {
    std::size_t b = 0;
    std::size_t e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) {
        ++b;
    }
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) {
        --e;
    }
    return s.substr(b, e - b);
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// A quoted string starting at text[i] == '"'; i ends after the closing quote.
bool parse_quoted(const std::string& text, std::size_t& i, std::string& out) {
    out.clear();
    ++i;
    while (i < text.size()) {
        const char c = text[i];
        if (c == '"') {
            ++i;
            return true;
        }
        if (c == '\\' && i + 1 < text.size() && (text[i + 1] == '\\' || text[i + 1] == '"')) {
            out += text[i + 1];
            i += 2;
            continue;
        }
        out += c;
        ++i;
    }
    return false;  // no closing quote
}

// "aa,bb,..." with optional blanks; an empty list is valid, a dangling comma is not.
bool parse_bytes(const std::string& text, std::vector<std::uint8_t>& out) {
    out.clear();
    const std::string list = trim(text);
    if (list.empty()) {
        return true;
    }
    std::size_t i = 0;
    while (true) {
        while (i < list.size() && std::isspace(static_cast<unsigned char>(list[i]))) {
            ++i;
        }
        int value = 0;
        int digits = 0;
        while (i < list.size() && hex_digit(list[i]) >= 0 && digits < 3) {
            value = value * 16 + hex_digit(list[i]);
            ++digits;
            ++i;
        }
        if (digits == 0 || digits > 2) {
            return false;
        }
        out.push_back(static_cast<std::uint8_t>(value));
        while (i < list.size() && std::isspace(static_cast<unsigned char>(list[i]))) {
            ++i;
        }
        if (i == list.size()) {
            return true;
        }
        if (list[i] != ',') {
            return false;
        }
        ++i;
    }
}

bool parse_hex_number(const std::string& text, std::uint32_t& out) {
    if (text.empty() || text.size() > 8) {
        return false;
    }
    out = 0;
    for (char c : text) {
        const int d = hex_digit(c);
        if (d < 0) {
            return false;
        }
        out = out * 16 + static_cast<std::uint32_t>(d);
    }
    return true;
}

// The data part of a value line (after '='). False when it cannot be understood.
bool parse_data(const std::string& data, RegTextValue& value) {
    if (!data.empty() && data[0] == '"') {
        std::size_t i = 0;
        std::string text;
        if (!parse_quoted(data, i, text) || !trim(data.substr(i)).empty()) {
            return false;
        }
        value.type = RegType::sz;
        value.bytes.assign(text.begin(), text.end());
        return true;
    }
    const std::size_t colon = data.find(':');
    if (colon == std::string::npos) {
        return false;
    }
    const std::string kind = trim(data.substr(0, colon));
    const std::string rest = data.substr(colon + 1);
    if (same_text(kind, "dword")) {
        std::uint32_t number = 0;
        if (!parse_hex_number(trim(rest), number)) {
            return false;
        }
        value.type = RegType::dword;
        value.bytes = {static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8),
                       static_cast<std::uint8_t>(number >> 16),
                       static_cast<std::uint8_t>(number >> 24)};
        return true;
    }
    std::uint32_t type = static_cast<std::uint32_t>(RegType::binary);
    if (same_text(kind, "hex")) {
        type = static_cast<std::uint32_t>(RegType::binary);
    } else if (kind.size() > 5 && same_text(kind.substr(0, 4), "hex(") && kind.back() == ')') {
        if (!parse_hex_number(kind.substr(4, kind.size() - 5), type)) {
            return false;
        }
    } else {
        return false;
    }
    if (!parse_bytes(rest, value.bytes)) {
        return false;
    }
    value.type = static_cast<RegType>(type);
    return true;
}

void set_value(RegTextKey& key, RegTextValue value) {
    if (RegTextValue* existing = find_value(key, value.name)) {
        *existing = std::move(value);  // the last of two equal names wins
    } else {
        key.values.push_back(std::move(value));
    }
}

std::string escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\' || c == '"') {
            out += '\\';
        }
        out += c;
    }
    return out;
}

// Text that survives the quoted form unchanged: no control characters, no zero byte.
bool quotable(const std::vector<std::uint8_t>& bytes) {
    for (std::uint8_t b : bytes) {
        if (b < 0x20 || b == 0x7F) {
            return false;
        }
    }
    return true;
}

void append_bytes(std::string& out, const std::vector<std::uint8_t>& bytes) {
    // Wrapped as an export file wraps long lists, with a trailing backslash.
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        char hex[4];
        std::snprintf(hex, sizeof hex, "%02x", bytes[i]);
        out += hex;
        if (i + 1 < bytes.size()) {
            out += ',';
            if ((i + 1) % 24 == 0) {
                out += "\\\n  ";
            }
        }
    }
}
}  // namespace

RegTextKey* RegTextDocument::find_key(const std::string& path) {
    for (RegTextKey& key : keys) {
        if (same_text(key.path, path)) {
            return &key;
        }
    }
    return nullptr;
}

RegTextKey& RegTextDocument::add_key(const std::string& path) {
    if (RegTextKey* key = find_key(path)) {
        return *key;
    }
    keys.push_back(RegTextKey{path, {}});
    return keys.back();
}

RegTextValue* find_value(RegTextKey& key, const std::string& name) {
    for (RegTextValue& value : key.values) {
        if (same_text(value.name, name)) {
            return &value;
        }
    }
    return nullptr;
}

RegTextDocument parse_reg_text(const std::string& text) {
    // Split into lines; the last one counts as complete only when a newline ends it.
    std::vector<std::string> lines;
    bool last_terminated = true;
    {
        std::size_t start = 0;
        while (start < text.size()) {
            const std::size_t end = text.find('\n', start);
            if (end == std::string::npos) {
                lines.push_back(text.substr(start));
                last_terminated = false;
                break;
            }
            lines.push_back(text.substr(start, end - start));
            start = end + 1;
        }
        for (std::string& line : lines) {
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
        }
    }

    RegTextDocument document;
    RegTextKey* current = nullptr;
    for (std::size_t n = 0; n < lines.size(); ++n) {
        std::string line = trim(lines[n]);
        if (line.empty() || line[0] == ';' || line[0] == '#') {
            continue;
        }
        if (line[0] == '[') {
            // "[-path]" deletes a key in an export file; here its values are ignored.
            if (line.back() != ']' || line.size() < 3 || line[1] == '-') {
                current = nullptr;
                continue;
            }
            current = &document.add_key(trim(line.substr(1, line.size() - 2)));
            continue;
        }
        // A byte list continues while its line ends in a backslash.
        bool complete = n + 1 < lines.size() || last_terminated;
        while (line.back() == '\\' && line.find("=\"") == std::string::npos &&
               n + 1 < lines.size()) {
            line.pop_back();
            line += trim(lines[++n]);
            complete = n + 1 < lines.size() || last_terminated;
            if (line.empty()) {
                break;
            }
        }
        if (current == nullptr || line.empty() || line.back() == '\\') {
            continue;
        }
        RegTextValue value;
        std::size_t i = 0;
        if (line[0] == '@') {
            i = 1;  // the key's default value
        } else if (line[0] != '"' || !parse_quoted(line, i, value.name)) {
            continue;
        }
        while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i]))) {
            ++i;
        }
        if (i >= line.size() || line[i] != '=') {
            continue;
        }
        const std::string data = trim(line.substr(i + 1));
        if (!parse_data(data, value)) {
            continue;
        }
        // A file cut off in the middle of its last line may have lost part of a number
        // or a byte list; only a quoted text proves itself complete by its quote.
        if (!complete && data[0] != '"') {
            continue;
        }
        set_value(*current, std::move(value));
    }
    return document;
}

std::string format_reg_text(const RegTextDocument& document) {
    std::string out =
        "; Kestrel Capture settings, in registry export notation. Read at start, written at "
        "exit.\n";
    for (const RegTextKey& key : document.keys) {
        out += "\n[" + key.path + "]\n";
        for (const RegTextValue& value : key.values) {
            out += value.name.empty() ? "@" : "\"" + escape(value.name) + "\"";
            out += '=';
            if (value.type == RegType::dword && value.bytes.size() == 4) {
                const std::uint32_t number = static_cast<std::uint32_t>(value.bytes[0]) |
                                             (static_cast<std::uint32_t>(value.bytes[1]) << 8) |
                                             (static_cast<std::uint32_t>(value.bytes[2]) << 16) |
                                             (static_cast<std::uint32_t>(value.bytes[3]) << 24);
                char hex[16];
                std::snprintf(hex, sizeof hex, "dword:%08x", number);
                out += hex;
            } else if (value.type == RegType::sz && quotable(value.bytes)) {
                out += "\"" + escape(std::string(value.bytes.begin(), value.bytes.end())) + "\"";
            } else {
                if (value.type == RegType::binary) {
                    out += "hex:";
                } else {
                    char prefix[24];
                    std::snprintf(prefix, sizeof prefix,
                                  "hex(%x):", static_cast<unsigned>(value.type));
                    out += prefix;
                }
                append_bytes(out, value.bytes);
            }
            out += '\n';
        }
    }
    return out;
}
