// Helpers shared by the dialogs: the state of the device and the preview as the dialogs
// must see it, and putting the preview back after a failure.
#pragma once

#include "platform/window.h"

struct ComError;

// The main window's preview pane (control 101 of main_window).
WindowHandle main_preview_pane();

// Whether the DV device holds its device-control interfaces. After a device change that
// failed part-way, source_is_dv and dv_mode can still describe a device whose interfaces
// were let go; nothing may then talk to it.
bool dv_attached();
// A DV VCR that can be driven and polled: DV-VCR by the application's flags, and attached.
bool dv_vcr_ready();

// The error shown when a command needs the DV device and none is attached. The caller
// owns it (show_error deletes it).
ComError* no_device_error();

// Puts a fresh preview graph of the connected device into `pane` after a failure left
// the graph in an unknown shape: disconnect, connect, build the preview, attach, and run
// it when `run` is set. A single recording is over once its graph is gone, so `recording`
// is cleared. Never raises: a failure is shown, and the graph control is then left
// detached, which later commands take as "no preview" and rebuild it again. Returns
// whether the preview is back.
bool restore_preview(WindowHandle pane, bool run);

// After a failure that has already been shown: disconnect so that nothing is left half
// attached, ignoring a second failure of the same cause.
void abandon_graph();
