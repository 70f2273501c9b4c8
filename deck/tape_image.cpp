#include "deck/tape_image.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kc::deck {

// Where the image's bytes live. `bytes` gives a view of [offset, offset + length): straight
// into memory when the bytes are there, else read into `scratch`. Empty on a read failure.
class TapeImage::Storage {
  public:
    virtual ~Storage() = default;
    virtual std::uint64_t size() const = 0;
    virtual std::span<const std::uint8_t> bytes(std::uint64_t offset, std::size_t length,
                                                std::vector<std::uint8_t>& scratch) const = 0;
    // Whether `bytes` points into memory that lives as long as the storage.
    virtual bool in_memory() const { return true; }
};

namespace {

class MemoryStorage final : public TapeImage::Storage {
  public:
    explicit MemoryStorage(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}
    std::uint64_t size() const override { return bytes_.size(); }
    std::span<const std::uint8_t> bytes(std::uint64_t offset, std::size_t length,
                                        std::vector<std::uint8_t>&) const override {
        return std::span<const std::uint8_t>(bytes_).subspan(offset, length);
    }

  private:
    std::vector<std::uint8_t> bytes_;
};

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

TapeImage::TapeImage(std::unique_ptr<Storage> storage) : storage_(std::move(storage)) {}
TapeImage::~TapeImage() = default;

std::shared_ptr<const TapeImage> TapeImage::open(const std::filesystem::path& path,
                                                 TapeAccess access, std::error_code& error) {
    error.clear();
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
    std::unique_ptr<Storage> storage;
    if (access == TapeAccess::mapped && size > 0) {
        void* data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
        if (data == MAP_FAILED) {
            error = last_error();
            close(fd);
            return nullptr;
        }
        // The mapping holds the file; the descriptor is no longer needed.
        close(fd);
        storage = std::make_unique<MappedStorage>(static_cast<const std::uint8_t*>(data), size);
    } else {
        storage = std::make_unique<StreamedStorage>(fd, size);
    }
    return build(std::move(storage), error);
}

std::shared_ptr<const TapeImage> TapeImage::from_bytes(std::vector<std::uint8_t> bytes,
                                                       std::error_code& error) {
    error.clear();
    return build(std::make_unique<MemoryStorage>(std::move(bytes)), error);
}

std::shared_ptr<const TapeImage> TapeImage::build(std::unique_ptr<Storage> storage,
                                                  std::error_code& error) {
    std::shared_ptr<TapeImage> image(new TapeImage(std::move(storage)));
    if (!image->find_frames()) {
        error = std::make_error_code(std::errc::io_error);
        return nullptr;
    }
    if (image->frame_count_ == 0) {
        error = std::make_error_code(std::errc::invalid_argument);
        return nullptr;
    }
    return image;
}

bool TapeImage::find_frames() {
    const std::uint64_t total = storage_->size();
    std::vector<std::uint8_t> scratch;
    std::uint64_t at = 0;
    // The system is that of the first whole frame. Look for it a window at a time; a
    // window of four long frames holds any frame that starts in its first three. A tape
    // starts with a frame, or after a few bytes of a cut-off one, so this reads the first
    // window only; only a file that holds no frame is read to its end.
    const std::size_t longest = deck::frame_bytes(DvSystem::pal_625_50);
    while (at < total) {
        const std::size_t window =
            static_cast<std::size_t>(std::min<std::uint64_t>(total - at, 4 * longest));
        const auto bytes = storage_->bytes(at, window, scratch);
        if (bytes.size() != window) {
            return false;
        }
        std::optional<std::size_t> first;
        for (const DvSystem system : {DvSystem::pal_625_50, DvSystem::ntsc_525_60}) {
            const auto found = find_frame(bytes, system, 0);
            if (found && (!first || *found < *first)) {
                first = found;
                system_ = system;
            }
        }
        if (first) {
            first_offset_ = at + *first;
            frame_count_ = static_cast<std::int64_t>((total - first_offset_) / frame_bytes());
            skipped_bytes_ = total - static_cast<std::uint64_t>(frame_count_) * frame_bytes();
            return true;
        }
        at += at + window >= total ? window : window - longest + 1;
    }
    skipped_bytes_ = total;
    return true;
}

TapeFrame TapeImage::frame(std::int64_t index) const {
    TapeFrame entry;
    entry.offset = offset_of(index);
    std::vector<std::uint8_t> scratch;
    const auto bytes = storage_->bytes(entry.offset, frame_bytes(), scratch);
    if (bytes.size() != frame_bytes() || !is_whole_frame(bytes, system_)) {
        entry.damaged = true;
        return entry;
    }
    entry.timecode = read_timecode(bytes, system_);
    entry.user_bits = read_user_bits(bytes, system_).value_or(0);
    return entry;
}

bool TapeImage::read_frame(std::int64_t index, std::span<std::uint8_t> out) const {
    if (index < 0 || index >= frame_count() || out.size() != frame_bytes()) {
        return false;
    }
    std::vector<std::uint8_t> scratch;
    const auto bytes = storage_->bytes(offset_of(index), out.size(), scratch);
    if (bytes.size() != out.size() || !is_whole_frame(bytes, system_)) {
        return false;
    }
    std::memcpy(out.data(), bytes.data(), out.size());
    return true;
}

bool TapeImage::in_memory() const {
    return storage_->in_memory();
}

std::span<const std::uint8_t> TapeImage::frame_view(std::int64_t index) const {
    if (index < 0 || index >= frame_count() || !storage_->in_memory()) {
        return {};
    }
    std::vector<std::uint8_t> unused;
    const auto bytes = storage_->bytes(offset_of(index), frame_bytes(), unused);
    if (bytes.size() != frame_bytes() || !is_whole_frame(bytes, system_)) {
        return {};
    }
    return bytes;
}

std::vector<TapeSection> TapeImage::sections() const {
    std::vector<TapeSection> out;
    std::int64_t previous_count = 0;
    for (std::int64_t i = 0; i < frame_count(); ++i) {
        const TapeFrame f = frame(i);
        std::optional<TapeTime> time;
        std::int64_t count = 0;
        if (f.timecode) {
            time = from_bcd_word(*f.timecode);
            count = to_frame_count(*time, system_);
        }
        const bool continues = !out.empty() && out.back().start.has_value() == time.has_value() &&
                               out.back().user_flag == f.user_flag() &&
                               (!time || count == previous_count + 1);
        if (continues) {
            ++out.back().frames;
        } else {
            out.push_back(TapeSection{i, 1, time, f.user_flag()});
        }
        previous_count = count;
    }
    return out;
}

}  // namespace kc::deck
