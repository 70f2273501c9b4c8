// The self-test driver (ui/self_test.h) on the Win32 host: its timers are thread timers,
// which every modal loop of the user-interface thread dispatches, and its pictures are
// BMP files of what the screen shows.
#pragma once

#include "ui/self_test.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/win_dialog_host.h"

namespace kc::program {

// The program's arguments (the C runtime's __argc/__argv); folders and files are made
// absolute. False after printing why they make no sense.
bool parse_self_test(int argc, char** argv, SelfTest& test);

// Hooks the driver into the host. Call once, before the entry sequence; the host must
// outlive the run.
void install_self_test(WinDialogHost& host, const SelfTest& test);

}  // namespace kc::program
