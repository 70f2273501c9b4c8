#include "ui/capprops.h"

#include <cmath>
#include <cstdint>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "resources/resource_ids.h"
#include "ui/capui.h"

namespace {
constexpr int dv_only_controls[] = {IDC_PROP_DV_TYPE1, IDC_PROP_DV_TYPE2, IDC_PROP_DV_PAGES,
                                    IDC_PROP_PREROLL, IDC_PROP_SCENE_DETECTION};
constexpr int wdm_only_controls[] = {IDC_PROP_AUDIO_DEVICE, IDC_PROP_VIDEO_CODEC,
                                     IDC_PROP_AUDIO_CODEC, IDC_PROP_WDM_PAGES};

constexpr const char* no_compression = "No compression";
// Texts read back are limited as the classic 260-character path buffer limits them.
constexpr int text_buffer_chars = 260;

constexpr unsigned transport_timer_id = 1;
constexpr unsigned transport_period_ms = 250;

// The warning threshold as the whole percentage the box shows, truncated toward zero.
std::uint32_t whole_percent(double share) {
    const double percent = share * 100.0;
    if (!std::isfinite(percent) || percent <= 0.0) {
        return 0;
    }
    if (percent >= 4294967295.0) {
        return 4294967295u;
    }
    return static_cast<std::uint32_t>(percent);
}
}  // namespace

void CapPropsDialog::on_init_dialog() {
    try {
        fill();
    } catch (ComError* e) {
        show_error(e);
        host().end_dialog(hwnd, 0);
    }
}

void CapPropsDialog::fill() {
    DialogHost& h = host();
    CapGraph& graph = *app->graph;

    // The lists hold positions, not names: a setting is the index of the entry in the
    // enumerator's order, which is what graph construction expects.
    WindowHandle device = item(IDC_PROP_DEVICE);
    graph.enum_devices(media::DeviceCategory::video_input, add_device_name, device);
    h.combo_set_cur_sel(device, app->video_device);

    WindowHandle audio_device = item(IDC_PROP_AUDIO_DEVICE);
    graph.enum_devices(media::DeviceCategory::audio_input, add_device_name, audio_device);
    h.combo_set_cur_sel(audio_device, app->audio_device);

    WindowHandle video_codec = item(IDC_PROP_VIDEO_CODEC);
    h.combo_add_string(video_codec, no_compression);
    graph.enum_devices(media::DeviceCategory::video_compressor, add_device_name, video_codec);
    h.combo_set_cur_sel(video_codec, app->video_codec);

    WindowHandle audio_codec = item(IDC_PROP_AUDIO_CODEC);
    h.combo_add_string(audio_codec, no_compression);
    graph.enum_devices(media::DeviceCategory::audio_compressor, add_device_name, audio_codec);
    h.combo_set_cur_sel(audio_codec, app->audio_codec);

    enable_for_source(app->source_is_dv);

    h.check_radio_button(hwnd, IDC_PROP_DV_TYPE1, IDC_PROP_DV_TYPE2,
                         app->dv_type2 != 0 ? IDC_PROP_DV_TYPE2 : IDC_PROP_DV_TYPE1);
    h.set_dlg_item_text(hwnd, IDC_PROP_OUTPUT_DIR, app->output_directory);
    h.set_dlg_item_text(hwnd, IDC_PROP_SCENE_NAME, app->scene_name);

    // Opening the dialog brings every scene's capture start in line with the preroll.
    // Some hosts report a text set by the program as a change and some do not; the
    // derivation is run here either way (running it twice changes nothing).
    h.set_dlg_item_int(hwnd, IDC_PROP_PREROLL, static_cast<std::uint32_t>(app->preroll), true);
    preroll_changed();

    h.set_dlg_item_int(hwnd, IDC_PROP_DISK_WARNING, whole_percent(app->disk_warning), false);
    h.check_dlg_button(hwnd, IDC_PROP_SCENE_DETECTION, app->scene_detection);
}

void CapPropsDialog::enable_for_source(bool dv) {
    for (int id : dv_only_controls) {
        host().enable_window(item(id), dv);
    }
    for (int id : wdm_only_controls) {
        host().enable_window(item(id), !dv);
    }
}

void CapPropsDialog::on_command(WParam wparam, LParam) {
    const int id = static_cast<int>(low_word(wparam));
    const unsigned notification = high_word(wparam);
    try {
        switch (id) {
            case IDOK:
                // Closing applies the settings; the close box takes the same path.
                host().post_message(hwnd, wm::close, 0, 0);
                break;
            case IDC_PROP_DEVICE:
                if (notification == CBN_SELCHANGE) {
                    change_device();
                }
                break;
            case IDC_PROP_BROWSE:
                browse();
                break;
            case IDC_PROP_DV_PAGES:
                show_decoder_pages();
                break;
            case IDC_PROP_WDM_PAGES:
                show_source_pages();
                break;
            case IDC_PROP_PREROLL:
                if (notification == EN_CHANGE) {
                    preroll_changed();
                }
                break;
            default:
                break;
        }
    } catch (ComError* e) {
        show_error(e);
    }
}

