// The program on Windows: the Win32 dialog host, the Windows services, the registry and
// DirectShow put together, then the entry sequence.
//
// With --self-test-capture or --tour the program drives its own windows (ui/self_test.h).
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "app/entry.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/deck_device.h"
#include "platform/win/dshow_media.h"
#include "platform/win/program/win_self_test.h"
#include "platform/win/win_dialog_host.h"
#include "platform/win/win_settings_store.h"
#include "platform/win/win_system.h"

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR, int) {
    // Everything the exit handler touches must outlive WinMain's return: statics, built
    // before cap_main registers the handler, are destroyed only after it has run.
    kc::program::SelfTest test;
    if (!kc::program::parse_self_test(__argc, __argv, test)) {
        return 2;
    }
    static WinDialogHost host(instance);
    static WinSystemServices system;
    static WinSettingsStore settings(HKEY_CURRENT_USER);
    static std::unique_ptr<media::MediaFactory> media = kc::win::make_media_factory();
    kc::program::install_self_test(host, test);
    static CapPlatform platform{host, system, settings, *media};
    // The deck is opened at start-up, as on the other platforms, and a tape it cannot
    // play is said there too; the device list then goes without it.
    std::string deck_error;
    if (!kc::win::virtual_deck(&deck_error) && !deck_error.empty()) {
        std::fprintf(stderr, "kestrel-capture: %s\n", deck_error.c_str());
    }
    return cap_main(platform, process_runtime());
}
