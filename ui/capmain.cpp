#include "ui/capmain.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "resources/resource_ids.h"
#include "resources/skin_tables.h"
#include "ui/capedit.h"
#include "ui/capprogress.h"
#include "ui/capprops.h"
#include "ui/capseek.h"
#include "ui/capui.h"

namespace {
constexpr unsigned transport_timer_id = 1;
constexpr unsigned disk_timer_id = 2;
constexpr unsigned dropped_timer_id = 3;
constexpr unsigned transport_period_ms = 250;
constexpr unsigned status_period_ms = 1000;
// The indicator changes on the first tick that comes more than this after its last
// change, so how fast it blinks follows from which timers run.
constexpr std::uint32_t indicator_period_ms = 250;

// Display fields: mid-grey text on the black of the skin's display strip.
constexpr Rgb field_background{0, 0, 0};
constexpr Rgb field_text{149, 145, 143};

// The controls that need a tape transport; they are enabled and disabled together.
constexpr int transport_controls[] = {IDC_FAST_FORWARD, IDC_REWIND,   IDC_PAUSE,
                                      IDC_TRACK,        IDC_TIMECODE, IDC_SEEK,
                                      IDC_SET_IN,       IDC_SET_OUT,  IDC_EDIT_SCENES};

constexpr const char* blank_timecode = "00:00:00:00";
constexpr const char* wdm_device_type = "WDM";
constexpr const char* dropped_unavailable = "Unavailable";

// The skin under the indicator, repainted when the indicator goes off.
constexpr Rect indicator_area{skin::indicator_x, skin::indicator_y,
                              skin::indicator_x + skin::indicator_width,
                              skin::indicator_y + skin::indicator_height};

bool is_capture_source(media::BaseFilter* filter) {
    const ComPtr<media::BaseFilter>& source = app->graph->source;
    if (!source.valid()) {
        return false;
    }
    return filter == source.get() || same_object(filter, source.get());
}
}  // namespace

void CapMainDialog::on_init_dialog() {
    DialogHost& h = host();

    // The skin bitmap decides the client size; without it the template's size stays.
    if (BitmapHandle skin_bitmap = h.load_bitmap(IDB_SKIN, false)) {
        int width = 0;
        int height = 0;
        if (h.bitmap_size(skin_bitmap, width, height)) {
            h.set_client_size(hwnd, width, height);
        }
        h.delete_bitmap(skin_bitmap);
    }

    disk_warned = false;
    main_window = hwnd;

    // A preview that cannot start ends the program; the rest of the set-up still runs
    // and the window closes when start-up returns.
    try {
        app->win->attach(item(IDC_PREVIEW), app->graph->graph.get());
        if (!app->win->running()) {
            app->win->run();
        }
    } catch (ComError* e) {
        show_error(e);
        h.end_dialog(hwnd, -1);
    }

    if (dv_vcr_ready()) {
        enable_transport_controls(true);
        h.set_dlg_item_text(hwnd, IDC_DEVICE_TYPE, app->dv->dv_mode_name(app->dv_mode));
        transport_timer = h.set_timer(hwnd, transport_timer_id, transport_period_ms);
    } else {
        enable_transport_controls(false);
        h.set_dlg_item_text(hwnd, IDC_DEVICE_TYPE, wdm_device_type);
    }

    brush = h.stock_brush(StockBrush::black);
    h.set_big_icon(hwnd, h.load_icon(IDI_MAIN));

    WindowHandle bar = item(IDC_DISK_BAR);
    h.progress_set_range(bar, 0, 100);
    h.progress_set_pos(bar, 0);

    h.set_timer(hwnd, disk_timer_id, status_period_ms);
    h.set_timer(hwnd, dropped_timer_id, status_period_ms);

    h.set_dlg_item_text(hwnd, IDC_IN_POINT, blank_timecode);
    h.set_dlg_item_text(hwnd, IDC_OUT_POINT, blank_timecode);

    indicator_bitmap = h.load_bitmap(IDB_INDICATOR, true);
    for (const skin::ButtonPictures& b : skin::button_pictures()) {
        set_bitmap(true, b.control_id, b.pressed_bitmap);
        set_bitmap(false, b.control_id, b.normal_bitmap);
    }

    tooltip = h.create_tooltip(hwnd);
    for (const skin::Tooltip& t : skin::tooltips()) {
        add_tooltip(std::string(t.text), t.control_id);
    }
}

void CapMainDialog::set_bitmap(bool pressed, int id, int bitmap_id) {
    (pressed ? pressed_bitmaps : normal_bitmaps)[id] = host().load_bitmap(bitmap_id, false);
}

