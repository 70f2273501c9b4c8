#include "platform/gst/avi/avi_output.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace kc::avi {

namespace {

std::error_code last_error() {
    return {errno, std::system_category()};
}

class FileOutput final : public AviOutput {
  public:
    explicit FileOutput(int fd) : fd_(fd) {}
    ~FileOutput() override {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FileOutput(const FileOutput&) = delete;
    FileOutput& operator=(const FileOutput&) = delete;

    std::error_code append(std::span<const Bytes> pieces) override {
        std::vector<iovec> iov;
        iov.reserve(pieces.size());
        for (const Bytes& piece : pieces) {
            if (!piece.empty()) {
                iov.push_back({const_cast<std::uint8_t*>(piece.data()), piece.size()});
            }
        }
        // writev may stop short (a signal, a nearly full disk); carry on from where it
        // stopped until everything is written or the system reports why it cannot be.
        std::size_t first = 0;
        while (first < iov.size()) {
            const ssize_t n =
                ::writev(fd_, iov.data() + first, static_cast<int>(iov.size() - first));
            if (n < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return last_error();
            }
            if (n == 0) {
                return std::make_error_code(std::errc::no_space_on_device);
            }
            auto left = static_cast<std::size_t>(n);
            end_ += left;
            while (first < iov.size() && left >= iov[first].iov_len) {
                left -= iov[first].iov_len;
                ++first;
            }
            if (left > 0) {
                iov[first].iov_base = static_cast<std::uint8_t*>(iov[first].iov_base) + left;
                iov[first].iov_len -= left;
            }
        }
        return {};
    }

    std::error_code write_at(std::uint64_t offset, Bytes bytes) override {
        if (offset + bytes.size() > end_) {
            return std::make_error_code(std::errc::invalid_argument);
        }
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::pwrite(fd_, bytes.data() + done, bytes.size() - done,
                                       static_cast<off_t>(offset + done));
            if (n < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return last_error();
            }
            if (n == 0) {
                return std::make_error_code(std::errc::io_error);
            }
            done += static_cast<std::size_t>(n);
        }
        return {};
    }

    std::error_code truncate(std::uint64_t size) override {
        // Appends go to the descriptor's position, so move it back with the end.
        if (::ftruncate(fd_, static_cast<off_t>(size)) != 0 ||
            ::lseek(fd_, static_cast<off_t>(size), SEEK_SET) < 0) {
            return last_error();
        }
        end_ = size;
        return {};
    }

    std::error_code sync() override {
        if (::fdatasync(fd_) != 0) {
            return last_error();
        }
        return {};
    }

    std::error_code close() override {
        if (fd_ < 0) {
            return {};
        }
        const int fd = fd_;
        fd_ = -1;
        // close can report a deferred write error (NFS, some FUSE file systems).
        if (::close(fd) != 0 && errno != EINTR) {
            return last_error();
        }
        return {};
    }

  private:
    int fd_;
    std::uint64_t end_ = 0;
};

}  // namespace

std::unique_ptr<AviOutput> open_file_output(const std::filesystem::path& path,
                                            std::error_code& error) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) {
        error = last_error();
        return nullptr;
    }
    error.clear();
    return std::make_unique<FileOutput>(fd);
}

}  // namespace kc::avi
