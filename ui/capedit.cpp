#include "ui/capedit.h"

#include <cstdint>
#include <cstdio>
#include <string>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "resources/resource_ids.h"
#include "ui/capprogress.h"

namespace {
constexpr int name_column = 0;
constexpr int start_column = 1;
constexpr int end_column = 2;

// The task dialog's name buffer.
constexpr int name_buffer_chars = 512;

std::string unsigned_text(std::int32_t track) {
    // A row refreshed after the task dialog shows raw track numbers, unsigned as the
    // dialog's boxes show them: -1 reads 4294967295.
    char text[16];
    std::snprintf(text, sizeof text, "%u", static_cast<unsigned>(track));
    return text;
}
}  // namespace

// --- Scene list editor ------------------------------------------------------------------

void CapEditDialog::on_init_dialog() {
    list_view = item(IDC_LIST_VIEW);
    host().list_insert_column(list_view, name_column, "Scene name", 100);
    host().list_insert_column(list_view, start_column, "Start", 80);
    host().list_insert_column(list_view, end_column, "End", 80);
    host().list_delete_all_items(list_view);
    fill();
}

void CapEditDialog::fill() {
    for (auto it = app->jobs->rbegin(); it != app->jobs->rend(); ++it) {
        const CapJob* job = *it;
        CAP_ASSERT(job != NULL);
        host().list_insert_item(list_view, 0, job->name);
        host().list_set_item_text(list_view, 0, start_column, job->capture_start.to_string());
        host().list_set_item_text(list_view, 0, end_column, job->out_point.to_string());
    }
}

int CapEditDialog::selected_row() {
    const int rows = host().list_get_item_count(list_view);
    for (int i = 0; i < rows; ++i) {
        if (host().list_is_item_selected(list_view, i)) {
            return i;  // with several selected, the first counts
        }
    }
    show_message(MSG_SELECT_ENTRY);
    return -1;
}

void CapEditDialog::on_command(WParam wparam, LParam) {
    // Esc (IDCANCEL) and the close box do nothing: OK is the only way out.
    switch (static_cast<int>(low_word(wparam))) {
        case IDOK:
            host().end_dialog(hwnd, 1);
            break;
        case IDC_LIST_RECORD:
            record();
            break;
        case IDC_LIST_PROPERTIES:
            edit_selected();
            break;
        case IDC_LIST_DELETE:
            delete_selected();
            break;
        default:
            break;
    }
}

void CapEditDialog::on_notify(LParam lparam) {
    const auto* header = reinterpret_cast<const NotifyHeader*>(lparam);
    // Only a double click acts. The end of an in-place label edit is not taken, so a
    // name typed into the list reverts; names change through the task dialog.
    if (header != nullptr && header->id == static_cast<std::uintptr_t>(IDC_LIST_VIEW) &&
        header->code == NM_DBLCLK) {
        edit_selected();
    }
}

void CapEditDialog::edit_selected() {
    const int row = selected_row();
    if (row < 0) {
        return;
    }
    CapJob* job = app->job_at(row);
    CAP_ASSERT(job != NULL);
    if (!job->edit(hwnd)) {
        return;
    }
    host().list_set_item_text(list_view, row, name_column, job->name);
    host().list_set_item_text(list_view, row, start_column,
                              unsigned_text(job->capture_start.track));
    host().list_set_item_text(list_view, row, end_column, unsigned_text(job->out_point.track));
}

void CapEditDialog::delete_selected() {
    const int row = selected_row();
    if (row < 0) {
        return;
    }
    app->remove_job(app->job_at(row));
    host().list_delete_all_items(list_view);
    fill();
}

void CapEditDialog::record() {
    // A batch needs at least one scene; with none, say where scenes come from instead of
    // opening a progress dialog that has nothing to capture.
    if (app->jobs->empty()) {
        show_message(MSG_NO_START_POINT);
        return;
    }
    CapBatchDialog batch;
    batch.do_modal(hwnd, IDD_BATCH);
}

// --- Task dialog ---------------------------------------------------------------------------

bool CapJob::edit(WindowHandle parent) {
    CapTaskDialog dialog(this);
    return dialog.do_modal(parent, IDD_TASK) == 1;
}

void CapTaskDialog::on_init_dialog() {
    host().set_dlg_item_text(hwnd, IDC_TASK_NAME, job->name);
    host().set_dlg_item_int(hwnd, IDC_TASK_START, static_cast<std::uint32_t>(job->in_point.track),
                            false);
    host().set_dlg_item_int(hwnd, IDC_TASK_END, static_cast<std::uint32_t>(job->out_point.track),
                            false);
}

void CapTaskDialog::on_command(WParam wparam, LParam) {
    switch (static_cast<int>(low_word(wparam))) {
        case IDOK: {
            const std::string name =
                host().get_dlg_item_text(hwnd, IDC_TASK_NAME, name_buffer_chars);
            if (name.empty()) {
                return;  // a scene needs a name; the dialog stays open
            }
            job->name = name;
            // Only the track numbers change; the timecode parts stay as read from the
            // device and keep serving the display.
            const std::uint32_t start = host().get_dlg_item_int(hwnd, IDC_TASK_START, false);
            job->in_point.track = static_cast<std::int32_t>(start);
            // Two's-complement: a preroll larger than the start gives a negative track.
            job->capture_start.track =
                static_cast<std::int32_t>(start - static_cast<std::uint32_t>(app->preroll));
            job->out_point.track =
                static_cast<std::int32_t>(host().get_dlg_item_int(hwnd, IDC_TASK_END, false));
            host().end_dialog(hwnd, 1);
            break;
        }
        case IDCANCEL:
            host().end_dialog(hwnd, 0);
            break;
        default:
            break;
    }
}
