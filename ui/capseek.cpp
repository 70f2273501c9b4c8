#include "ui/capseek.h"

#include <cstdint>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "resources/resource_ids.h"
#include "ui/capui.h"

void CapSeekDialog::on_command(WParam wparam, LParam) {
    switch (static_cast<int>(low_word(wparam))) {
        case IDOK: {
            // Unchecked: an empty box reads 0 and winds to the start of the tape.
            const std::uint32_t track = host().get_dlg_item_int(hwnd, IDC_SEEK_TRACK, false);
            // The seek returns when the device has taken the command, which can be a
            // while on a real deck.
            CursorHandle previous = host().set_wait_cursor();
            try {
                if (!dv_attached()) {
                    throw no_device_error();
                }
                app->dv->seek(static_cast<long>(track));
                host().end_dialog(hwnd, 1);
                host().set_cursor(previous);
            } catch (ComError* e) {
                host().set_cursor(previous);
                show_error(e);  // the dialog stays open for another try
            }
            break;
        }
        case IDCANCEL:
            host().end_dialog(hwnd, 0);
            break;
        default:
            break;
    }
}

void CapSeekDialog::on_close() {
    host().end_dialog(hwnd, 0);
}
