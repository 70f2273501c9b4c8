// A tape image: a raw DV stream file (DV frames back to back, as a camcorder sends them),
// indexed once when it is opened: where each frame starts, and the timecode and user bits
// its subcode carries. A position on the tape is a frame index; the absolute track number
// of a frame is its index times the tracks per frame of its system (see dv_frame.h).
//
// Bytes that do not form a whole frame of the tape's system (a cut-off start or end,
// damage) are skipped when indexing, so the frames of the index are always whole. The
// system is that of the first whole frame; frames of the other system are skipped too.
//
// An image is immutable once opened and may be read from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <system_error>
#include <vector>

#include "deck/dv_terms.h"

namespace kc::deck {

// How the file's bytes are reached: mapped into memory (the default: no copy while
// indexing, frames read straight from the page cache), or streamed with positioned reads
// (for files that cannot be mapped).
enum class TapeAccess { mapped, streamed };

struct TapeFrame {
    std::uint64_t offset = 0;
    // Empty when the frame carries no recorded timecode pack.
    std::optional<BcdTimecode> timecode;
    // The binary group's user bits, 0 when the frame carries no binary group pack.
    std::uint32_t user_bits = 0;
    bool user_flag() const { return (user_bits & 1) != 0; }
};

// A run of frames whose timecode counts up one frame at a time with the same user flag:
// what the tape holds as one recording, or the flagged part of one. Frames without
// timecode form sections of their own.
struct TapeSection {
    std::int64_t first_frame = 0;
    std::int64_t frames = 0;
    std::optional<TapeTime> start;
    bool user_flag = false;
};

class TapeImage {
  public:
    // Opens and indexes the file. Null with `error` set when it cannot be read, or holds no
    // whole DV frame (std::errc::invalid_argument).
    static std::shared_ptr<const TapeImage> open(const std::filesystem::path& path,
                                                 TapeAccess access, std::error_code& error);
    // An image over bytes in memory (a tape generated on the fly, tests).
    static std::shared_ptr<const TapeImage> from_bytes(std::vector<std::uint8_t> bytes,
                                                       std::error_code& error);

    ~TapeImage();
    TapeImage(const TapeImage&) = delete;
    TapeImage& operator=(const TapeImage&) = delete;

    DvSystem system() const { return system_; }
    std::size_t frame_bytes() const { return deck::frame_bytes(system_); }
    std::int64_t frame_count() const { return static_cast<std::int64_t>(index_.size()); }
    int tracks_per_frame() const { return deck::tracks_per_frame(system_); }
    // Bytes of the file that belong to no indexed frame.
    std::uint64_t skipped_bytes() const { return skipped_bytes_; }

    // The index entry of a frame; `index` must be in [0, frame_count()).
    const TapeFrame& frame(std::int64_t index) const {
        return index_[static_cast<std::size_t>(index)];
    }

    // Absolute track number of the first track of a frame, and the frame a track belongs to
    // (which may lie past the end of the tape).
    std::int64_t track_of_frame(std::int64_t index) const { return index * tracks_per_frame(); }
    std::int64_t frame_of_track(std::int64_t track) const { return track / tracks_per_frame(); }

    // Copies one frame into `out` (frame_bytes() long). False when `index` is off the tape,
    // `out` has the wrong size, or the file cannot be read.
    bool read_frame(std::int64_t index, std::span<std::uint8_t> out) const;

    std::vector<TapeSection> sections() const;

    // Where the bytes live (memory, a mapping, a file read on demand); private to the
    // implementation.
    class Storage;

  private:
    explicit TapeImage(std::unique_ptr<Storage> storage);
    static std::shared_ptr<const TapeImage> build(std::unique_ptr<Storage> storage,
                                                  std::error_code& error);
    bool build_index();

    std::unique_ptr<Storage> storage_;
    DvSystem system_ = DvSystem::pal_625_50;
    std::vector<TapeFrame> index_;
    std::uint64_t skipped_bytes_ = 0;
};

}  // namespace kc::deck