void CapPropsDialog::change_device() {
    const int previous = app->video_device;
    app->video_device = host().combo_get_cur_sel(item(IDC_PROP_DEVICE));
    try {
        switch_device();
        return;
    } catch (ComError* e) {
        show_error(e);
    }
    // The chosen device failed part-way and left the source disconnected. Go back to the
    // device that worked, so that the user keeps a picture and a transport.
    app->video_device = previous;
    host().combo_set_cur_sel(item(IDC_PROP_DEVICE), previous);
    try {
        switch_device();
    } catch (ComError* e) {
        show_error(e);
        // Nothing is connected now. The main window rebuilds the preview before it runs
        // it, and its commands leave a detached DV device alone.
        abandon_graph();
    }
}

void CapPropsDialog::switch_device() {
    // The transport timer must not poll the device while it is being replaced.
    if (transport_timer != 0) {
        host().kill_timer(main_window, transport_timer);
        transport_timer = 0;
    }
    app->win->detach();
    app->disconnect();
    app->connect();
    app->build_preview();
    // The new preview goes into the main window but does not run yet.
    app->win->attach(main_preview_pane(), app->graph->graph.get());
    if (app->source_is_dv) {
        enable_for_source(true);
        // Any DV device gets the transport poll here, camera or VCR.
        transport_timer = host().set_timer(main_window, transport_timer_id, transport_period_ms);
    } else {
        enable_for_source(false);
    }
}

void CapPropsDialog::browse() {
    // The host's folder browser gives a full path of at most 259 characters, or nothing
    // when the user cancels.
    const std::optional<std::string> folder =
        host().browse_for_folder("Select an output directory");
    if (!folder) {
        return;
    }
    app->output_directory = *folder;
    host().set_dlg_item_text(hwnd, IDC_PROP_OUTPUT_DIR, *folder);
}

void CapPropsDialog::show_decoder_pages() {
    const bool was_running = app->win->running();
    ComPtr<media::BaseFilter> decoder;
    const HRESULT hr =
        app->graph->graph->find_filter_by_name(media::dv_decoder_filter_name, decoder.out());
    if (FAILED(hr) || !decoder.valid()) {
        throw new ComError(hr, ERR_FIND_FILTER);
    }
    // The pages change the decoder's settings, which a running graph would not take.
    if (was_running) {
        app->win->stop();
    }
    CapWin::show_property_pages(hwnd, decoder.get(), "DV Capture");
    if (was_running) {
        app->win->run();
    }
    decoder.release();
}

void CapPropsDialog::show_source_pages() {
    const bool was_running = app->win->running();
    if (!app->graph->source.valid()) {
        throw no_device_error();
    }
    if (was_running) {
        app->win->stop();
    }
    CapWin::show_property_pages(hwnd, app->graph->source.get(), "WDM Capture");
    if (was_running) {
        app->win->run();
    }
}

void CapPropsDialog::preroll_changed() {
    // Text that is not a number reads as 0, so an emptied box applies preroll 0.
    app->preroll = static_cast<std::int32_t>(host().get_dlg_item_int(hwnd, IDC_PROP_PREROLL, true));
    app->apply_preroll();
}

void CapPropsDialog::on_close() {
    DialogHost& h = host();
    app->scene_detection = h.is_dlg_button_checked(hwnd, IDC_PROP_SCENE_DETECTION);
    app->video_codec = h.combo_get_cur_sel(item(IDC_PROP_VIDEO_CODEC));
    app->audio_codec = h.combo_get_cur_sel(item(IDC_PROP_AUDIO_CODEC));
    app->audio_device = h.combo_get_cur_sel(item(IDC_PROP_AUDIO_DEVICE));
    app->dv_type2 = h.is_dlg_button_checked(hwnd, IDC_PROP_DV_TYPE2) ? 1 : 0;
    app->preroll = static_cast<std::int32_t>(h.get_dlg_item_int(hwnd, IDC_PROP_PREROLL, true));
    app->disk_warning = h.get_dlg_item_int(hwnd, IDC_PROP_DISK_WARNING, false) * 0.01;

    // A refusal keeps what is already stored and leaves the dialog open.
    const std::string directory = h.get_dlg_item_text(hwnd, IDC_PROP_OUTPUT_DIR, text_buffer_chars);
    if (directory.empty()) {
        show_message(MSG_NO_OUTPUT_DIRECTORY);
        return;
    }
    app->output_directory = directory;

    const std::string scene = h.get_dlg_item_text(hwnd, IDC_PROP_SCENE_NAME, text_buffer_chars);
    if (scene.empty()) {
        show_message(MSG_NO_SCENE_NAME);
        return;
    }
    app->scene_name = scene;

    h.end_dialog(hwnd, 1);
}
