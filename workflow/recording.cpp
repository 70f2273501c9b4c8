// Single recordings started and ended by Record, and the watch on the output
// directory's free disk space.
#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "resources/resource_ids.h"

void CapApp::start_recording() {
    std::string name;
    // Taken now, before a frame is written: the next start sees this file and counts on.
    next_file_name(name);
    graph->set_output_file(name);
    if (!source_is_dv) {
        graph->build_wdm_capture(video_codec, audio_codec);
    } else if (dv_type2 != 0) {
        graph->build_dv_type2_capture();
    } else {
        graph->build_dv_type1_capture();
    }
    find_dropped_frames();
}

bool CapApp::toggle_recording() {
    if (!platform.system.path_exists(output_directory)) {
        show_message(MSG_INVALID_OUTPUT_DIRECTORY);
        return false;
    }
    win->stop();
    if (dv_vcr()) {
        dv->stop();
    }
    disconnect();
    connect();
    if (recording) {
        build_preview();
        recording = false;
    } else {
        start_recording();
        recording = true;
    }
    win->attach(platform.dialogs.get_dlg_item(main_window, IDC_PREVIEW), graph->graph.get());
    // Both ways: ending a recording leaves a VCR tape playing under the preview.
    if (dv_vcr()) {
        dv->play();
    }
    win->run();
    return true;
}

void CapApp::update_disk_space() {
    std::uint64_t available = 0;
    std::uint64_t total = 0;
    std::uint64_t total_free = 0;
    // A disk that cannot be asked, or one that reports no size, leaves the last reading.
    if (!platform.system.disk_free_space(output_directory, available, total, total_free) ||
        total == 0) {
        return;
    }
    free_fraction = static_cast<double>(available) / static_cast<double>(total);
    free_bytes = static_cast<double>(available);
}

void CapApp::low_disk_check(bool& disk_warned) {
    // Not below (also when either value is not a number): re-arm the warning.
    if (!(free_fraction < disk_warning)) {
        disk_warned = false;
        return;
    }
    if (disk_warned) {
        return;  // one warning per fall below the threshold
    }
    disk_warned = true;
    if (recording) {
        // With the folder gone there is nothing to protect; the recording goes on.
        if (platform.system.path_exists(output_directory)) {
            win->stop();
            if (dv_vcr()) {
                dv->stop();
            }
            disconnect();
            connect();
            build_preview();
            recording = false;
        }
    } else if (inbatch) {
        // The running capture ends itself at its next step.
        callback->aborted = true;
    }
    show_message(MSG_LOW_DISK_SPACE);
}
