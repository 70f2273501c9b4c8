// Scene-detection capture: the playing tape is recorded into a series of files, a new
// one at every jump in the recorded timecode or at a timecode carrying the user flag.
#include "app/capapp.h"
#include "app/errors.h"

namespace {
// The largest forward step between two ticks that still counts as the same scene:
// about two seconds of tape, far more than the 6 to 8 frames a 250 ms tick sees.
constexpr std::int32_t max_scene_step_frames = 60;

// A file with fewer captured frames than this is not worth keeping.
constexpr long min_kept_frames = 2;
}  // namespace

void CapApp::start_scene_capture(CapBatchCallback* cb, std::string& first_file) {
    CAP_ASSERT(!inbatch);
    // Timecodes and DV graphs need a DV device; refuse before anything changes.
    if (!source_is_dv || !dv->attached()) {
        throw new ComError(S_OK, ERR_DEVICE_IF);
    }
    callback = cb;
    inbatch = true;
    scene_count = 0;
    current_file.clear();
    std::string numbered;
    next_file_name(numbered);
    scene_base = numbered.substr(0, numbered.rfind('.'));
    last_timecode.clear();
    (void)dv->get_timecode(last_timecode);
    next_scene_file(first_file);
}

namespace {
// Whether the file being written holds fewer than two frames. Without counters a
// file is never taken for short; a failing count reads as 0.
bool current_file_short(const std::string& current_file, ComPtr<media::DroppedFrames>& dropped) {
    if (current_file.empty() || !dropped.valid()) {
        return false;
    }
    long count = 0;
    (void)dropped->get_num_not_dropped(&count);
    return count >= 0 && count < min_kept_frames;
}
}  // namespace

void CapApp::next_scene_file(std::string& out) {
    const bool previous_short = current_file_short(current_file, *dropped);
    // Disconnecting closes the previous file, so it can be deleted afterwards.
    disconnect();
    if (previous_short) {
        // The next file takes the deleted one's name.
        delete_capture_file(current_file);
    } else {
        ++scene_count;
    }
    connect();
    out = current_file = scene_base + " " + std::to_string(scene_count) + ".avi";
    run_dv_capture(current_file, callback->preview_window);
}

bool CapApp::scene_step(const Timecode& tc, std::string& new_file) {
    CAP_ASSERT(inbatch);
    // Without an attached deck (a failed reconnect) nothing can play: the capture ends.
    if (!callback->aborted && dv->attached()) {
        long playing = 0;
        (void)dv->transport()->get_status(media::ED_MODE_PLAY, &playing);
        if (playing == media::OATRUE) {
            // The stream, which sees every frame, may show a break between two looks.
            if (!tc.user_flag && !stream_holds_break()) {
                const long format = dv->time_format();
                const std::int32_t d = static_cast<std::int32_t>(
                    static_cast<std::uint32_t>(tc.to_frames(format)) -
                    static_cast<std::uint32_t>(last_timecode.to_frames(format)));
                if (d >= 0 && d <= max_scene_step_frames) {
                    last_timecode = tc;
                    return true;
                }
            }
            // A scene break: backwards, too far forward, or flagged, here or in the stream.
            split_at_break();
            stop_capture();
            next_scene_file(new_file);
            last_timecode = tc;
            return true;
        }
    }
    // Aborted, or the tape no longer plays: the capture ends.
    stop_capture();
    const bool last_short = current_file_short(current_file, *dropped);
    disconnect();
    // Only now has the graph let go of the file, so the deletion can succeed.
    if (last_short) {
        delete_capture_file(current_file);
    }
    inbatch = false;
    return false;
}
