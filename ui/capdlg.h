// CapDialog: the base of every dialog. It binds a dialog window to its object, routes
// the eleven window messages the system handles to virtual operations, runs a dialog
// modally and finds controls.
#pragma once

#include "platform/dialog_host.h"

class CapDialog {
  public:
    CapDialog() = default;
    CapDialog(const CapDialog&) = delete;
    CapDialog& operator=(const CapDialog&) = delete;
    virtual ~CapDialog() = default;

    // Runs the dialog of `template_id` owned by `parent`; returns the code given to
    // end_dialog, or -1 when the dialog could not be created. The object must outlive
    // the call.
    LResult do_modal(WindowHandle parent, int template_id);
    // The control with that id; a missing control is a programming error.
    WindowHandle item(int id);

    // The one procedure of every dialog: a pure function of the message and the object.
    static LResult dialog_proc(WindowHandle window, unsigned message, WParam wparam, LParam lparam);

    // Set when wm::init_dialog arrives, before on_init_dialog runs.
    WindowHandle hwnd = nullptr;

  protected:
    DialogHost& host() const;

    virtual void on_init_dialog() {}
    virtual BrushHandle on_ctlcolor_static(DcHandle, WindowHandle) { return nullptr; }
    virtual BrushHandle on_ctlcolor_edit(DcHandle, WindowHandle) { return nullptr; }
    virtual BrushHandle on_ctlcolor_button(DcHandle, WindowHandle) { return nullptr; }
    virtual void on_command(WParam, LParam) {}
    virtual void on_close() {}
    virtual void on_notify(LParam) {}
    virtual void on_timer(WParam) {}
    virtual void on_graph_event() {}
    virtual void on_draw_item(WParam, LParam) {}
    virtual void on_activate(bool) {}
};
