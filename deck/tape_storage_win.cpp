#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <algorithm>

#include "deck/tape_storage.h"

namespace kc::deck {
namespace {

// The system's error, with the ones callers tell apart as their portable conditions.
std::error_code last_error() {
    const DWORD code = GetLastError();
    switch (code) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return std::make_error_code(std::errc::no_such_file_or_directory);
        case ERROR_ACCESS_DENIED:
            return std::make_error_code(std::errc::permission_denied);
        default:
            return {static_cast<int>(code), std::system_category()};
    }
}

class MappedStorage final : public TapeImage::Storage {
  public:
    MappedStorage(const std::uint8_t* data, std::uint64_t size) : data_(data), size_(size) {}
    ~MappedStorage() override { UnmapViewOfFile(data_); }
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
    StreamedStorage(HANDLE file, std::uint64_t size) : file_(file), size_(size) {}
    ~StreamedStorage() override { CloseHandle(file_); }
    std::uint64_t size() const override { return size_; }
    bool in_memory() const override { return false; }
    std::span<const std::uint8_t> bytes(std::uint64_t offset, std::size_t length,
                                        std::vector<std::uint8_t>& scratch) const override {
        scratch.resize(length);
        std::size_t done = 0;
        while (done < length) {
            // A positioned read: the offset travels with the call, so readers on several
            // threads never share a file position.
            OVERLAPPED at{};
            const std::uint64_t from = offset + done;
            at.Offset = static_cast<DWORD>(from & 0xFFFFFFFFu);
            at.OffsetHigh = static_cast<DWORD>(from >> 32);
            const DWORD want = static_cast<DWORD>(std::min<std::size_t>(length - done, 1u << 30));
            DWORD got = 0;
            if (!ReadFile(file_, scratch.data() + done, want, &got, &at) || got == 0) {
                return {};
            }
            done += got;
        }
        return scratch;
    }

  private:
    HANDLE file_;
    std::uint64_t size_;
};

}  // namespace

std::unique_ptr<TapeImage::Storage> open_file_storage(const std::filesystem::path& path,
                                                      TapeAccess access, std::error_code& error) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        error = last_error();
        return nullptr;
    }
    if (GetFileType(file) != FILE_TYPE_DISK ||
        (GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        CloseHandle(file);
        error = std::make_error_code(std::errc::invalid_argument);
        return nullptr;
    }
    LARGE_INTEGER bytes{};
    if (!GetFileSizeEx(file, &bytes)) {
        error = last_error();
        CloseHandle(file);
        return nullptr;
    }
    const auto size = static_cast<std::uint64_t>(bytes.QuadPart);
    if (access == TapeAccess::mapped && size > 0) {
        HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
        void* data = mapping != nullptr ? MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0) : nullptr;
        if (data == nullptr) {
            error = last_error();
        }
        // The view holds the file; neither handle is needed any more.
        if (mapping != nullptr) {
            CloseHandle(mapping);
        }
        CloseHandle(file);
        if (data == nullptr) {
            return nullptr;
        }
        return std::make_unique<MappedStorage>(static_cast<const std::uint8_t*>(data), size);
    }
    return std::make_unique<StreamedStorage>(file, size);
}

}  // namespace kc::deck
