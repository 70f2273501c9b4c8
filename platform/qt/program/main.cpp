// The program: Qt, the dialog host, the Linux services and the media platform put
// together, then the entry sequence.
//
// With --self-test-capture or --tour the program drives its own windows (self_test.h).

#include <QApplication>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "app/entry.h"
#include "platform/posix/posix_settings_store.h"
#include "platform/posix/posix_system.h"
#include "platform/qt/program/program_parts.h"
#include "platform/qt/program/self_test.h"
#include "platform/qt/qt_dialog_host.h"
#include "resources/resource_ids.h"

namespace {

// Where the skin bitmaps and the icon are looked for: an explicit folder, the installed
// data folder, then the source tree the program was built from.
std::vector<std::string> art_dirs() {
    std::vector<std::string> dirs;
    if (const char* own = std::getenv("KESTREL_ART_DIR"); own != nullptr && *own != '\0') {
        dirs.emplace_back(own);
    }
    dirs.push_back(std::string(KC_INSTALL_DATA_DIR) + "/skin");
    dirs.push_back(std::string(KC_INSTALL_DATA_DIR) + "/icon");
    dirs.push_back(std::string(KC_SOURCE_DIR) + "/resources/skin/bitmaps");
    dirs.push_back(std::string(KC_SOURCE_DIR) + "/resources/icon");
    return dirs;
}

}  // namespace

int main(int argc, char** argv) {
    // Everything the exit handler touches must outlive main's return: statics, built
    // before cap_main registers the handler, are destroyed only after it has run. Qt
    // itself and its widgets are never destroyed: Qt's own globals are torn down before
    // ours at exit, and a QApplication or widget destroyed after them crashes.
    static int qt_argc = argc;
    new QApplication(qt_argc, argv);
    QApplication::setApplicationName(QStringLiteral("Kestrel Capture"));
    QApplication::setStyle(QStringLiteral("Fusion"));

    kc::program::SelfTest test;
    if (!kc::program::parse_self_test(QApplication::arguments(), test)) {
        return 2;
    }

    auto& host = *new kc::qt::QtDialogHost(kc::qt::HostOptions{art_dirs()});
    static PosixSystemServices system;
    static PosixSettingsStore settings(PosixSettingsStore::default_file());
    static std::unique_ptr<media::MediaFactory> media = kc::program::make_media_factory(host, host);
    kc::program::register_extra_sources();
    std::fprintf(stderr, "kestrel-capture: %s\n", kc::program::media_summary().c_str());
    if (BitmapHandle skin = host.load_bitmap(IDB_SKIN, false)) {
        host.delete_bitmap(skin);
    }
    if (!host.has_art(IDB_SKIN)) {
        std::fprintf(stderr, "kestrel-capture: skin art not found; drawing stand-ins\n");
    }

    kc::program::install_self_test(host, test);
    static CapPlatform platform{host, system, settings, *media};
    return cap_main(platform, process_runtime());
}
