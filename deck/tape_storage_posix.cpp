#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "deck/tape_storage.h"

namespace kc::deck {
namespace {

class MappedStorage final : public TapeImage::Storage {
  public:
    MappedStorage(const std::uint8_t* data, std::uint64_t size) : data_(data), size_(size) {}
    ~MappedStorage() override {
        if (data_ != nullptr) {
            munmap(const_cast<std::uint8_t*>(data_), size_);
        }
    }
    std::uint64_t size() const override { return size_; }
    std::span<const std::uint8_t> bytes(std::uint64_t offset, std::size_t length,
                                        std::vector<std::uint8_t>&) const override {
        return {data_ + offset, length};
    }

  private:
    const std::uint8_t* data_;
    std::uint64_t size_;
};

class StreamedStorage final : public TapeImage::Storage {
  public:
    StreamedStorage(int fd, std::uint64_t size) : fd_(fd), size_(size) {}
    ~StreamedStorage() override { close(fd_); }
    std::uint64_t size() const override { return size_; }
    bool in_memory() const override { return false; }
    std::span<const std::uint8_t> bytes(std::uint64_t offset, std::size_t length,
                                        std::vector<std::uint8_t>& scratch) const override {
        scratch.resize(length);
        std::size_t done = 0;
        while (done < length) {
            const ssize_t n =
                pread(fd_, scratch.data() + done, length - done, static_cast<off_t>(offset + done));
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0) {
                return {};
            }
            done += static_cast<std::size_t>(n);
        }
        return scratch;
    }

  private:
    int fd_;
    std::uint64_t size_;
};

std::error_code last_error() {
    return {errno, std::generic_category()};
}

}  // namespace

std::unique_ptr<TapeImage::Storage> open_file_storage(const std::filesystem::path& path,
                                                      TapeAccess access, std::error_code& error) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error = last_error();
        return nullptr;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0) {
        error = last_error();
        close(fd);
        return nullptr;
    }
    if (!S_ISREG(st.st_mode)) {
        close(fd);
        error = std::make_error_code(std::errc::invalid_argument);
        return nullptr;
    }
    const auto size = static_cast<std::uint64_t>(st.st_size);
    if (access == TapeAccess::mapped && size > 0) {
        void* data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
        if (data == MAP_FAILED) {
            error = last_error();
            close(fd);
            return nullptr;
        }
        // The mapping holds the file; the descriptor is no longer needed.
        close(fd);
        return std::make_unique<MappedStorage>(static_cast<const std::uint8_t*>(data), size);
    }
    return std::make_unique<StreamedStorage>(fd, size);
}

}  // namespace kc::deck