void CapMainDialog::add_tooltip(const std::string& text, int id) {
    WindowHandle control = item(id);
    host().add_tool(tooltip, control, id, host().get_client_rect(control), text);
}

BrushHandle CapMainDialog::on_ctlcolor_static(DcHandle dc, WindowHandle) {
    host().set_bk_color(dc, field_background);
    host().set_text_color(dc, field_text);
    host().set_bk_mode_transparent(dc);
    return brush;
}

BrushHandle CapMainDialog::on_ctlcolor_edit(DcHandle dc, WindowHandle control) {
    return on_ctlcolor_static(dc, control);
}

BrushHandle CapMainDialog::on_ctlcolor_button(DcHandle, WindowHandle) {
    // Hollow, so that the skin shows around the owner-drawn pictures.
    return host().stock_brush(StockBrush::null);
}

void CapMainDialog::on_draw_item(WParam id, LParam item_record) {
    const auto* draw = reinterpret_cast<const DrawItem*>(item_record);
    // Disabled, focus and hot states look like the normal picture: the skin has only
    // the two.
    const auto& pictures = (draw->state & ODS_SELECTED) != 0 ? pressed_bitmaps : normal_bitmaps;
    const auto it = pictures.find(static_cast<int>(id));
    BitmapHandle picture = it == pictures.end() ? nullptr : it->second;
    // Right and bottom as the size clips a picture larger than its button at the
    // button's edges.
    host().draw_bitmap(draw->dc, draw->rect.left, draw->rect.top, draw->rect.right,
                       draw->rect.bottom, picture);
}

// --- Commands ---------------------------------------------------------------------------

void CapMainDialog::on_command(WParam wparam, LParam) {
    const int id = static_cast<int>(low_word(wparam));
    try {
        run_command(id);
    } catch (ComError* e) {
        show_error(e);
        // A Record that failed after stopping the graph has torn down or half built the
        // graph; put the picture back so that the window stays usable. A failure to
        // stop leaves everything as it was, still running.
        if (id == IDC_RECORD && !app->win->running()) {
            restore_preview(item(IDC_PREVIEW), true);
        }
    }
}

void CapMainDialog::run_command(int id) {
    switch (id) {
        case IDC_PLAY:
            play();
            break;
        case IDC_STOP:
            stop();
            break;
        case IDC_FAST_FORWARD:
            wind(true);
            break;
        case IDC_REWIND:
            wind(false);
            break;
        case IDC_PAUSE:
            pause();
            break;
        case IDC_RECORD:
            record();
            break;
        case IDC_SET_IN:
            mark_in();
            break;
        case IDC_SET_OUT:
            mark_out();
            break;
        case IDC_PLAY_IN_OUT:
            play_in_out();
            break;
        case IDC_OPTIONS:
            options();
            break;
        case IDC_EDIT_SCENES: {
            CapEditDialog editor;
            run_child(editor, IDD_SCENE_LIST);
            break;
        }
        case IDC_SEEK: {
            CapSeekDialog seek;
            run_child(seek, IDD_SEEK);
            break;
        }
        case IDC_HELP:
            help();
            break;
        case IDC_QUIT:
            // Closing runs from the message loop, through on_close.
            host().post_message(hwnd, wm::close, 0, 0);
            break;
        default:
            break;
    }
}

bool CapMainDialog::ensure_preview() {
    if (app->win->attached()) {
        return true;
    }
    return restore_preview(item(IDC_PREVIEW), false);
}

void CapMainDialog::play() {
    if (!ensure_preview()) {
        return;
    }
    if (dv_vcr_ready()) {
        app->dv->play();
    }
    if (!app->win->running()) {
        app->win->run();
    }
    state = state_playing;
}

void CapMainDialog::stop() {
    // A VCR's tape stops and the picture keeps running; any other source has nothing to
    // stop but the graph.
    if (dv_vcr_ready()) {
        app->dv->stop();
    } else if (app->win->running()) {
        app->win->stop();
    }
    state = state_stopped;
}

void CapMainDialog::wind(bool forward) {
    if (!dv_attached()) {
        return;
    }
    long mode = 0;
    switch (state) {
        case state_paused:
            // Paused, the wind keys step one frame.
            mode = forward ? media::ED_MODE_STEP_FWD : media::ED_MODE_STEP_REV;
            break;
        case state_playing:
            mode = forward ? media::ED_MODE_PLAY_FASTEST_FWD : media::ED_MODE_PLAY_FASTEST_REV;
            break;
        default:
            mode = forward ? media::ED_MODE_FF : media::ED_MODE_REW;
            break;
    }
    app->dv->set_mode(mode);
}

void CapMainDialog::pause() {
    if (!dv_attached()) {
        return;
    }
    app->dv->set_mode(media::ED_MODE_FREEZE);
    state = state_paused;
}

