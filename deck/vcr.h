// VirtualVcr: a DV VCR simulated over a tape image.
//
// The tape position is a frame index, kept in thousandths of a frame so that winding can
// pass between frames. Position p (0 <= p <= frame_count) shows frame floor(p); p equal to
// frame_count is just past the last recorded frame, off the tape: nothing can be read
// there. Timecode and user bits come from the tape's index; the absolute track number of
// a position is its frame times the tracks per frame (10 on 525-60, 12 on 625-50).
//
// Transport, with the mode values the device reports (the DV device-control table):
//   play 4296           forward at the frame rate, with picture (from stop, after lace_ms)
//   stop 4297           still, no picture
//   freeze 4298         pause: still, the current frame's picture repeated
//   fast forward 4300   wind forward at wind_speed times play speed, no picture
//   rewind 4301         wind back likewise
//   step fwd 4304       one frame forward, then hold that frame still; reported until the
//   step rev 4905       next command (one frame back likewise)
//   fastest fwd 5029    picture search at fastest_play_speed times play speed
//   fastest rev 5031    likewise backwards
// Like a real deck, the transport stops at the ends of the tape: going forward it stops on
// the last recorded frame, which stays readable (its timecode and track), so that whoever
// polls the deck sees a stopped tape there rather than a position off the tape; going back
// it stops on the first frame.
//
// A seek by absolute track number winds (reported as 4300 or 4301) at wind_speed to the
// track's frame and then pauses there. seek_track starts it; wait_for_seek blocks until it
// has arrived, as the final response of the AV/C command does on a real deck. A play or
// pause that arrives while it winds is kept and done on arrival, as a deck with a locate
// function does, so that "seek, then play" plays from the sought frame. Other commands end
// the seek where the tape is.
//
// Frames. While a mode with picture runs, one frame falls due every frame period, measured
// from the moment the mode began. A streaming thread takes them with fetch_frame or
// wait_frame; between start_stream and stop_stream, a frame that falls due while the
// previous one has not been taken is lost, as on a FireWire bus, and counted as dropped
// (outside a stream nobody is there to miss it). In the unpaced mode (benchmarks, fast
// tests) frames do not wait for the clock: each fetch gives the next frame at once and
// moves a playing tape on by one frame (picture search: by its speed).
//
// Faults a test can switch on: the device disappears (every call fails with
// device_lost_error and fetches report it), now or as the playing tape reaches a frame,
// the timecode cannot be read, seeks fail, and frames are dropped (every n-th due frame,
// or the next n).
//
// Thread safety: every operation may be called from any thread; one lock guards the
// state. Frames are copied from the tape outside the lock.
#pragma once

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "deck/clock.h"
#include "deck/tape_image.h"
#include "platform/result.h"

namespace kc::deck {

enum class TransportMode : long {
    play = 4296,
    stop = 4297,
    freeze = 4298,
    fast_forward = 4300,
    rewind = 4301,
    step_forward = 4304,
    step_reverse = 4905,
    fastest_forward = 5029,
    fastest_reverse = 5031,
};

enum class Pacing { real_time, unpaced };

struct VcrOptions {
    // Multiples of play speed. A MiniDV deck winds a 60-minute tape in about two minutes,
    // and searches for a track at the same speed.
    int wind_speed = 30;
    int fastest_play_speed = 10;
    Pacing pacing = Pacing::real_time;
    // Play from stop first threads the tape around the head drum, as a deck does: the mode
    // is play at once, the tape moves and the picture comes this much later. 0: at once.
    // A deck keeps the tape threaded when it stops after playing, until it winds or has
    // stood stopped for `unthread_after_ms` (tape protection); a play then starts at once.
    int lace_ms = 0;
    int unthread_after_ms = 3 * 60 * 1000;
};

struct VcrFaults {
    bool device_lost = false;
    bool timecode_unreadable = false;
    bool seek_fails = false;
    // Every n-th frame that falls due is dropped; 0 drops none.
    int drop_every_n_frames = 0;
    // The device disappears when this tape frame falls due (as a cable pulled mid-tape);
    // -1 never.
    std::int64_t lost_at_frame = -1;
};

struct FrameCounters {
    std::int64_t delivered = 0;
    std::int64_t dropped = 0;
};

// What the transport is doing, for status displays and tests.
struct VcrState {
    TransportMode mode = TransportMode::stop;
    // Thousandths of a frame; frame_count * 1000 is off the tape's end.
    std::int64_t position_mf = 0;
    bool seeking = false;
    bool picture = false;
    std::int64_t frame() const { return position_mf / 1000; }
};

enum class FetchStatus {
    frame,        // a frame was taken
    not_due,      // the next frame is not due yet (picture running)
    no_picture,   // the transport gives no picture (stopped, winding, off the tape)
    device_lost,  // the device has gone
    cancelled,    // wait_frame only: cancel_waits was called
};

struct FetchedFrame {
    std::int64_t tape_frame = 0;
    // Clock time at which the frame fell due: its presentation time.
    std::int64_t due_ms = 0;
    TransportMode mode = TransportMode::play;
    // Frames of the stream counted as dropped since the frame taken before this one.
    std::int64_t dropped_before = 0;
};

// The result every call gives while the device is lost: "no such device".
inline constexpr HRESULT device_lost_error = hresult_from_errno(ENODEV);

class VirtualVcr {
  public:
    // The deck starts stopped at the beginning of the tape. `clock` must outlive it.
    VirtualVcr(std::shared_ptr<const TapeImage> tape, const Clock& clock, VcrOptions options = {});

