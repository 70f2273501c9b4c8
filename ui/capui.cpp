#include "ui/capui.h"

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "resources/resource_ids.h"

WindowHandle main_preview_pane() {
    return instance->dialogs.get_dlg_item(main_window, IDC_PREVIEW);
}

bool dv_attached() {
    return app->dv->attached();
}

bool dv_vcr_ready() {
    return app->dv_vcr() && app->dv->attached();
}

ComError* no_device_error() {
    // No failing call to quote, so the message dialog shows the text with its code.
    return new ComError(S_OK, ERR_DEVICE_IF);
}

bool restore_preview(WindowHandle pane, bool run) {
    try {
        app->disconnect();
        app->recording = false;
        app->connect();
        app->build_preview();
        app->win->attach(pane, app->graph->graph.get());
        if (run && !app->win->running()) {
            app->win->run();
        }
        return true;
    } catch (ComError* e) {
        show_error(e);
    }
    // A detached graph control is what the commands look for before they run the
    // preview.
    abandon_graph();
    return false;
}

void abandon_graph() {
    try {
        app->disconnect();
    } catch (ComError* e) {
        delete e;
    }
}