void CapMainDialog::record() {
    // Scene detection reads timecodes and builds DV graphs, so it needs a DV device. With
    // any other source it is refused as a batch capture is, rather than quietly making one
    // plain recording the user did not ask for.
    if (app->scene_detection) {
        if (!(app->source_is_dv && dv_attached())) {
            show_error(no_device_error());
            return;
        }
        CapSceneCaptureDialog scenes;
        run_child(scenes, IDD_SCENE_DETECT);
        return;
    }
    if (!app->toggle_recording()) {
        return;  // no output directory: message shown, nothing changed
    }
    state = state_recording;
    indicator_tick = host().tick_count();
    indicator_on = true;
}

void CapMainDialog::mark_in() {
    Timecode position;
    position.clear();
    if (!dv_attached() || !app->dv->get_timecode(position)) {
        show_message(MSG_NO_TIMECODE);
        return;
    }
    CapJob* job = app->add_job(position);
    CAP_ASSERT(job != NULL);
    kill_transport_timer();
    // A cancelled task dialog still leaves the new scene in the list.
    job->edit(hwnd);
    host().set_dlg_item_text(hwnd, IDC_IN_POINT, position.to_string());
    restart_transport_timer();
}

void CapMainDialog::mark_out() {
    Timecode position;
    position.clear();
    if (!dv_attached() || !app->dv->get_timecode(position)) {
        show_message(MSG_NO_TIMECODE);
        return;
    }
    if (!app->set_out_point(position)) {
        return;  // empty list: "Specify a start point first" shown
    }
    host().set_dlg_item_text(hwnd, IDC_OUT_POINT, position.to_string());
}

void CapMainDialog::play_in_out() {
    if (!app->jobs->empty()) {
        if (!ensure_preview()) {
            return;
        }
        CapJob* job = app->job_at(static_cast<int>(app->jobs->size()) - 1);
        CAP_ASSERT(job != NULL);
        // Scenes logged with a DV device outlive a switch to another source. Without an
        // attached device there is no tape to wind, and the command just plays.
        if (dv_attached()) {
            app->dv->seek(job->capture_start.track);
        }
        if (dv_vcr_ready()) {
            app->dv->play();
        }
        if (!app->win->running()) {
            app->win->run();
        }
    }
    state = state_playing;
}

void CapMainDialog::options() {
    kill_transport_timer();
    CapPropsDialog properties;
    properties.do_modal(hwnd, IDD_PROPERTIES);
    // The device may have changed. The device type field keeps its start-up text.
    enable_transport_controls(app->source_is_dv && dv_attached());
    restart_transport_timer();
}

void CapMainDialog::run_child(CapDialog& dialog, int template_id) {
    kill_transport_timer();
    dialog.do_modal(hwnd, template_id);
    restart_transport_timer();
}

void CapMainDialog::help() {
    kill_transport_timer();
    SystemServices& system = instance->system;
    const char separator = system.folder_separator();
    // The manual lives beside the program's folder: drop the file name, then go up one
    // folder if there is one to go up to.
    const std::string program = system.module_file_name();
    std::size_t end = program.size();
    for (int cut = 0; cut < 2; ++cut) {
        const auto at = end == 0 ? std::string::npos : program.rfind(separator, end - 1);
        if (at == std::string::npos) {
            break;
        }
        end = at;
    }
    std::string path(program, 0, end);
    path += separator;
    path += "Manual";
    path += separator;
    path += "CManualIndex.htm";
    if (system.shell_open(path) <= 32) {
        show_message(MSG_NO_MANUAL);
    }
    restart_transport_timer();
}

void CapMainDialog::enable_transport_controls(bool enable) {
    for (int id : transport_controls) {
        host().enable_window(item(id), enable);
    }
}

void CapMainDialog::kill_transport_timer() {
    if (transport_timer != 0) {
        host().kill_timer(hwnd, transport_timer);
        transport_timer = 0;
    }
}

void CapMainDialog::restart_transport_timer() {
    if (dv_vcr_ready()) {
        transport_timer = host().set_timer(hwnd, transport_timer_id, transport_period_ms);
    }
}

void CapMainDialog::on_close() {
    // Quitting must not fail: a graph that will not stop is reported, and the window
    // closes anyway.
    try {
        if (app->win->running()) {
            app->win->stop();
        }
    } catch (ComError* e) {
        show_error(e);
    }
    host().end_dialog(hwnd, 0);
}

// --- Timers -------------------------------------------------------------------------------

void CapMainDialog::on_timer(WParam id) {
    indicator_step();
    switch (id) {
        case transport_timer_id:
            transport_tick();
            break;
        case disk_timer_id:
            disk_tick();
            break;
        case dropped_timer_id:
            dropped_frames_tick();
            break;
        default:
            break;
    }
}

