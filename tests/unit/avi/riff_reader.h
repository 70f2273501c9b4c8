// A small RIFF reader for the tests: walks the chunk tree of an AVI image the way a
// strict reader would, keeping every chunk's position, declared size and whether the
// bytes it declares are all present.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kc::avi::test {

inline std::uint16_t le16(std::span<const std::uint8_t> b, std::uint64_t at) {
    return static_cast<std::uint16_t>(b[at] | (b[at + 1] << 8));
}
inline std::uint32_t le32(std::span<const std::uint8_t> b, std::uint64_t at) {
    return static_cast<std::uint32_t>(b[at]) | (static_cast<std::uint32_t>(b[at + 1]) << 8) |
           (static_cast<std::uint32_t>(b[at + 2]) << 16) |
           (static_cast<std::uint32_t>(b[at + 3]) << 24);
}
inline std::uint64_t le64(std::span<const std::uint8_t> b, std::uint64_t at) {
    return le32(b, at) | (static_cast<std::uint64_t>(le32(b, at + 4)) << 32);
}
inline std::string fourcc_at(std::span<const std::uint8_t> b, std::uint64_t at) {
    return std::string(reinterpret_cast<const char*>(b.data() + at), 4);
}

struct Chunk {
    std::string id;               // "RIFF", "LIST", "00dc", ...
    std::string list_type;        // for RIFF and LIST: "AVI ", "hdrl", "movi", ...
    std::uint64_t offset = 0;     // of the chunk header
    std::uint32_t size = 0;       // declared payload size
    std::uint64_t data = 0;       // offset of the payload
    bool complete = false;        // all declared bytes are in the image
    std::vector<Chunk> children;  // for RIFF and LIST

    bool is_list(const char* type) const {
        return (id == "LIST" || id == "RIFF") && list_type == type;
    }
    const Chunk* child(const std::string& wanted_id, const char* type = nullptr) const {
        const auto found = all(wanted_id, type);
        return found.empty() ? nullptr : found[0];
    }
    std::vector<const Chunk*> all(const std::string& wanted_id, const char* type = nullptr) const {
        std::vector<const Chunk*> found;
        for (const Chunk& c : children) {
            if (c.id == wanted_id && (!type || c.list_type == type)) {
                found.push_back(&c);
            }
        }
        return found;
    }
};

// Parses the chunks in [begin, end) of `b`; stops at the first header that does not fit.
inline std::vector<Chunk> parse_chunks(std::span<const std::uint8_t> b, std::uint64_t begin,
                                       std::uint64_t end) {
    std::vector<Chunk> chunks;
    std::uint64_t pos = begin;
    while (pos + 8 <= end && pos + 8 <= b.size()) {
        Chunk c;
        c.offset = pos;
        c.id = fourcc_at(b, pos);
        c.size = le32(b, pos + 4);
        c.data = pos + 8;
        const std::uint64_t chunk_end = c.data + c.size;
        c.complete = chunk_end <= b.size();
        if ((c.id == "RIFF" || c.id == "LIST") && c.data + 4 <= b.size() && c.size >= 4) {
            c.list_type = fourcc_at(b, c.data);
            c.children = parse_chunks(b, c.data + 4, std::min<std::uint64_t>(chunk_end, b.size()));
        }
        chunks.push_back(std::move(c));
        pos = chunk_end + (chunk_end & 1);
    }
    return chunks;
}

inline std::vector<Chunk> parse_file(std::span<const std::uint8_t> b) {
    return parse_chunks(b, 0, b.size());
}

// An 'indx' (index of indexes) or 'ix##' (index of chunks) payload.
struct IndexChunk {
    std::uint16_t longs_per_entry = 0;
    std::uint8_t sub_type = 0;
    std::uint8_t type = 0;
    std::uint32_t entries_in_use = 0;
    std::string chunk_id;
    std::uint64_t base = 0;  // standard indexes only
    struct Entry {
        std::uint64_t offset;  // super: absolute offset of the ix chunk; standard: base + offset
        std::uint32_t size;
        std::uint32_t duration;  // super only
    };
    std::vector<Entry> entries;
};

