// Where a tape image's bytes live. Reaching a file's bytes is the one part of reading a
// tape image that differs between systems: tape_storage_posix.cpp maps the file or reads
// it with positioned reads over POSIX, tape_storage_win.cpp does the same over Win32, and
// CMake builds the one for the system built for.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <system_error>
#include <vector>

#include "deck/tape_image.h"

namespace kc::deck {

// `bytes` gives a view of [offset, offset + length): straight into memory when the bytes
// are there, else read into `scratch`. Empty on a read failure. Called from any thread.
class TapeImage::Storage {
  public:
    virtual ~Storage() = default;
    virtual std::uint64_t size() const = 0;
    virtual std::span<const std::uint8_t> bytes(std::uint64_t offset, std::size_t length,
                                                std::vector<std::uint8_t>& scratch) const = 0;
    // Whether `bytes` points into memory that lives as long as the storage.
    virtual bool in_memory() const { return true; }
};

// The bytes of the regular file at `path`, mapped or streamed as `access` asks (an empty
// file is always streamed). Null with `error` set when the file cannot be opened, is not a
// regular file (std::errc::invalid_argument), or cannot be mapped.
std::unique_ptr<TapeImage::Storage> open_file_storage(const std::filesystem::path& path,
                                                      TapeAccess access, std::error_code& error);

}  // namespace kc::deck
