#include "deck/tape_image.h"

#include <cstring>

#include "deck/tape_storage.h"

namespace kc::deck {
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

}  // namespace

TapeImage::TapeImage(std::unique_ptr<Storage> storage) : storage_(std::move(storage)) {}
TapeImage::~TapeImage() = default;

std::shared_ptr<const TapeImage> TapeImage::open(const std::filesystem::path& path,
                                                 TapeAccess access, std::error_code& error) {
    error.clear();
    std::unique_ptr<Storage> storage = open_file_storage(path, access, error);
    if (storage == nullptr) {
        return nullptr;
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