void CapMainDialog::indicator_step() {
    if (state == state_recording) {
        const std::uint32_t now = host().tick_count();
        // Unsigned difference: correct across the tick counter's wrap.
        if (static_cast<std::uint32_t>(now - indicator_tick) > indicator_period_ms) {
            indicator_tick = now;
            indicator_on = !indicator_on;
            if (indicator_on) {
                host().draw_bitmap_on_window(hwnd, skin::indicator_x, skin::indicator_y,
                                             indicator_bitmap);
            } else {
                host().invalidate_rect(hwnd, &indicator_area, false);
            }
        }
    } else if (indicator_on) {
        indicator_on = false;
        host().invalidate_rect(hwnd, &indicator_area, false);
    }
}

void CapMainDialog::transport_tick() {
    if (!dv_attached()) {
        return;
    }
    Timecode position;
    position.clear();
    if (app->dv->get_timecode(position)) {
        host().set_dlg_item_text(hwnd, IDC_TIMECODE, position.to_string());
        char track[32];
        std::snprintf(track, sizeof track, "%.5i", static_cast<int>(position.track));
        host().set_dlg_item_text(hwnd, IDC_TRACK, track);
    }
    if (app->source_is_dv) {
        if (const char* status = skin::transport_status_text(app->dv->transport_mode())) {
            host().set_dlg_item_text(hwnd, IDC_TRANSPORT_STATUS, status);
        }
    }
}

void CapMainDialog::disk_tick() {
    app->update_disk_space();

    const double percent = app->free_fraction * 100.0;
    const int position =
        std::isfinite(percent) ? static_cast<int>(std::clamp(percent, 0.0, 100.0)) : 0;
    host().progress_set_pos(item(IDC_DISK_BAR), position);
    char gigabytes[64];
    std::snprintf(gigabytes, sizeof gigabytes, "%.04f GB", app->free_bytes * 1e-9);
    host().set_dlg_item_text(hwnd, IDC_DISK_GB, gigabytes);

    const bool was_recording = app->recording;
    try {
        app->low_disk_check(disk_warned);
    } catch (ComError* e) {
        // The low-disk stop failed part-way. A graph that would not stop still records;
        // otherwise the picture comes back so that the window stays usable.
        show_error(e);
        if (!app->win->running()) {
            restore_preview(item(IDC_PREVIEW), true);
        }
        return;
    }
    if (was_recording && !app->recording) {
        preview_after_low_disk_stop();
    }
}

void CapMainDialog::preview_after_low_disk_stop() {
    // The low-disk stop rebuilt the preview graph but left it out of the pane and
    // stopped; the user keeps a live picture.
    try {
        app->win->attach(item(IDC_PREVIEW), app->graph->graph.get());
        if (!app->win->running()) {
            app->win->run();
        }
    } catch (ComError* e) {
        show_error(e);
        restore_preview(item(IDC_PREVIEW), true);
    }
}

void CapMainDialog::dropped_frames_tick() {
    std::string text = dropped_unavailable;
    if (app->dropped->valid()) {
        // A failing call leaves the count at -1, which reads as unavailable too.
        long count = -1;
        if (SUCCEEDED((*app->dropped)->get_num_dropped(&count)) && count != -1) {
            char digits[32];
            std::snprintf(digits, sizeof digits, "%06i", static_cast<int>(count));
            text = digits;
        }
    }
    host().set_dlg_item_text(hwnd, IDC_DROPPED, text);
}

// --- Graph events ----------------------------------------------------------------------------

void CapMainDialog::on_graph_event() {
    // Events only reach this window while its pane shows the graph; without a graph
    // control there is no queue to drain.
    if (!app->win->attached()) {
        return;
    }
    media::MediaEvent* events = app->win->media_event();
    long code = 0;
    LParam param1 = 0;
    LParam param2 = 0;
    while (SUCCEEDED(events->get_event(&code, &param1, &param2, 0))) {
        if (code == media::EC_DEVICE_LOST) {
            // The first parameter is the lost device; the second (gone or back) does not
            // matter: losing the capture source ends the program.
            auto* lost = reinterpret_cast<Unknown*>(param1);
            ComPtr<media::BaseFilter> filter;
            if (lost == nullptr || FAILED(query_interface(lost, filter))) {
                return;
            }
            if (is_capture_source(filter.get())) {
                show_message(MSG_CAMERA_DISCONNECTED);
                host().post_message(hwnd, wm::close, 0, 0);
            }
            filter.release();
        }
        events->free_event_params(code, param1, param2);
    }
}