    const TapeImage& tape() const { return *tape_; }
    // The image itself, for a consumer that keeps frames of it beyond the deck's life.
    std::shared_ptr<const TapeImage> tape_image() const { return tape_; }
    DvSystem system() const { return tape_->system(); }
    Pacing pacing() const { return options_.pacing; }
    // The time the deck runs on: frames' due times are on it.
    const Clock& clock() const { return clock_; }
    // Winding and searching speed from the next command on (tests make seeks take longer
    // or shorter); at least 1.
    void set_wind_speed(int speed);

    // ---- Transport -------------------------------------------------------------------
    // Puts the transport into one of the modes above. E_NOTIMPL for any other value (no
    // recording: this deck only plays); device_lost_error while the device is lost.
    HRESULT set_mode(long mode);
    // The mode value the device reports now.
    HRESULT get_mode(long& mode);
    // True while the tape plays at normal speed (not while a seek winds towards a play).
    HRESULT get_playing(bool& playing);
    // Starts winding to the frame of absolute track `track` (negative: the start; past the
    // end: off the tape's end), to pause there. E_FAIL when the seek fault is on.
    HRESULT seek_track(std::int64_t track);
    // Blocks until the seek under way has arrived: S_OK then, or at once when none is under
    // way; device_lost_error when the device goes meanwhile; ETIMEDOUT (as an HRESULT) when
    // `max_wait_ms` of clock time pass first.
    HRESULT wait_for_seek(std::int64_t max_wait_ms);
    // One AV/C command frame as the device-control layer sends it. Only the 8-byte
    // ABSOLUTE TRACK NUMBER control command is understood (00 20 52 20 t0 t1 t2 FF, where
    // t0..t2 hold the track number shifted left by one, low byte first): it seeks. Other
    // frames give E_NOTIMPL, a frame of the wrong length E_INVALIDARG.
    HRESULT avc_command(std::span<const std::uint8_t> frame);

    // Timecode (packed BCD) and user bits at the current position. E_FAIL when there is no
    // timecode there (off the tape, unrecorded) or the timecode fault is on.
    HRESULT read_timecode(BcdTimecode& timecode, std::uint32_t& user_bits);
    // Absolute track number at the current position (the first track of its frame);
    // E_FAIL off the tape.
    HRESULT read_track(std::int64_t& track);

    VcrState state();

    // ---- Frames ------------------------------------------------------------------------
    // Takes the frame due now, if any, into `out` (resized to the frame size). With
    // not_due, `next_due_ms` (if given) receives when the next frame falls due.
    FetchStatus fetch_frame(std::vector<std::uint8_t>& out, FetchedFrame& info,
                            std::int64_t* next_due_ms = nullptr);
    // Like fetch_frame, but blocks until a frame is taken, the device is lost,
    // cancel_waits is called, or `max_wait_ms` of clock time pass (then not_due or
    // no_picture).
    FetchStatus wait_frame(std::vector<std::uint8_t>& out, FetchedFrame& info,
                           std::int64_t max_wait_ms);
    // Like wait_frame, but gives the frame where it lies in the image's memory, without a
    // copy (valid while the image lives). For images in memory (TapeImage::in_memory).
    FetchStatus wait_frame_view(std::span<const std::uint8_t>& out, FetchedFrame& info,
                                std::int64_t max_wait_ms);
    // Makes every wait_frame blocked now return cancelled (a streaming thread being shut).
    void cancel_waits();
    // A consumer begins or ends taking every frame: frames it misses in between count as
    // dropped. Frames already due when the stream begins are not counted, and the
    // counters start again from zero.
    void start_stream();
    void stop_stream();

