#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "deck/tape_storage.h"

namespace kc::deck {
namespace {

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
        return std::make_unique<MappedStorage>(static_cast<const std::uint8_t*>(data), size,
                                               [data, size] { munmap(data, size); });
    }
    return std::make_unique<StreamedStorage>(
        size,
        [fd](std::uint64_t offset, std::uint8_t* to, std::size_t length) -> std::size_t {
            for (;;) {
                const ssize_t n = pread(fd, to, length, static_cast<off_t>(offset));
                if (n < 0 && errno == EINTR) {
                    continue;
                }
                return n > 0 ? static_cast<std::size_t>(n) : 0;
            }
        },
        [fd] { close(fd); });
}

}  // namespace kc::deck
