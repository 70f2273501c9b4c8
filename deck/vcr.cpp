#include "deck/vcr.h"

#include <algorithm>
#include <cstdlib>

namespace kc::deck {
namespace {

std::int64_t ceil_div(std::int64_t a, std::int64_t b) {
    return (a + b - 1) / b;
}

bool is_known_mode(long mode) {
    switch (static_cast<TransportMode>(mode)) {
        case TransportMode::play:
        case TransportMode::stop:
        case TransportMode::freeze:
        case TransportMode::fast_forward:
        case TransportMode::rewind:
        case TransportMode::step_forward:
        case TransportMode::step_reverse:
        case TransportMode::fastest_forward:
        case TransportMode::fastest_reverse:
            return true;
    }
    return false;
}

}  // namespace

VirtualVcr::VirtualVcr(std::shared_ptr<const TapeImage> tape, const Clock& clock,
                       VcrOptions options)
    : tape_(std::move(tape)), clock_(clock), options_(options), rate_(frame_rate(tape_->system())) {
    t0_ms_ = clock_.now_ms();
}

// ---- The position model ---------------------------------------------------------------

bool VirtualVcr::fetch_driven() const {
    return options_.pacing == Pacing::unpaced && motion_.picture;
}

std::int64_t VirtualVcr::position_at(std::int64_t t_ms) const {
    if (motion_.direction == 0) {
        return pos0_mf_;
    }
    // Thousandths of a frame covered: speed * elapsed ms * frames per ms * 1000.
    const std::int64_t covered = fetch_driven()
                                     ? std::int64_t{motion_.speed} * 1000 * taken_
                                     : motion_.speed * (t_ms - t0_ms_) * rate_.num / rate_.den;
    const std::int64_t p = pos0_mf_ + motion_.direction * covered;
    // A seek may run off the tape's end; any other motion stops on the last frame.
    return std::clamp<std::int64_t>(p, 0, seek_target_mf_ ? end_mf() : last_mf());
}

// Carries the model forward to `now_ms`, making each transition that falls due on the way
// (arrival at a seek target, at either end of the tape) at its own moment, so that what
// follows it (a play after a seek) runs from there.
void VirtualVcr::advance(std::int64_t now_ms) {
    if (laced_at_ms_ && *laced_at_ms_ <= now_ms) {
        const std::int64_t at = *laced_at_ms_;
        laced_at_ms_.reset();
        begin(TransportMode::play, Motion{1, 1, true}, at);
    }
    while (motion_.direction != 0) {
        const std::int64_t limit =
            seek_target_mf_ ? *seek_target_mf_ : (motion_.direction > 0 ? last_mf() : 0);
        if (fetch_driven()) {
            const std::int64_t p = pos0_mf_ + motion_.direction * motion_.speed * 1000 * taken_;
            if ((motion_.direction > 0 && p < limit) || (motion_.direction < 0 && p > limit)) {
                return;
            }
            arrive(limit, now_ms);
            continue;
        }
        const std::int64_t distance = std::abs(limit - pos0_mf_);
        const std::int64_t t_arrive =
            t0_ms_ + ceil_div(distance * rate_.den, std::int64_t{motion_.speed} * rate_.num);
        if (t_arrive > now_ms) {
            return;
        }
        arrive(limit, t_arrive);
    }
}

void VirtualVcr::keep_played_out(std::int64_t until_ms) {
    if (!motion_.picture || fetch_driven()) {
        return;
    }
    // The frames played before the picture stopped went out before it did: the latest
    // stays there to be taken, as a frame sent on the bus stays in the receiver's buffer,
    // so that a reader running late does not lose the last frames before a stop or the
    // tape's end.
    if (const auto tick = claim_due_tick(until_ms)) {
        const std::int64_t due = tick_time(*tick);
        played_out_ = PlayedOut{position_at(due) / 1000, due, mode_};
    }
}

void VirtualVcr::begin(TransportMode mode, Motion motion, std::int64_t now_ms) {
    laced_at_ms_.reset();
    if (!motion.picture) {
        keep_played_out(now_ms);
    }
    // Picture needs the tape on the drum; winding runs it in the cassette.
    if (motion.picture) {
        played_out_.reset();
        threaded_ = true;
    } else if (motion.direction != 0) {
        threaded_ = false;
    }
    if (mode == TransportMode::stop) {
        stopped_at_ms_ = now_ms;
    }
    pos0_mf_ = position_at(now_ms);
    t0_ms_ = now_ms;
    taken_ = 0;
    mode_ = mode;
    motion_ = motion;
    next_tick_ = 0;
    // Moving against an end the tape already touches goes nowhere.
    if ((motion.direction > 0 && pos0_mf_ >= last_mf() && !seek_target_mf_) ||
        (motion.direction < 0 && pos0_mf_ <= 0 && !seek_target_mf_)) {
        mode_ = TransportMode::stop;
        motion_ = Motion{};
    }
}

void VirtualVcr::arrive(std::int64_t position_mf, std::int64_t t_ms) {
    if (!seek_target_mf_) {
        keep_played_out(t_ms - 1);  // a tick at the arrival itself would be past the end
    }
    motion_ = Motion{};
    pos0_mf_ = position_mf;
    t0_ms_ = t_ms;
    taken_ = 0;
    if (seek_target_mf_) {
        seek_target_mf_.reset();
        if (after_seek_ == TransportMode::play) {
            begin(TransportMode::play, Motion{1, 1, true}, t_ms);
        } else {
            begin(TransportMode::freeze, Motion{0, 0, true}, t_ms);
        }
        return;
    }
    // An end of the tape: the transport stops there.
    begin(TransportMode::stop, Motion{}, t_ms);
}

// ---- Transport ---------------------------------------------------------------------------

HRESULT VirtualVcr::set_mode(long mode) {
    std::lock_guard lock(mutex_);
    const std::int64_t now = clock_.now_ms();
    advance(now);
    if (faults_.device_lost) {
        return device_lost_error;
    }
    if (!is_known_mode(mode)) {
        return E_NOTIMPL;
    }
    const auto m = static_cast<TransportMode>(mode);
    // A play or pause while a seek winds waits for the seek to arrive.
    if (seek_target_mf_ && (m == TransportMode::play || m == TransportMode::freeze)) {
        after_seek_ = m;
        return S_OK;
    }
    seek_target_mf_.reset();
    const int wind = options_.wind_speed;
    const int search = options_.fastest_play_speed;
    switch (m) {
        case TransportMode::play:
            if (mode_ == TransportMode::stop && options_.lace_ms > 0 &&
                position_at(now) < last_mf() &&
                (!threaded_ || now - stopped_at_ms_ >= options_.unthread_after_ms)) {
                begin(m, Motion{}, now);
                laced_at_ms_ = now + options_.lace_ms;
            } else {
                begin(m, Motion{1, 1, true}, now);
            }
            break;
        case TransportMode::stop:
            begin(m, Motion{}, now);
            break;
        case TransportMode::freeze:
            begin(m, Motion{0, 0, true}, now);
            // A still picture is one whole frame.
            pos0_mf_ -= pos0_mf_ % 1000;
            break;
        case TransportMode::fast_forward:
            begin(m, Motion{1, wind, false}, now);
            break;
        case TransportMode::rewind:
            begin(m, Motion{-1, wind, false}, now);
            break;
        case TransportMode::step_forward:
        case TransportMode::step_reverse: {
            begin(m, Motion{0, 0, true}, now);
            const std::int64_t frame =
                pos0_mf_ / 1000 + (m == TransportMode::step_forward ? 1 : -1);
            const std::int64_t last = std::max<std::int64_t>(tape_->frame_count() - 1, 0);
            pos0_mf_ = std::clamp<std::int64_t>(frame, 0, last) * 1000;
            break;
        }
        case TransportMode::fastest_forward:
            begin(m, Motion{1, search, true}, now);
            break;
        case TransportMode::fastest_reverse:
            begin(m, Motion{-1, search, true}, now);
            break;
    }
    changed_.notify_all();
    return S_OK;
}

HRESULT VirtualVcr::get_mode(long& mode) {
    std::lock_guard lock(mutex_);
    advance(clock_.now_ms());
    if (faults_.device_lost) {
        return device_lost_error;
    }
    mode = static_cast<long>(mode_);
    return S_OK;
}

HRESULT VirtualVcr::get_playing(bool& playing) {
    std::lock_guard lock(mutex_);
    advance(clock_.now_ms());
    if (faults_.device_lost) {
        return device_lost_error;
    }
    playing = mode_ == TransportMode::play;
    return S_OK;
}

HRESULT VirtualVcr::seek_track(std::int64_t track) {
    std::lock_guard lock(mutex_);
    const std::int64_t now = clock_.now_ms();
    advance(now);
    if (faults_.device_lost) {
        return device_lost_error;
    }
    if (faults_.seek_fails) {
        return E_FAIL;
    }
    const std::int64_t frame = std::clamp<std::int64_t>(
        tape_->frame_of_track(std::max<std::int64_t>(track, 0)), 0, tape_->frame_count());
    const std::int64_t target = frame * 1000;
    const std::int64_t here = position_at(now);
    after_seek_ = TransportMode::freeze;
    seek_target_mf_ = target;
    if (target == here) {
        begin(TransportMode::stop, Motion{}, now);
        arrive(target, now);
    } else if (target > here) {
        begin(TransportMode::fast_forward, Motion{1, options_.wind_speed, false}, now);
    } else {
        begin(TransportMode::rewind, Motion{-1, options_.wind_speed, false}, now);
    }
    changed_.notify_all();
    return S_OK;
}

HRESULT VirtualVcr::wait_for_seek(std::int64_t max_wait_ms) {
    std::unique_lock lock(mutex_);
    const std::int64_t give_up = clock_.now_ms() + std::max<std::int64_t>(max_wait_ms, 0);
    for (;;) {
        const std::int64_t now = clock_.now_ms();
        advance(now);
        if (faults_.device_lost) {
            return device_lost_error;
        }
        if (!seek_target_mf_) {
            return S_OK;
        }
        if (now >= give_up) {
            return hresult_from_errno(ETIMEDOUT);
        }
        // The arrival falls due at a time the model can tell; a command from another thread
        // (or the device going) wakes the wait early.
        std::int64_t arrival = now + 1;
        if (motion_.speed > 0) {
            const std::int64_t distance = std::abs(*seek_target_mf_ - pos0_mf_);
            arrival = std::max(arrival, t0_ms_ + ceil_div(distance * rate_.den,
                                                          std::int64_t{motion_.speed} * rate_.num));
        }
        clock_.wait_until(changed_, lock, std::min(arrival, give_up));
    }
}

void VirtualVcr::set_wind_speed(int speed) {
    std::lock_guard lock(mutex_);
    options_.wind_speed = std::max(speed, 1);
}

HRESULT VirtualVcr::avc_command(std::span<const std::uint8_t> frame) {
    if (frame.size() != 8) {
        return E_INVALIDARG;
    }
    // CONTROL, tape recorder/player subunit 0, ABSOLUTE TRACK NUMBER, operand 0x20, three
    // bytes of track number and blank flag, operand 0xFF.
    if (frame[0] != 0x00 || frame[1] != 0x20 || frame[2] != 0x52 || frame[3] != 0x20 ||
        frame[7] != 0xFF) {
        return E_NOTIMPL;
    }
    const std::uint32_t shifted =
        frame[4] | (std::uint32_t{frame[5]} << 8) | (std::uint32_t{frame[6]} << 16);
    return seek_track(shifted >> 1);
}

HRESULT VirtualVcr::read_timecode(BcdTimecode& timecode, std::uint32_t& user_bits) {
    std::lock_guard lock(mutex_);
    const std::int64_t now = clock_.now_ms();
    advance(now);
    if (faults_.device_lost) {
        return device_lost_error;
    }
    const std::int64_t frame = position_at(now) / 1000;
    if (faults_.timecode_unreadable || frame >= tape_->frame_count()) {
        return E_FAIL;
    }
    const TapeFrame& entry = tape_->frame(frame);
    if (!entry.timecode) {
        return E_FAIL;
    }
    timecode = *entry.timecode;
    user_bits = entry.user_bits;
    return S_OK;
}

HRESULT VirtualVcr::read_track(std::int64_t& track) {
    std::lock_guard lock(mutex_);
    const std::int64_t now = clock_.now_ms();
    advance(now);
    if (faults_.device_lost) {
        return device_lost_error;
    }
    const std::int64_t frame = position_at(now) / 1000;
    if (frame >= tape_->frame_count()) {
        return E_FAIL;
    }
    track = tape_->track_of_frame(frame);
    return S_OK;
}

VcrState VirtualVcr::state() {
    std::lock_guard lock(mutex_);
    const std::int64_t now = clock_.now_ms();
    advance(now);
    return VcrState{mode_, position_at(now), seek_target_mf_.has_value(), motion_.picture};
}

// ---- Frames -------------------------------------------------------------------------------

std::int64_t VirtualVcr::tick_time(std::int64_t k) const {
    return t0_ms_ + ceil_div(k * 1000 * rate_.den, rate_.num);
}

std::optional<std::int64_t> VirtualVcr::claim_due_tick(std::int64_t until_ms) {
    // Ticks 0..last have fallen due; any before the last that were not taken are lost.
    const std::int64_t last = (until_ms - t0_ms_) * rate_.num / (1000 * rate_.den);
    if (next_tick_ > last) {
        return std::nullopt;
    }
    if (streaming_) {
        counters_.dropped += last - next_tick_;
        dropped_since_taken_ += last - next_tick_;
        due_seen_ += last - next_tick_;
    }
    next_tick_ = last + 1;
    return last;
}

VirtualVcr::Fetch VirtualVcr::take_due(FetchedFrame& info, std::int64_t* next_due_ms) {
    const std::int64_t now = clock_.now_ms();
    advance(now);
    if (faults_.device_lost) {
        return Fetch::device_lost;
    }
    std::int64_t frame = 0;
    std::int64_t due = now;
    TransportMode mode = mode_;
    if (!motion_.picture) {
        if (!played_out_) {
            if (laced_at_ms_ && next_due_ms != nullptr) {
                *next_due_ms = *laced_at_ms_;  // the first frame comes as the tape starts
            }
            return Fetch::no_picture;
        }
        frame = played_out_->frame;
        due = played_out_->due_ms;
        mode = played_out_->mode;
        played_out_.reset();
    } else if (fetch_driven()) {
        frame = position_at(now) / 1000;
        if (frame >= tape_->frame_count()) {
            return Fetch::no_picture;
        }
        ++taken_;
        // The move past the frame just taken may reach an end of the tape.
        advance(now);
    } else {
        const auto last = claim_due_tick(now);
        if (!last) {
            if (next_due_ms != nullptr) {
                *next_due_ms = tick_time(next_tick_);
            }
            return Fetch::not_due;
        }
        due = tick_time(*last);
        frame = position_at(due) / 1000;
        if (frame >= tape_->frame_count()) {
            return Fetch::no_picture;
        }
        if (next_due_ms != nullptr) {
            *next_due_ms = tick_time(next_tick_);
        }
    }
    if (faults_.lost_at_frame >= 0 && frame >= faults_.lost_at_frame) {
        // Gone, as set_faults makes it: the transport stops where the tape is.
        faults_.lost_at_frame = -1;
        faults_.device_lost = true;
        seek_target_mf_.reset();
        begin(TransportMode::stop, Motion{}, now);
        changed_.notify_all();
        return Fetch::device_lost;
    }
    ++due_seen_;
    const bool dropped_by_fault = drop_next_ > 0 || (faults_.drop_every_n_frames > 0 &&
                                                     due_seen_ % faults_.drop_every_n_frames == 0);
    if (dropped_by_fault) {
        drop_next_ = std::max(drop_next_ - 1, 0);
        ++counters_.dropped;
        ++dropped_since_taken_;
        return Fetch::not_due;
    }
    ++counters_.delivered;
    info = FetchedFrame{frame, due, mode, dropped_since_taken_};
    dropped_since_taken_ = 0;
    return Fetch::frame;
}

void VirtualVcr::lost_on_reading(const FetchedFrame& info) {
    std::lock_guard lock(mutex_);
    --counters_.delivered;
    ++counters_.dropped;
    dropped_since_taken_ += 1 + info.dropped_before;
}

FetchStatus VirtualVcr::copy_frame(const FetchedFrame& info, std::vector<std::uint8_t>& out) {
    out.resize(tape_->frame_bytes());
    if (!tape_->read_frame(info.tape_frame, out)) {
        lost_on_reading(info);
        return FetchStatus::not_due;
    }
    return FetchStatus::frame;
}

FetchStatus VirtualVcr::fetch_frame(std::vector<std::uint8_t>& out, FetchedFrame& info,
                                    std::int64_t* next_due_ms) {
    Fetch result;
    {
        std::lock_guard lock(mutex_);
        result = take_due(info, next_due_ms);
    }
    switch (result) {
        case Fetch::frame:
            return copy_frame(info, out);
        case Fetch::not_due:
            return FetchStatus::not_due;
        case Fetch::no_picture:
            return FetchStatus::no_picture;
        case Fetch::device_lost:
            return FetchStatus::device_lost;
    }
    return FetchStatus::no_picture;
}

template <class Deliver>
FetchStatus VirtualVcr::wait_and_deliver(FetchedFrame& info, std::int64_t max_wait_ms,
                                         Deliver deliver) {
    std::unique_lock lock(mutex_);
    const std::uint64_t generation = wait_generation_;
    const std::int64_t give_up = clock_.now_ms() + max_wait_ms;
    for (;;) {
        std::int64_t next_due = give_up;
        const Fetch result = take_due(info, &next_due);
        if (result == Fetch::frame) {
            lock.unlock();
            if (deliver(info)) {
                return FetchStatus::frame;
            }
            lock.lock();
            continue;
        }
        if (result == Fetch::device_lost) {
            return FetchStatus::device_lost;
        }
        if (wait_generation_ != generation) {
            return FetchStatus::cancelled;
        }
        if (clock_.now_ms() >= give_up) {
            return result == Fetch::not_due ? FetchStatus::not_due : FetchStatus::no_picture;
        }
        clock_.wait_until(changed_, lock, std::min(next_due, give_up));
        if (wait_generation_ != generation) {
            return FetchStatus::cancelled;
        }
    }
}

FetchStatus VirtualVcr::wait_frame(std::vector<std::uint8_t>& out, FetchedFrame& info,
                                   std::int64_t max_wait_ms) {
    return wait_and_deliver(info, max_wait_ms, [this, &out](const FetchedFrame& taken) {
        return copy_frame(taken, out) == FetchStatus::frame;
    });
}

FetchStatus VirtualVcr::wait_frame_view(std::span<const std::uint8_t>& out, FetchedFrame& info,
                                        std::int64_t max_wait_ms) {
    return wait_and_deliver(info, max_wait_ms, [this, &out](const FetchedFrame& taken) {
        out = tape_->frame_view(taken.tape_frame);
        if (out.empty()) {
            lost_on_reading(taken);
            return false;
        }
        return true;
    });
}

void VirtualVcr::start_stream() {
    std::lock_guard lock(mutex_);
    const std::int64_t now = clock_.now_ms();
    advance(now);
    streaming_ = true;
    // A capture filter counts from the moment its graph runs, so each stream counts anew:
    // a recording's frame count must not include the preview's that ran before it.
    counters_ = FrameCounters{};
    dropped_since_taken_ = 0;
    // Frames that fell due before the stream began were never missed by it.
    played_out_.reset();
    if (motion_.picture && !fetch_driven()) {
        next_tick_ = std::max(next_tick_, (now - t0_ms_) * rate_.num / (1000 * rate_.den));
    }
}

void VirtualVcr::stop_stream() {
    std::lock_guard lock(mutex_);
    streaming_ = false;
}

void VirtualVcr::cancel_waits() {
    std::lock_guard lock(mutex_);
    ++wait_generation_;
    changed_.notify_all();
}

FrameCounters VirtualVcr::counters() {
    std::lock_guard lock(mutex_);
    return counters_;
}

void VirtualVcr::reset_counters() {
    std::lock_guard lock(mutex_);
    counters_ = FrameCounters{};
}

// ---- Faults ---------------------------------------------------------------------------------

void VirtualVcr::set_faults(const VcrFaults& faults) {
    std::lock_guard lock(mutex_);
    const std::int64_t now = clock_.now_ms();
    advance(now);
    if (faults.device_lost != faults_.device_lost) {
        // Gone or back, the transport is stopped where the tape is.
        seek_target_mf_.reset();
        begin(TransportMode::stop, Motion{}, now);
    }
    faults_ = faults;
    changed_.notify_all();
}

VcrFaults VirtualVcr::faults() {
    std::lock_guard lock(mutex_);
    return faults_;
}

void VirtualVcr::drop_next_frames(int count) {
    std::lock_guard lock(mutex_);
    drop_next_ += std::max(count, 0);
}

}  // namespace kc::deck
