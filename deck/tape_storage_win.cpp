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
        return std::make_unique<MappedStorage>(static_cast<const std::uint8_t*>(data), size,
                                               [data] { UnmapViewOfFile(data); });
    }
    return std::make_unique<StreamedStorage>(
        size,
        [file](std::uint64_t offset, std::uint8_t* to, std::size_t length) -> std::size_t {
            OVERLAPPED at{};
            at.Offset = static_cast<DWORD>(offset & 0xFFFFFFFFu);
            at.OffsetHigh = static_cast<DWORD>(offset >> 32);
            const DWORD want = static_cast<DWORD>(std::min<std::size_t>(length, 1u << 30));
            DWORD got = 0;
            return ReadFile(file, to, want, &got, &at) ? got : 0;
        },
        [file] { CloseHandle(file); });
}

}  // namespace kc::deck
