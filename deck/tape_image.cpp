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
    if (!image->build_index()) {
        error = std::make_error_code(std::errc::io_error);
        return nullptr;
    }
    if (image->index_.empty()) {
        error = std::make_error_code(std::errc::invalid_argument);
        return nullptr;
    }
    return image;
}

bool TapeImage::build_index() {
    const std::uint64_t total = storage_->size();
    std::vector<std::uint8_t> scratch;
    std::uint64_t at = 0;
    bool have_system = false;
    // The system is that of the first whole frame. Look for it a window at a time; a
    // window of four long frames holds any frame that starts in its first three.
    const std::size_t longest = deck::frame_bytes(DvSystem::pal_625_50);
    while (!have_system && at < total) {
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
            have_system = true;
            skipped_bytes_ += *first;
            at += *first;
        } else {
            const std::uint64_t advance = at + window >= total ? window : window - longest + 1;
            skipped_bytes_ += advance;
            at += advance;
        }
    }
    while (at < total) {
        const std::size_t size = frame_bytes();
        if (at + size > total) {
            skipped_bytes_ += total - at;
            break;
        }
        const auto frame = storage_->bytes(at, size, scratch);
        if (frame.empty()) {
            return false;
        }
        if (is_whole_frame(frame, system_)) {
            TapeFrame entry;
            entry.offset = at;
            entry.timecode = read_timecode(frame, system_);
            entry.user_bits = read_user_bits(frame, system_).value_or(0);
            index_.push_back(entry);
            at += size;
            continue;
        }
        // Damage: look for the next frame among the bytes a frame starting before
        // at + size + 1 would cover.
        const std::size_t window = static_cast<std::size_t>(
            std::min<std::uint64_t>(total - (at + 1), 2 * static_cast<std::uint64_t>(size)));
        const auto bytes = storage_->bytes(at + 1, window, scratch);
        if (bytes.size() != window) {
            return false;
        }
        const auto found = find_frame(bytes, system_, 0);
        const std::uint64_t skip =
            found ? 1 + *found : std::min<std::uint64_t>(size + 1, total - at);
        skipped_bytes_ += skip;
        at += skip;
    }
    return true;
}

bool TapeImage::read_frame(std::int64_t index, std::span<std::uint8_t> out) const {
    if (index < 0 || index >= frame_count() || out.size() != frame_bytes()) {
        return false;
    }
    std::vector<std::uint8_t> scratch;
    const auto bytes = storage_->bytes(frame(index).offset, out.size(), scratch);
    if (bytes.size() != out.size()) {
        return false;
    }
    std::memcpy(out.data(), bytes.data(), out.size());
    return true;
}

std::vector<TapeSection> TapeImage::sections() const {
    std::vector<TapeSection> out;
    std::int64_t previous_count = 0;
    for (std::int64_t i = 0; i < frame_count(); ++i) {
        const TapeFrame& f = frame(i);
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
