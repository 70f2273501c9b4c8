#include "platform/capture/frame_gate.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/capture/capture_log.h"

namespace kc::capture {
namespace {

bool same_frame(const FrameFacts& a, const FrameFacts& b) {
    return a.timecode && b.timecode && *a.timecode == *b.timecode && a.user_flag == b.user_flag &&
           a.recorded == b.recorded;
}

// A split that no break follows for this long is given up, so that a stream that does not
// end cannot fill the memory: its frames go into the file being written.
constexpr double split_give_up_seconds = 30.0;

}  // namespace

FrameFacts read_facts(std::span<const std::uint8_t> frame, dv::DvSystem system) {
    FrameFacts facts;
    if (const auto timecode = dv::read_timecode(frame, system)) {
        facts.timecode = dv::from_bcd_word(*timecode);
    }
    facts.user_flag = (dv::read_user_bits(frame, system).value_or(0) & 1) != 0;
    facts.recorded = dv::read_recording_time(frame, system);
    return facts;
}

FrameGate::FrameGate(GateOptions options, Write write, std::shared_ptr<Carry> carry,
                     CaptureLog* log)
    : options_(options), write_(std::move(write)), carry_(std::move(carry)), log_(log) {}

std::int64_t FrameGate::frames_in(double seconds) const {
    const dv::FrameRate rate = dv::frame_rate(options_.system);
    return std::llround(seconds * static_cast<double>(rate.num) / static_cast<double>(rate.den));
}

bool FrameGate::is_repeat(const FrameFacts& facts) const {
    return std::any_of(recent_.begin(), recent_.end(),
                       [&](const FrameFacts& seen) { return same_frame(seen, facts); });
}

FrameGate::Step FrameGate::classify(const FrameFacts& facts, std::int64_t& missing) const {
    missing = 0;
    if (is_repeat(facts)) {
        return Step::repeat;
    }
    if (!previous_) {
        return Step::first;
    }
    if (!facts.timecode || !previous_->timecode) {
        return Step::next;  // nothing to measure continuity by
    }
    if (facts.user_flag && !previous_->user_flag) {
        return Step::recording_break;
    }
    const std::int64_t step = dv::to_frame_count(*facts.timecode, options_.system) -
                              dv::to_frame_count(*previous_->timecode, options_.system);
    if (step < 0 || step > options_.max_same_scene_step) {
        return Step::recording_break;
    }
    if (step >= 2) {
        missing = step - 1;
        return Step::gap;
    }
    return Step::next;
}

void FrameGate::accept(const FrameFacts& facts) {
    previous_ = facts;
    recent_.push_back(facts);
    while (static_cast<std::int64_t>(recent_.size()) > frames_in(options_.repeat_seconds)) {
        recent_.pop_front();
    }
}

void FrameGate::write(const PendingFrame& pending) {
    const FrameFacts& facts = pending.frame.facts;
    if (!first_logged_ && log_ != nullptr) {
        log_->first_frame(facts, continues_split_);
    }
    first_logged_ = true;
    // The source counts what it lost itself; a gap in the timecode beyond that was lost
    // between the source and here.
    const std::int64_t at_source = facts.source_lost;
    const std::int64_t on_the_way = std::max<std::int64_t>(pending.gap_before - at_source, 0);
    const bool written = write_(pending.frame);
    {
        std::lock_guard counting(counters_lock_);
        counters_.source_lost += at_source;
        counters_.gap_lost += on_the_way;
        ++(written ? counters_.written : counters_.write_failed);
    }
    if (log_ != nullptr) {
        const FrameFacts before = pending.before.value_or(FrameFacts{});
        if (at_source > 0) {
            log_->lost(before, facts, at_source, LossPlace::source);
        }
        if (on_the_way > 0) {
            log_->lost(before, facts, on_the_way, LossPlace::on_the_way);
        }
    }
    if (written) {
        last_written_ = facts;
    } else if (log_ != nullptr) {
        log_->write_failed(facts);
    }
}

void FrameGate::hold_break(PendingFrame pending) {
    write_held();
    holding_ = true;
    held_.push_back(std::move(pending));
}

void FrameGate::write_held() {
    if (holding_ && log_ != nullptr && !held_.empty()) {
        log_->recording_break(held_.front().before.value_or(FrameFacts{}),
                              held_.front().frame.facts, BreakOutcome::kept);
    }
    for (const PendingFrame& pending : held_) {
        write(pending);
    }
    held_.clear();
    holding_ = false;
}

void FrameGate::begin_file() {
    begun_ = true;
    if (!carry_) {
        return;
    }
    std::deque<PendingFrame> carried;
    {
        std::lock_guard lock(carry_->lock);
        if (carry_->pending) {
            carried = std::move(carry_->frames);
            recent_ = carry_->recent;
            if (!recent_.empty()) {
                previous_ = recent_.back();
            }
            opening_break_ = carried.empty();
            continues_split_ = true;
        }
        carry_->clear();
    }
    // Taken and judged by the previous file's gate: they only need writing. A flagged
    // start is held while its flag lasts: the capture's next look at the tape may still
    // find the flag and split again there, and then the whole run belongs to the next file.
    opening_run_ = !carried.empty() && carried.front().frame.facts.user_flag;
    for (PendingFrame& pending : carried) {
        if (opening_run_) {
            held_.push_back(std::move(pending));
        } else {
            write(pending);
        }
    }
    note_held();
}

void FrameGate::note_held() {
    std::lock_guard counting(counters_lock_);
    held_count_ = static_cast<std::int64_t>(held_.size());
    break_held_ = holding_ && !held_.empty();
}

void FrameGate::frame(Frame frame) {
    std::lock_guard lock(lock_);
    if (ended_) {
        // A host may end the stream before its source has stopped delivering (a graph told
        // to finish before it stops). After a split, such a frame is the next file's: it
        // follows what was handed over, unless the next file has already taken that.
        if (split_asked_ && carry_) {
            std::int64_t missing = 0;
            if (classify(frame.facts, missing) == Step::repeat) {
                return;
            }
            PendingFrame pending{std::move(frame), missing, previous_};
            accept(pending.frame.facts);
            std::lock_guard carry_lock(carry_->lock);
            if (carry_->pending) {
                carry_->frames.push_back(std::move(pending));
                carry_->recent = recent_;
            }
        }
        return;
    }
    if (!begun_) {
        begin_file();
    }
    std::int64_t missing = 0;
    const Step step = classify(frame.facts, missing);
    if (step == Step::repeat) {
        {
            std::lock_guard counting(counters_lock_);
            ++counters_.repeats;
        }
        if (log_ != nullptr) {
            log_->repeat(frame.facts);
        }
        return;
    }
    PendingFrame pending{std::move(frame), missing, previous_};
    accept(pending.frame.facts);
    bool at_break = step == Step::recording_break;
    if (std::exchange(opening_break_, false) && at_break) {
        if (log_ != nullptr && pending.before) {
            log_->recording_break(*pending.before, pending.frame.facts, BreakOutcome::begins);
        }
        at_break = false;
        // A flagged start may be seen by the capture's next look too, and split at again:
        // held while the flag lasts, as when it is handed over.
        opening_run_ = pending.frame.facts.user_flag;
    }
    if (opening_run_ && !split_asked_ && !at_break && !pending.frame.facts.user_flag) {
        // The flagged start is over and no split came for it: it opens this file.
        opening_run_ = false;
        write_held();
    }
    if (!split_asked_ && !holding_ && !opening_run_) {
        if (at_break) {
            hold_break(std::move(pending));
        } else {
            write(pending);
        }
        note_held();
        return;
    }
    // Frames before the latest break stay in this file.
    if (at_break) {
        opening_run_ = false;
        hold_break(std::move(pending));
        note_held();
        return;
    }
    held_.push_back(std::move(pending));
    const auto held = static_cast<std::int64_t>(held_.size());
    if ((!split_asked_ && held > frames_in(options_.hold_seconds)) ||
        held > frames_in(split_give_up_seconds)) {
        // No split came for this break: it is a break within the file.
        opening_run_ = false;
        write_held();
        split_asked_ = false;
    }
    note_held();
}

void FrameGate::split() {
    split_asked_ = true;
}

void FrameGate::lost_at_end(std::int64_t frames) {
    std::lock_guard lock(lock_);
    if (ended_ || frames <= 0) {
        return;
    }
    {
        std::lock_guard counting(counters_lock_);
        counters_.source_lost += frames;
    }
    if (log_ != nullptr) {
        log_->lost_at_end(previous_, frames);
    }
}

void FrameGate::end() {
    std::lock_guard lock(lock_);
    if (ended_) {
        return;
    }
    ended_ = true;
    if (!begun_) {
        if (split_asked_ && carry_) {
            // Split again before a frame of its own came (the tape had not moved yet): the
            // file stays empty and goes as too short; what was handed to it goes on,
            // untouched, to the next.
            if (log_ != nullptr) {
                log_->split_without_break(std::nullopt);
            }
            return;
        }
        begin_file();
    }
    opening_run_ = false;
    if (!split_asked_ || !carry_) {
        write_held();
        note_held();
        return;
    }
    if (log_ != nullptr) {
        if (holding_ && !held_.empty()) {
            log_->recording_break(held_.front().before.value_or(FrameFacts{}),
                                  held_.front().frame.facts, BreakOutcome::split);
        } else {
            log_->split_without_break(last_written_);
        }
    }
    std::lock_guard carry_lock(carry_->lock);
    carry_->system = options_.system;
    carry_->frames = std::move(held_);
    carry_->recent = recent_;
    carry_->pending = true;
    held_.clear();
    holding_ = false;
    note_held();
}

void FrameGate::finish_log() {
    std::lock_guard lock(lock_);
    if (log_ != nullptr) {
        log_->finish(last_written_, counters());
    }
}

bool FrameGate::holds_break() {
    std::lock_guard counting(counters_lock_);
    return break_held_ && !split_asked_;
}

GateCounters FrameGate::counters() {
    std::lock_guard counting(counters_lock_);
    GateCounters counters = counters_;
    // Frames held back go into this file unless it splits: while they wait, the file is
    // not too short to keep.
    if (!split_asked_) {
        counters.written += held_count_;
    }
    return counters;
}

}  // namespace kc::capture
