// Where an AVI writer's bytes go. The writer appends chunks at the end and rewrites a
// few bytes it wrote earlier (sizes, counts, index tables); it never reads back.
//
// The one real implementation writes straight to a file descriptor: no bytes wait in a
// user-space buffer, so whatever a call has returned is in the file even if the process
// is killed the next instant. Tests substitute outputs that record or fail.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <system_error>

namespace kc::avi {

using Bytes = std::span<const std::uint8_t>;

class AviOutput {
  public:
    virtual ~AviOutput() = default;
    // Appends the pieces, in order, at the end of the output. On failure part of them
    // may have reached the output; the caller truncates back to the old end.
    virtual std::error_code append(std::span<const Bytes> pieces) = 0;
    // Overwrites bytes at `offset`; never extends the output.
    virtual std::error_code write_at(std::uint64_t offset, Bytes bytes) = 0;
    virtual std::error_code truncate(std::uint64_t size) = 0;
    // Makes everything written so far durable.
    virtual std::error_code sync() = 0;
    virtual std::error_code close() = 0;
};

// A file created (or emptied) at `path`. Null with `error` set when it cannot be opened.
std::unique_ptr<AviOutput> open_file_output(const std::filesystem::path& path,
                                            std::error_code& error);

}  // namespace kc::avi
