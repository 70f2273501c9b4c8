// The entry sequence of the capture station and its exit handler. The program's main
// calls cap_main with the process's platform and runtime; tests call it with fakes.
#pragma once

#include "platform/platform.h"

// What the entry sequence needs of the process around it: registering the exit
// handler and ending the process. The program uses the C runtime's atexit and exit;
// a test records the handler and turns exit into an exception of its own.
class CapRuntime {
  public:
    virtual ~CapRuntime() = default;
    virtual void at_exit(void (*handler)()) = 0;
    // Ends the process with `code`; the registered exit handler runs.
    [[noreturn]] virtual void exit(int code) = 0;
};

// std::atexit and std::exit.
CapRuntime& process_runtime();

// Prepares the platform, registers the exit handler, creates the application object,
// connects the capture device, builds the first preview and runs the main window
// modally. Returns the main window's result, the process exit code. Ends the process
// with -1 through `runtime` when the platform cannot be prepared (no handler
// registered, nothing written) or start-up fails (the exit handler still writes the
// settings of an application object that exists). Runs on the user-interface thread.
//
// The exit handler runs after main has returned, so `platform` and everything behind
// it must outlive main's locals: construct them (function-local statics will do) before
// calling cap_main, so that they are destroyed only after the handler has run. At that
// moment the main window is gone and the preview window still lets go of its pane, so
// the dialog host must take calls on a destroyed window's handle as harmless.
int cap_main(CapPlatform& platform, CapRuntime& runtime);

// Destroys the application object, which writes the settings back, and releases the
// platform. Registered with the runtime by cap_main.
void exit_handler();
