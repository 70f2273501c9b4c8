// The AVI writer's file on Windows: the same contract as on POSIX (avi_output.h), each
// call going straight to the file with no buffer of ours in between.
#include <windows.h>

#include "platform/gst/avi/avi_output.h"

namespace kc::avi {
namespace {

std::error_code last_error() {
    return {static_cast<int>(GetLastError()), std::system_category()};
}

class FileOutput final : public AviOutput {
  public:
    explicit FileOutput(HANDLE file) : file_(file) {}
    ~FileOutput() override {
        if (file_ != INVALID_HANDLE_VALUE) {
            CloseHandle(file_);
        }
    }
    FileOutput(const FileOutput&) = delete;
    FileOutput& operator=(const FileOutput&) = delete;

    std::error_code append(std::span<const Bytes> pieces) override {
        for (const Bytes& piece : pieces) {
            if (const std::error_code e = write_whole(end_, piece)) {
                return e;
            }
            end_ += piece.size();
        }
        return {};
    }

    std::error_code write_at(std::uint64_t offset, Bytes bytes) override {
        if (offset + bytes.size() > end_) {
            return std::make_error_code(std::errc::invalid_argument);
        }
        return write_whole(offset, bytes);
    }

    std::error_code truncate(std::uint64_t size) override {
        LARGE_INTEGER at{};
        at.QuadPart = static_cast<LONGLONG>(size);
        if (!SetFilePointerEx(file_, at, nullptr, FILE_BEGIN) || !SetEndOfFile(file_)) {
            return last_error();
        }
        end_ = size;
        return {};
    }

    std::error_code sync() override {
        if (!FlushFileBuffers(file_)) {
            return last_error();
        }
        return {};
    }

    std::error_code close() override {
        if (file_ == INVALID_HANDLE_VALUE) {
            return {};
        }
        const HANDLE file = file_;
        file_ = INVALID_HANDLE_VALUE;
        if (!CloseHandle(file)) {
            return last_error();
        }
        return {};
    }

  private:
    // Writes all of `bytes` at `offset`, in pieces a single call can take.
    std::error_code write_whole(std::uint64_t offset, Bytes bytes) {
        std::size_t done = 0;
        while (done < bytes.size()) {
            OVERLAPPED at{};
            const std::uint64_t position = offset + done;
            at.Offset = static_cast<DWORD>(position);
            at.OffsetHigh = static_cast<DWORD>(position >> 32);
            const std::size_t left = bytes.size() - done;
            const DWORD chunk = left > 0x40000000 ? 0x40000000 : static_cast<DWORD>(left);
            DWORD written = 0;
            if (!WriteFile(file_, bytes.data() + done, chunk, &written, &at)) {
                return last_error();
            }
            if (written == 0) {
                return std::make_error_code(std::errc::no_space_on_device);
            }
            done += written;
        }
        return {};
    }

    HANDLE file_;
    std::uint64_t end_ = 0;
};

}  // namespace

std::unique_ptr<AviOutput> open_file_output(const std::filesystem::path& path,
                                            std::error_code& error) {
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        error = last_error();
        return nullptr;
    }
    error.clear();
    return std::make_unique<FileOutput>(file);
}

}  // namespace kc::avi