inline IndexChunk read_index(std::span<const std::uint8_t> b, const Chunk& c) {
    IndexChunk ix;
    const std::uint64_t d = c.data;
    ix.longs_per_entry = le16(b, d);
    ix.sub_type = b[d + 2];
    ix.type = b[d + 3];
    ix.entries_in_use = le32(b, d + 4);
    ix.chunk_id = fourcc_at(b, d + 8);
    if (ix.type == 0) {
        for (std::uint32_t i = 0; i < ix.entries_in_use; ++i) {
            const std::uint64_t e = d + 24 + 16 * i;
            ix.entries.push_back({le64(b, e), le32(b, e + 8), le32(b, e + 12)});
        }
    } else {
        ix.base = le64(b, d + 12);
        for (std::uint32_t i = 0; i < ix.entries_in_use; ++i) {
            const std::uint64_t e = d + 24 + 8 * i;
            ix.entries.push_back({ix.base + le32(b, e), le32(b, e + 4), 0});
        }
    }
    return ix;
}

// Every complete data chunk with this id, across the movi of every RIFF part, in file order.
inline std::vector<const Chunk*> movi_chunks(const std::vector<Chunk>& top, const std::string& id) {
    std::vector<const Chunk*> found;
    for (const Chunk& riff : top) {
        if (riff.id != "RIFF") {
            continue;
        }
        for (const Chunk* movi : riff.all("LIST", "movi")) {
            for (const Chunk& c : movi->children) {
                if (c.id == id && c.complete) {
                    found.push_back(&c);
                }
            }
        }
    }
    return found;
}

// What an AVI file's headers say about it and its streams.
struct StreamHeader {
    std::string type;
    std::string handler;
    std::uint32_t scale = 0;
    std::uint32_t rate = 0;
    std::uint32_t length = 0;
    std::uint32_t sample_size = 0;
    std::vector<std::uint8_t> strf;
    IndexChunk super;
};

struct AviHeader {
    std::vector<Chunk> top;
    std::uint32_t usec_per_frame = 0;
    std::uint32_t flags = 0;
    std::uint32_t first_part_frames = 0;
    std::uint32_t streams_declared = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<StreamHeader> streams;
    std::uint32_t dmlh_frames = 0;
};

inline AviHeader read_avi(std::span<const std::uint8_t> b) {
    AviHeader a;
    a.top = parse_file(b);
    if (a.top.empty() || !a.top[0].is_list("AVI ")) {
        return a;
    }
    const Chunk* hdrl = a.top[0].child("LIST", "hdrl");
    if (!hdrl) {
        return a;
    }
    if (const Chunk* avih = hdrl->child("avih")) {
        a.usec_per_frame = le32(b, avih->data);
        a.flags = le32(b, avih->data + 12);
        a.first_part_frames = le32(b, avih->data + 16);
        a.streams_declared = le32(b, avih->data + 24);
        a.width = le32(b, avih->data + 32);
        a.height = le32(b, avih->data + 36);
    }
    for (const Chunk* strl : hdrl->all("LIST", "strl")) {
        StreamHeader s;
        const Chunk* strh = strl->child("strh");
        const Chunk* strf = strl->child("strf");
        if (!strh || !strf) {
            continue;
        }
        s.type = fourcc_at(b, strh->data);
        s.handler = fourcc_at(b, strh->data + 4);
        s.scale = le32(b, strh->data + 20);
        s.rate = le32(b, strh->data + 24);
        s.length = le32(b, strh->data + 32);
        s.sample_size = le32(b, strh->data + 44);
        s.strf.assign(b.begin() + static_cast<long>(strf->data),
                      b.begin() + static_cast<long>(strf->data + strf->size));
        if (const Chunk* indx = strl->child("indx")) {
            s.super = read_index(b, *indx);
        }
        a.streams.push_back(std::move(s));
    }
    if (const Chunk* odml = hdrl->child("LIST", "odml")) {
        if (const Chunk* dmlh = odml->child("dmlh")) {
            a.dmlh_frames = le32(b, dmlh->data);
        }
    }
    return a;
}

}  // namespace kc::avi::test
