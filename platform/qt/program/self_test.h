// The self-test driver (ui/self_test.h) on the Qt host: its timers are Qt's, its pictures
// are grabs of the widgets, and the decoder's property frame is Qt's own dialog.
#pragma once

#include <QStringList>

#include "platform/qt/qt_dialog_host.h"
#include "ui/self_test.h"

namespace kc::program {

// The program's arguments as Qt has them; folders and files are made absolute.
bool parse_self_test(const QStringList& args, SelfTest& test);

// Hooks the driver into the host. Call once, before the entry sequence; the host must
// outlive the run.
void install_self_test(kc::qt::QtDialogHost& host, const SelfTest& test);

}  // namespace kc::program
