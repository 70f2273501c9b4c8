// The steps that single recordings, batch scenes and detected scenes share.
#include "app/capapp.h"

void CapApp::stop_capture() {
    // A deck already let go of (a failed reconnect) has no transport left to stop.
    if (dv_vcr() && dv->attached()) {
        dv->stop();
    } else {
        win->stop();
    }
}

void CapApp::split_at_break() {
    ComPtr<media::SceneSplit> splitter;
    // Without one (another platform's capture path) the file ends where the tick found the
    // break, as it always has.
    if (dropped->valid() && succeeded(query_interface(dropped->get(), splitter))) {
        (void)splitter->split_at_break();
    }
}

bool CapApp::stream_holds_break() {
    ComPtr<media::SceneSplit> splitter;
    long held = 0;
    return dropped->valid() && succeeded(query_interface(dropped->get(), splitter)) &&
           succeeded(splitter->get_break_held(&held)) && held == media::OATRUE;
}

void CapApp::delete_capture_file(const std::string& path) {
    // Neither result is examined: a file that cannot be deleted is not reported.
    (void)platform.system.delete_file(path);
    (void)platform.system.delete_file(media::capture_log_path(path));
}

void CapApp::run_dv_capture(const std::string& path, WindowHandle pane) {
    graph->set_output_file(path);
    if (dv_type2 != 0) {
        graph->build_dv_type2_capture();
    } else {
        graph->build_dv_type1_capture();
    }
    find_dropped_frames();
    win->attach(pane, graph->graph.get());
    if (dv_vcr()) {
        dv->play();
    }
    win->run();
}

std::string CapApp::output_path(const std::string& file_name) {
    // No check whether the folder already ends in a separator: a doubled one is
    // accepted by the file system.
    return output_directory + platform.system.folder_separator() + file_name;
}
