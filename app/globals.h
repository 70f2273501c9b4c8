// The process-wide values of the capture station. They are the only globals.
#pragma once

#include "platform/platform.h"

class CapApp;

// The platform services of this process: what the module instance handle is to a
// classic dialog program, the way resources, dialogs and services are reached.
// Set by the entry function (tests set it to their fakes).
extern CapPlatform* instance;
// The application object; null until created.
extern CapApp* app;
// The main window; parent of every error and message dialog. Null before it exists.
extern WindowHandle main_window;
// Id of the main window's 250 ms transport timer while it runs, else 0.
extern unsigned transport_timer;
