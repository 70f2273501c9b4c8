#include "ui/capdlg.h"

#include "app/globals.h"
#include "graph/stdcap.h"

namespace {
constexpr const char* this_prop = "CapDlgThisPtr";

LResult brush_result(BrushHandle brush) {
    return reinterpret_cast<LResult>(brush);
}
}  // namespace

DialogHost& CapDialog::host() const {
    return instance->dialogs;
}

LResult CapDialog::do_modal(WindowHandle parent, int template_id) {
    return host().dialog_box(template_id, parent, &CapDialog::dialog_proc,
                             reinterpret_cast<LParam>(this));
}

WindowHandle CapDialog::item(int id) {
    WindowHandle ret = host().get_dlg_item(hwnd, id);
    CAP_ASSERT(ret != NULL);
    return ret;
}

LResult CapDialog::dialog_proc(WindowHandle window, unsigned message, WParam wparam,
                               LParam lparam) {
    DialogHost& dialogs = instance->dialogs;
    if (message == wm::init_dialog) {
        auto* self = reinterpret_cast<CapDialog*>(lparam);
        self->hwnd = window;
        dialogs.set_prop(window, this_prop, self);
        self->on_init_dialog();
        return 1;
    }

    // The dialog manager sends some messages before wm::init_dialog; they find no
    // object and go back to it unhandled.
    auto* self = static_cast<CapDialog*>(dialogs.get_prop(window, this_prop));
    if (self == nullptr) {
        return 0;
    }
    auto dc = reinterpret_cast<DcHandle>(wparam);
    auto control = reinterpret_cast<WindowHandle>(lparam);
    switch (message) {
        case wm::ctlcolor_static:
            return brush_result(self->on_ctlcolor_static(dc, control));
        case wm::ctlcolor_edit:
            return brush_result(self->on_ctlcolor_edit(dc, control));
        case wm::ctlcolor_button:
            return brush_result(self->on_ctlcolor_button(dc, control));
        case wm::command:
            self->on_command(wparam, lparam);
            return 1;
        case wm::close:
            self->on_close();
            return 1;
        case wm::notify:
            self->on_notify(lparam);
            return 0;
        case wm::timer:
            self->on_timer(wparam);
            return 1;
        case wm::graph_event:
            self->on_graph_event();
            return 1;
        case wm::draw_item:
            self->on_draw_item(wparam, lparam);
            return 1;
        case wm::activate:
            self->on_activate(low_word(wparam) != WA_INACTIVE);
            return 0;
        default:
            return 0;
    }
}
