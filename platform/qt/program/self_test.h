// The program driving its own windows, for runs without a person in front of it: the
// unattended main job (play the tape, capture, quit), the DV decoder's property pages
// (choose a display resolution, see the preview follow it), and the tour that opens every
// dialog once and saves a picture of each for the manual.
//
// Everything is done through the messages a person's clicks would send; every message
// box and error dialog that appears is logged and answered, and a deadline ends a run
// that a hung device would otherwise keep alive.
#pragma once

#include <QStringList>
#include <string>

#include "platform/qt/qt_dialog_host.h"

namespace kc::program {

struct SelfTest {
    int capture_seconds = 0;  // > 0: the unattended capture run
    bool scenes = false;      // capture with scene detection instead of one recording
    bool tour = false;        // open every dialog once, picture each, then quit
    // Not empty: choose this display resolution on the DV decoder's page, then quit.
    std::string decoder_resolution;
    std::string output_dir;
    std::string screenshot;       // the main window with live picture
    std::string screenshots_dir;  // every dialog, as it first appears

    bool drives_windows() const {
        return capture_seconds > 0 || tour || !decoder_resolution.empty();
    }
};

// False (after printing why) when the arguments make no sense; exits for --help.
bool parse_self_test(const QStringList& args, SelfTest& test);

// Hooks the driver into the host. Call once, before the entry sequence; the host must
// outlive the run.
void install_self_test(kc::qt::QtDialogHost& host, const SelfTest& test);

}  // namespace kc::program
