// FrameGate: the last step of a DV capture before the file. It sees every frame the source
// delivers, with what the frame's own subcode says about it, and decides which file it
// goes into, so that every tape frame ends up in exactly one file and every frame missing
// between the tape and the file is counted where it went missing.
//
// What it does with a frame:
//   - A repeat (the same timecode, user flag and recording time as a frame it took in the
//     last two seconds) is not written again: a tape that is stopped and played again, or
//     paused, shows frames it has already shown.
//   - A gap in the timecode of up to `max_same_scene_step` frames forward is frames lost
//     between the tape and here; the source may already have counted them (FrameFacts::
//     source_lost), the rest count as lost on the way (`gap_lost`).
//   - A recording break (the timecode steps back or jumps more than `max_same_scene_step`
//     frames forward, or the user flag rises) may be where the capture starts a new file.
//     The frames from the break on are held back (for at most `hold_seconds` of frames)
//     until the capture says whether it splits there. If it does (split()), the file ends
//     with the last frame before the break and the held frames, with everything that comes
//     until the end of the stream, open the next file of the capture through the Carry. If
//     it does not, they go into this file. The latest break before the end of the stream
//     is the one split at; when none shows, the file ends where the split was asked for.
//
// The capture's own rule decides that a break happened (it compares the timecodes it polls
// every 250 ms, with the same 60-frame limit); the gate only decides which frames go where.
// A break the polls can miss (a flag raised for fewer frames than lie between two of them)
// is told to the capture by holds_break(), so that it splits there too.
//
// Threads: frame() and end() come from the streaming thread, in stream order; split() and
// counters() from the user-interface thread, which never waits for a frame being written.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

#include "dv/dv_frame.h"
#include "dv/tape_time.h"

namespace kc::capture {

class CaptureLog;

// What the gate knows of one frame.
struct FrameFacts {
    std::optional<dv::TapeTime> timecode;
    bool user_flag = false;
    std::optional<dv::RecordingTime> recorded;
    // The absolute track number of the frame's first track, when the source knows it.
    std::optional<std::int64_t> track;
    // Frames the source counted as lost just before this one.
    std::int64_t source_lost = 0;
};

// The facts a frame's subcode carries (timecode, user flag, recording time).
FrameFacts read_facts(std::span<const std::uint8_t> frame, dv::DvSystem system);

struct Frame {
    // The frame's bytes as the host holds them (a media buffer); the gate only passes
    // them on.
    std::shared_ptr<void> payload;
    FrameFacts facts;
};

// A frame taken but not yet written, with what was found missing just before it. Its
// losses are counted and logged in the file it ends up in.
struct PendingFrame {
    Frame frame;
    std::int64_t gap_before = 0;
    std::optional<FrameFacts> before;
};

// What one file of a capture hands to the next at a recording break: the frames from the
// break on, and the facts of the frames taken last, so that the next file does not write
// again what the tape replays. Shared by the files of one capture, one after the other.
struct Carry {
    std::mutex lock;
    dv::DvSystem system = dv::DvSystem::pal_625_50;
    std::deque<PendingFrame> frames;
    std::deque<FrameFacts> recent;
    // Whether anything was handed over since the last capture file began.
    bool pending = false;
    void clear() {
        frames.clear();
        recent.clear();
        pending = false;
    }
};

// Frames missing between the tape and the file, by where they went missing, and frames
// written, for one file.
struct GateCounters {
    std::int64_t written = 0;
    std::int64_t source_lost = 0;
    std::int64_t gap_lost = 0;
    std::int64_t write_failed = 0;
    std::int64_t repeats = 0;
    std::int64_t dropped() const { return source_lost + gap_lost + write_failed; }
};

struct GateOptions {
    dv::DvSystem system = dv::DvSystem::pal_625_50;
    // The largest forward step of the timecode that is still the same recording.
    std::int64_t max_same_scene_step = 60;
    // How long (in tape time) frames after a break wait for the capture to split there.
    double hold_seconds = 2.0;
    // How far back (in tape time) a frame counts as a repeat of one already taken.
    double repeat_seconds = 2.0;
};

class FrameGate {
  public:
    // Writes one frame to the file; false when it could not be written.
    using Write = std::function<bool(const Frame&)>;

    // `carry` (may be null) links the files of one capture; `log` (may be null) is told
    // every event. Both must outlive the gate.
    FrameGate(GateOptions options, Write write, std::shared_ptr<Carry> carry, CaptureLog* log);

    void frame(Frame frame);
    void split();
    // The source counted `frames` lost after the last frame it delivered: no frame follows
    // to count them before, so they are counted here, in this file. Call before end().
    void lost_at_end(std::int64_t frames);
    // The end of the stream: held frames go into this file, or after a split to the carry.
    void end();
    // Once the file is closed: the log's closing lines.
    void finish_log();
    GateCounters counters();
    // Whether frames from a recording break in this file's stream wait for a split that
    // has not been asked for.
    bool holds_break();

  private:
    enum class Step { first, next, repeat, gap, recording_break };
    Step classify(const FrameFacts& facts, std::int64_t& missing) const;
    bool is_repeat(const FrameFacts& facts) const;
    void accept(const FrameFacts& facts);
    void write(const PendingFrame& frame);
    void hold_break(PendingFrame frame);
    void write_held();
    void begin_file();
    // Tells counters() how many frames are held; call after held_ changes.
    void note_held();
    std::int64_t frames_in(double seconds) const;

    const GateOptions options_;
    const Write write_;
    const std::shared_ptr<Carry> carry_;
    CaptureLog* const log_;

    std::mutex lock_;
    bool begun_ = false;
    bool ended_ = false;
    bool first_logged_ = false;
    // This file goes on from a split: its first frame is where the previous one ended.
    bool continues_split_ = false;
    // The previous file split with nothing held: the first frame here may be the very
    // break it split at, which begins this file rather than waiting to split it again.
    bool opening_break_ = false;
    std::atomic<bool> split_asked_{false};
    // Frames held back: from a recording break (holding_), or everything after a split
    // that no break has followed yet.
    bool holding_ = false;
    // This file opens with a flagged start handed over by the previous one, held while the
    // flag lasts.
    bool opening_run_ = false;
    std::deque<PendingFrame> held_;
    std::optional<FrameFacts> previous_;
    std::optional<FrameFacts> last_written_;
    std::deque<FrameFacts> recent_;
    // Updated by the streaming thread, read by the user-interface thread.
    std::mutex counters_lock_;
    GateCounters counters_;
    std::int64_t held_count_ = 0;
    bool break_held_ = false;
};

}  // namespace kc::capture
