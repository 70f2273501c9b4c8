// Where a tape image's bytes live. Reaching a file's bytes is the one part of reading a
// tape image that differs between systems: tape_storage_posix.cpp maps the file or reads
// it with positioned reads over POSIX, tape_storage_win.cpp does the same over Win32, and
// CMake builds the one for the system built for.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
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

// The two ways a file's bytes are reached, whatever the system: the calls that differ
// come in as functions.

// Bytes mapped into memory, given back by `unmap`.
class MappedStorage final : public TapeImage::Storage {
  public:
    MappedStorage(const std::uint8_t* data, std::uint64_t size, std::function<void()> unmap)
        : data_(data), size_(size), unmap_(std::move(unmap)) {}
    ~MappedStorage() override { unmap_(); }
    MappedStorage(const MappedStorage&) = delete;
    MappedStorage& operator=(const MappedStorage&) = delete;
    std::uint64_t size() const override { return size_; }
    std::span<const std::uint8_t> bytes(std::uint64_t offset, std::size_t length,
                                        std::vector<std::uint8_t>&) const override {
        return {data_ + offset, length};
    }

  private:
    const std::uint8_t* data_;
    std::uint64_t size_;
    std::function<void()> unmap_;
};

// Bytes read on demand. `read_at` reads up to `length` bytes at `offset` into `to` and
// returns how many it read, 0 at the end or on a failure; the offset travels with each
// call, so readers on several threads never share a file position. `close` lets the
// file go.
class StreamedStorage final : public TapeImage::Storage {
  public:
    using ReadAt =
        std::function<std::size_t(std::uint64_t offset, std::uint8_t* to, std::size_t length)>;
    StreamedStorage(std::uint64_t size, ReadAt read_at, std::function<void()> close)
        : size_(size), read_at_(std::move(read_at)), close_(std::move(close)) {}
    ~StreamedStorage() override { close_(); }
    StreamedStorage(const StreamedStorage&) = delete;
    StreamedStorage& operator=(const StreamedStorage&) = delete;
    std::uint64_t size() const override { return size_; }
    bool in_memory() const override { return false; }
    std::span<const std::uint8_t> bytes(std::uint64_t offset, std::size_t length,
                                        std::vector<std::uint8_t>& scratch) const override {
        scratch.resize(length);
        for (std::size_t done = 0; done < length;) {
            const std::size_t got = read_at_(offset + done, scratch.data() + done, length - done);
            if (got == 0) {
                return {};
            }
            done += got;
        }
        return scratch;
    }

  private:
    std::uint64_t size_;
    ReadAt read_at_;
    std::function<void()> close_;
};

// The bytes of the regular file at `path`, mapped or streamed as `access` asks (an empty
// file is always streamed). Null with `error` set when the file cannot be opened, is not a
// regular file (std::errc::invalid_argument), or cannot be mapped.
std::unique_ptr<TapeImage::Storage> open_file_storage(const std::filesystem::path& path,
                                                      TapeAccess access, std::error_code& error);

}  // namespace kc::deck
