// An AviOutput that keeps the file in memory, so tests can look at the image at any
// moment, and can be made to run out of space after a given number of bytes.
#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include "platform/gst/avi/avi_output.h"

namespace kc::avi::test {

struct MemoryFile {
    std::vector<std::uint8_t> bytes;
    std::optional<std::uint64_t> capacity;  // appends beyond it fail with ENOSPC
    int syncs = 0;
    bool closed = false;
};

class MemoryOutput final : public AviOutput {
  public:
    explicit MemoryOutput(std::shared_ptr<MemoryFile> file) : file_(std::move(file)) {}

    std::error_code append(std::span<const Bytes> pieces) override {
        for (const Bytes& piece : pieces) {
            std::size_t room = piece.size();
            if (file_->capacity) {
                room = static_cast<std::size_t>(std::min<std::uint64_t>(
                    room, *file_->capacity -
                              std::min<std::uint64_t>(*file_->capacity, file_->bytes.size())));
            }
            file_->bytes.insert(file_->bytes.end(), piece.begin(),
                                piece.begin() + static_cast<long>(room));
            if (room < piece.size()) {
                return std::make_error_code(std::errc::no_space_on_device);
            }
        }
        return {};
    }
    std::error_code write_at(std::uint64_t offset, Bytes bytes) override {
        if (offset + bytes.size() > file_->bytes.size()) {
            return std::make_error_code(std::errc::invalid_argument);
        }
        std::copy(bytes.begin(), bytes.end(), file_->bytes.begin() + static_cast<long>(offset));
        return {};
    }
    std::error_code truncate(std::uint64_t size) override {
        file_->bytes.resize(size);
        return {};
    }
    std::error_code sync() override {
        ++file_->syncs;
        return {};
    }
    std::error_code close() override {
        file_->closed = true;
        return {};
    }

  private:
    std::shared_ptr<MemoryFile> file_;
};

}  // namespace kc::avi::test