    FrameCounters counters();
    void reset_counters();

    // ---- Faults ------------------------------------------------------------------------
    // A device that comes back after being lost is stopped where its tape was.
    void set_faults(const VcrFaults& faults);
    VcrFaults faults();
    // Drops the next `count` frames that fall due.
    void drop_next_frames(int count);

  private:
    enum class Fetch { frame, not_due, no_picture, device_lost };
    struct Motion {
        int direction = 0;  // -1, 0, +1
        int speed = 0;      // multiples of play speed
        bool picture = false;
    };

    std::int64_t end_mf() const { return tape_->frame_count() * 1000; }
    // Where forward motion stops: inside the last frame, so that it stays the one shown.
    std::int64_t last_mf() const { return std::max<std::int64_t>(end_mf() - 1, 0); }
    bool fetch_driven() const;
    std::int64_t position_at(std::int64_t t_ms) const;
    void advance(std::int64_t now_ms);
    void begin(TransportMode mode, Motion motion, std::int64_t now_ms);
    void arrive(std::int64_t position_mf, std::int64_t t_ms);
    std::int64_t tick_time(std::int64_t k) const;
    // Paced: the latest tick due by `until_ms` that was not yet taken, now taken; those
    // before it are lost. None when no new tick is due.
    std::optional<std::int64_t> claim_due_tick(std::int64_t until_ms);
    // As picture motion ends: keeps the frame due last by `until_ms`, if not yet taken.
    void keep_played_out(std::int64_t until_ms);
    Fetch take_due(FetchedFrame& info, std::int64_t* next_due_ms);
    FetchStatus copy_frame(const FetchedFrame& info, std::vector<std::uint8_t>& out);
    // A frame taken that cannot be read (damaged, or the file failed): it never reaches
    // the consumer and counts as dropped before the next one.
    void lost_on_reading(const FetchedFrame& info);
    // The wait of wait_frame; `deliver` hands the taken frame over (outside the lock) and
    // says whether it could.
    template <class Deliver>
    FetchStatus wait_and_deliver(FetchedFrame& info, std::int64_t max_wait_ms, Deliver deliver);

    std::shared_ptr<const TapeImage> tape_;
    const Clock& clock_;
    VcrOptions options_;
    const FrameRate rate_;

    std::mutex mutex_;
    std::condition_variable changed_;

    TransportMode mode_ = TransportMode::stop;
    Motion motion_;
    // The current motion began at t0_ms_ from pos0_mf_; unpaced picture motion counts the
    // frames taken instead of time.
    std::int64_t t0_ms_ = 0;
    std::int64_t pos0_mf_ = 0;
    std::int64_t taken_ = 0;
    std::optional<std::int64_t> seek_target_mf_;
    TransportMode after_seek_ = TransportMode::freeze;
    // While play threads the tape: when it starts to move.
    std::optional<std::int64_t> laced_at_ms_;
    // Whether the tape is around the drum, and since when the transport stands stopped.
    bool threaded_ = false;
    std::int64_t stopped_at_ms_ = 0;
    // Frame k of the current picture falls due at tick_time(k); next_tick_ is the first
    // not yet taken or lost.
    std::int64_t next_tick_ = 0;
    // The frame that fell due last before the picture stopped (a stop, the tape's end),
    // not yet taken.
    struct PlayedOut {
        std::int64_t frame = 0;
        std::int64_t due_ms = 0;
        TransportMode mode = TransportMode::play;
    };
    std::optional<PlayedOut> played_out_;

    VcrFaults faults_;
    int drop_next_ = 0;
    std::int64_t due_seen_ = 0;
    bool streaming_ = false;
    FrameCounters counters_;
    std::int64_t dropped_since_taken_ = 0;
    std::uint64_t wait_generation_ = 0;
};

}  // namespace kc::deck
