// Batch capture of the scene list: each scene is wound to its capture start, played
// and recorded into its own file until the tape passes its out point.
#include <cmath>

#include "app/capapp.h"
#include "app/errors.h"

namespace {
// Tracks of one scene, as a signed 32-bit difference (an out point before the capture
// start gives a negative length).
std::int32_t scene_tracks(const CapJob* job) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(job->out_point.track) -
                                     static_cast<std::uint32_t>(job->capture_start.track));
}

// The track number the device gives when it could not read one.
constexpr std::uint32_t unreadable_track = 0xFFFFFFFFu;
}  // namespace

void CapApp::start_batch(CapBatchCallback* cb) {
    CAP_ASSERT(!inbatch);
    // Nothing to capture: no batch starts, and inbatch stays false for the caller.
    if (jobs->empty()) {
        return;
    }
    // Seeking and DV graphs need a DV device; refuse before anything changes.
    if (!source_is_dv || !dv->attached()) {
        throw new ComError(S_OK, ERR_DEVICE_IF);
    }
    callback = cb;
    inbatch = true;
    batch_done = 0;
    batch_total = 0;
    current_job = jobs->begin();
    for (const CapJob* job : *jobs) {
        batch_total += static_cast<float>(scene_tracks(job));
    }
    start_job(*current_job);
}

void CapApp::start_job(CapJob* job) {
    disconnect();
    connect();
    dv->seek(job->capture_start.track);
    run_dv_capture(output_path(job->name + ".avi"), callback->preview_window);
}

bool CapApp::batch_step(std::uint32_t track) {
    CAP_ASSERT(inbatch);
    if (callback->aborted) {
        stop_batch();
        return false;
    }
    // A tick without a track says nothing about where the tape is: it must not end a
    // scene as if the tape had passed every out point.
    if (track == unreadable_track) {
        return true;
    }
    if (track > static_cast<std::uint32_t>((*current_job)->out_point.track)) {
        stop_capture();
        batch_done += static_cast<float>(scene_tracks(*current_job));
        ++current_job;
        if (current_job == jobs->end()) {
            stop_batch();
            return false;
        }
        start_job(*current_job);
    }
    // Signed: while the tape still winds towards a capture start the fraction dips
    // below this scene's share instead of leaping far above 1. A batch of empty scenes
    // has no total; its progress stays at 0 rather than becoming infinite.
    const CapJob* job = *current_job;
    const double into_scene = static_cast<double>(
        static_cast<std::int32_t>(track - static_cast<std::uint32_t>(job->capture_start.track)));
    double fraction = 0.0;
    if (batch_total != 0) {
        fraction =
            (into_scene + static_cast<double>(batch_done)) / static_cast<double>(batch_total);
    }
    if (!std::isfinite(fraction)) {
        fraction = 0.0;
    }
    callback->progress(static_cast<float>(fraction));
    return true;
}

void CapApp::stop_batch() {
    stop_capture();
    disconnect();
    inbatch = false;
}
