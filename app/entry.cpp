#include "app/entry.h"

#include <cstdlib>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "resources/resource_ids.h"
#include "ui/capmain.h"

namespace {
class ProcessRuntime : public CapRuntime {
  public:
    void at_exit(void (*handler)()) override { std::atexit(handler); }
    [[noreturn]] void exit(int code) override { std::exit(code); }
};
}  // namespace

CapRuntime& process_runtime() {
    static ProcessRuntime runtime;
    return runtime;
}

int cap_main(CapPlatform& platform, CapRuntime& runtime) {
    instance = &platform;

    // The media framework and the toolkit come up on this thread, which every handler
    // then runs on. Nothing is registered yet, so a failure here writes nothing.
    if (FAILED(platform.system.initialize())) {
        show_message(MSG_COM_INIT);
        runtime.exit(-1);
    }
    runtime.at_exit(exit_handler);

    try {
        // The settings are read here, before the device is connected.
        app = new CapApp(platform);
        app->connect();
        app->build_preview();
    } catch (ComError* e) {
        show_startup_failure(e);
        runtime.exit(-1);
    }

    CapMainDialog main_dialog;
    return static_cast<int>(main_dialog.do_modal(nullptr, IDD_MAIN));
}

void exit_handler() {
    if (app != nullptr) {
        // Destroying the application object writes the settings back.
        CapApp* ending = app;
        app = nullptr;
        delete ending;
    }
    if (instance != nullptr) {
        instance->system.uninitialize();
    }
}
