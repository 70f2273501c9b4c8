#include "ui/capprogress.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "resources/resource_ids.h"
#include "ui/capui.h"

namespace {
constexpr unsigned step_timer_id = 1;
constexpr unsigned step_period_ms = 250;
}  // namespace

// --- Shared ---------------------------------------------------------------------------------

void CapProgressDialog::on_command(WParam wparam, LParam) {
    // Abort, Stop and Esc all send IDCANCEL. The capture sees the flag at its next step
    // and the tick after that ends the dialog.
    if (low_word(wparam) == IDCANCEL) {
        aborted = true;
    }
}

void CapProgressDialog::start_timer() {
    timer_id = host().set_timer(hwnd, step_timer_id, step_period_ms);
}

void CapProgressDialog::stop_timer() {
    if (timer_id != 0) {
        host().kill_timer(hwnd, timer_id);
        timer_id = 0;
    }
}

bool CapProgressDialog::read_position(Timecode& position) {
    position.clear();
    if (dv_attached() && app->dv->get_timecode(position)) {
        return true;
    }
    position.clear();
    return aborted;
}

void CapProgressDialog::finish() {
    stop_timer();
    show_message(MSG_BATCH_COMPLETE);
    // The capture has disconnected the device; the preview comes back into the main
    // window, where the user's next command runs it.
    try {
        app->connect();
        app->build_preview();
        app->win->attach(main_preview_pane(), app->graph->graph.get());
    } catch (ComError* e) {
        show_error(e);
        // The main window rebuilds the preview before it runs it.
        abandon_graph();
    }
    host().end_dialog(hwnd, 1);
}

void CapProgressDialog::end_after_error(ComError* e) {
    stop_timer();
    show_error(e);
    // Bring the tape and graph to rest. These may fail for the same reason as the step
    // did (a device that went away); the error that matters has been shown.
    try {
        if (app->win->running()) {
            app->win->stop();
        }
    } catch (ComError* again) {
        delete again;
    }
    try {
        if (dv_vcr_ready()) {
            app->dv->stop();
        }
    } catch (ComError* again) {
        delete again;
    }
    app->inbatch = false;
    app->callback = nullptr;
    restore_preview(main_preview_pane(), false);
    host().end_dialog(hwnd, 0);
}

void CapProgressDialog::refuse(ComError* e) {
    show_error(e);
    host().end_dialog(hwnd, 0);
}

// --- Batch --------------------------------------------------------------------------------------

void CapBatchDialog::on_init_dialog() {
    WindowHandle bar = item(IDC_BATCH_PROGRESS);
    host().progress_set_range(bar, 0, 100);
    host().progress_set_pos(bar, 0);
    preview_window = item(IDC_PREVIEW);

    // No capture may start from a scene that does not exist, nor seek a tape without a
    // device.
    if (app->jobs->empty()) {
        host().end_dialog(hwnd, 0);
        return;
    }
    if (!dv_attached()) {
        refuse(no_device_error());
        return;
    }
    try {
        app->start_batch(this);
    } catch (ComError* e) {
        end_after_error(e);
        return;
    }
    if (!app->inbatch) {
        host().end_dialog(hwnd, 0);  // the batch declined to start
        return;
    }
    start_timer();
}

void CapBatchDialog::on_timer(WParam) {
    Timecode position;
    if (!read_position(position)) {
        return;
    }
    try {
        if (app->batch_step(static_cast<std::uint32_t>(position.track))) {
            return;
        }
    } catch (ComError* e) {
        end_after_error(e);
        return;
    }
    finish();
}

void CapBatchDialog::progress(float fraction) {
    // A position before the capture start, or a batch of empty scenes, gives a fraction
    // outside 0..1 or none at all; the bar shows what it can.
    const double percent = static_cast<double>(fraction) * 100.0;
    const int position =
        std::isfinite(percent) ? static_cast<int>(std::clamp(percent, 0.0, 100.0)) : 0;
    host().progress_set_pos(item(IDC_BATCH_PROGRESS), position);
}

// --- Scene detection ------------------------------------------------------------------------

void CapSceneCaptureDialog::on_init_dialog() {
    preview_window = item(IDC_PREVIEW);
    // Scene detection reads the tape's timecode and builds DV graphs.
    if (!(app->source_is_dv && dv_attached())) {
        refuse(no_device_error());
        return;
    }
    std::string first_file;
    try {
        app->start_scene_capture(this, first_file);
    } catch (ComError* e) {
        end_after_error(e);
        return;
    }
    if (!app->inbatch) {
        host().end_dialog(hwnd, 0);  // the capture declined to start
        return;
    }
    host().set_dlg_item_text(hwnd, IDC_SCENE_FILE, first_file);
    start_timer();
}

void CapSceneCaptureDialog::on_timer(WParam) {
    Timecode position;
    if (!read_position(position)) {
        return;
    }
    std::string new_file;
    bool going_on = false;
    try {
        going_on = app->scene_step(position, new_file);
    } catch (ComError* e) {
        end_after_error(e);
        return;
    }
    if (!going_on) {
        finish();
        return;
    }
    if (!new_file.empty()) {
        host().set_dlg_item_text(hwnd, IDC_SCENE_FILE, new_file);
    }
    host().set_dlg_item_text(hwnd, IDC_SCENE_TIMECODE, position.to_string());
}
