// A tape image: a raw DV stream file (DV frames back to back, as a camcorder sends them).
// A position on the tape is a frame index; the absolute track number of a frame is its
// index times the tracks per frame of its system (see dv_frame.h).
//
// Raw DV frames all have the size of their system, so opening the image reads only its
// start: bytes before the first whole frame (a cut-off start) are skipped, the system is
// that first frame's, and frame n starts n frame sizes after it. A cut-off end is skipped
// too. Nothing else is read until a frame is asked for, so opening a one-hour tape costs
// what opening a one-minute tape does. A frame that is not a whole frame of the tape's
// system where it should be (damage, a frame of the other system) is found damaged when
// it is reached: it carries no timecode and cannot be read.
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
    // Not a whole frame of the tape's system: no timecode, and read_frame refuses it.
    bool damaged = false;
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
    // Opens the file and finds its first frame. Null with `error` set when it cannot be
    // read, or holds no whole DV frame (std::errc::invalid_argument).
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
    std::int64_t frame_count() const { return frame_count_; }
    int tracks_per_frame() const { return deck::tracks_per_frame(system_); }
    // Bytes of the file before the first frame and after the last whole one.
    std::uint64_t skipped_bytes() const { return skipped_bytes_; }

    // Where a frame starts and what its subcode says, read from the frame itself;
    // `index` must be in [0, frame_count()).
    TapeFrame frame(std::int64_t index) const;

    // Absolute track number of the first track of a frame, and the frame a track belongs to
    // (which may lie past the end of the tape).
    std::int64_t track_of_frame(std::int64_t index) const { return index * tracks_per_frame(); }
    std::int64_t frame_of_track(std::int64_t track) const { return track / tracks_per_frame(); }

    // Copies one frame into `out` (frame_bytes() long). False when `index` is off the tape,
    // `out` has the wrong size, the frame is damaged, or the file cannot be read.
    bool read_frame(std::int64_t index, std::span<std::uint8_t> out) const;
    // Whether the image's bytes are in memory (mapped or given), so that frame_view works.
    bool in_memory() const;
    // One frame's bytes where they lie in memory, without a copy: valid as long as the
    // image lives. Empty when read_frame would fail or the image is not in memory.
    std::span<const std::uint8_t> frame_view(std::int64_t index) const;

    std::vector<TapeSection> sections() const;

    // Where the bytes live (memory, a mapping, a file read on demand); private to the
    // implementation.
    class Storage;

  private:
    explicit TapeImage(std::unique_ptr<Storage> storage);
    static std::shared_ptr<const TapeImage> build(std::unique_ptr<Storage> storage,
                                                  std::error_code& error);
    // Finds the first whole frame and counts the frames from there; false on a read error.
    bool find_frames();
    std::uint64_t offset_of(std::int64_t index) const {
        return first_offset_ + static_cast<std::uint64_t>(index) * frame_bytes();
    }

    std::unique_ptr<Storage> storage_;
    DvSystem system_ = DvSystem::pal_625_50;
    std::uint64_t first_offset_ = 0;
    std::int64_t frame_count_ = 0;
    std::uint64_t skipped_bytes_ = 0;
};

}  // namespace kc::deck
