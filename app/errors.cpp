#include "app/errors.h"

#include <cstdlib>

#include "app/globals.h"

const char* const error_texts[error_text_count] = {
    "No error",
    "Error in put owner",
    "Error in put window style",
    "Error in put visible",
    "Unable to get IVideoWindow interface",
    "Unable to get IMediaControl interface",
    "Unable to get IMediaEventEx interface",
    "Unable to get IMediaSeeking interface",
    "Error running media control",
    "Error stopping media control",
    "Unable to get ISpecifyPropPages interface",
    "Error creating OLE property page",
    "Unable to get Running Object Table",
    "Unable to register in Running Object Table",
    "Error creating item moniker",
    "Unable to set DV mode",
    "Unable to get transport interface",
    "Unable to get timecode reader interface",
    "Failed to set notify window",
    "Error creating graph builder",
    "Error creating capture graph builder",
    "Error creating system device enumerater",
    "Error creating class enumerator",
    "Missing required OLE property",
    "Specified index is not a filter",
    "Filter index not in enum",
    "Unable to bind property set",
    "Unable to add filter to graph",
    "Unable to query filter",
    "Unable to enumerate filter pins",
    "Unable to query pin",
    "Unable to connect filter graph",
    "Unable to create DV splitter filter",
    "Unable to get AVI interleaving configuration",
    "Unable to set output filename",
    "Unable to get MediaFilter interface",
    "Failed to attach filter graph to capture graph builder",
    "Failed to find filter",
    "DV Seek failed",
    "Failed to get device interface",
    "Failed to query DV capabilty",
    "Failed to read registry",
    "Unable to get dropped frames interface",
    "Device time format is not NTSC or PAL",
};

const char* const app_messages[app_message_count] = {
    "Unable to initialize COM",
    "DirectShow error",
    "Specify a start point first",
    "Unable to get timecode for the current position",
    "You need to select an entry",
    "You need to specify an output directory",
    "You need to specify a scene name",
    "Batch complete!",
    "Kestrel capture was unable to detect your camera. Please check that it is plugged in, "
    "check that it is turned on, then restart Kestrel capture",
    "Your camera has been disconnected, or has been turned off. The program will now exit",
    "Warning: low disk space on output directory",
    "Unable to launch ..\\Manual\\CManualIndex.htm",
    "The selected output directory is invalid",
};

namespace {
// Numbers in shown texts are signed decimals, so a failure code reads negative.
std::string in_parens(long long n) {
    return " (" + std::to_string(n) + ")";
}

void run_error_dialog(const std::string& message, const std::string& system_message,
                      bool message_only) {
    CapErrorDialog dialog;
    dialog.message = message;
    dialog.system_message = system_message;
    dialog.message_only = message_only;
    dialog.do_modal(main_window, message_only ? IDD_MESSAGE : IDD_ERROR);
}

std::string system_message_of(const ComError& e) {
    std::string text;
    e.system_text(text);
    return text + in_parens(e.hr);
}
}  // namespace

ComError::ComError(HRESULT hr_, int code_) : hr(hr_), text(error_texts[code_]), code(code_) {}

void ComError::system_text(std::string& out) const {
    if (hr >= 0) {
        return;
    }
    std::string text;
    if (!instance->system.system_text(hr, text)) {
        return;
    }
    const auto cr = text.rfind('\r');
    out = cr == std::string::npos ? text : text.substr(0, cr);
}

void throw_if_failed(HRESULT hr, int code) {
    if (hr < 0) {
        throw new ComError(hr, code);
    }
}

void show_error(ComError* e) {
    if (e->hr < 0) {
        run_error_dialog(e->text, system_message_of(*e), false);
    } else {
        run_error_dialog(e->text + in_parens(e->code), "", true);
    }
    delete e;
}

void show_message(int n) {
    run_error_dialog(app_messages[n] + in_parens(n), "", true);
}

void fatal_message(int n) {
    show_message(n);
    std::exit(-1);
}

void show_startup_failure(ComError* e) {
    const std::string message = app_messages[MSG_CAMERA_NOT_DETECTED] +
                                in_parens(MSG_CAMERA_NOT_DETECTED) + "\r\n" + e->text +
                                in_parens(e->code) + "\r\n";
    run_error_dialog(message, system_message_of(*e), false);
    delete e;
}

void CapErrorDialog::on_init_dialog() {
    host().set_dlg_item_text(hwnd, IDC_ERROR_MESSAGE, message);
    if (!message_only) {
        host().set_dlg_item_text(hwnd, IDC_ERROR_SYSTEM_TEXT, system_message);
    }
}

void CapErrorDialog::on_command(WParam wparam, LParam) {
    // Only OK closes; Esc (IDCANCEL) is deliberately ignored so an error is not
    // dismissed by a stray key.
    if (low_word(wparam) == IDOK) {
        host().post_message(hwnd, wm::close, 0, 0);
    }
}

void CapErrorDialog::on_close() {
    host().end_dialog(hwnd, 1);
}
