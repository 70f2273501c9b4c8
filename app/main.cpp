// The program: Qt, the dialog host, the Linux services and the media platform put
// together, then the entry sequence.
//
// With --self-test-capture <seconds> the program also drives its own main window, for
// the unattended run on a machine without a person in front of it: play the tape, take
// a screenshot, capture for that long (a scene-detection capture with --scenes, else a
// single recording), then quit. Every dialog that appears on the way is logged and
// answered, so the run cannot hang on one.

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QPixmap>
#include <QStringList>
#include <QTimer>
#include <QWidget>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "app/capapp.h"
#include "app/entry.h"
#include "app/errors.h"
#include "app/globals.h"
#include "platform/posix/posix_settings_store.h"
#include "platform/posix/posix_system.h"
#include "platform/qt/program/program_parts.h"
#include "platform/qt/qt_dialog_host.h"
#include "resources/resource_ids.h"

namespace {

struct SelfTest {
    int capture_seconds = 0;  // 0: the program runs for a person
    bool scenes = false;
    std::string output_dir;
    std::string screenshot;       // the main window with live picture
    std::string screenshots_dir;  // every dialog, as it first appears
};

void usage() {
    std::fprintf(stderr,
                 "usage: kestrel-capture [--self-test-capture SECONDS [--scenes]\n"
                 "                        [--output DIR] [--screenshot FILE.png]]\n"
                 "                       [--screenshots DIR]\n");
}

// False (after printing why) when the arguments make no sense.
bool parse(const QStringList& args, SelfTest& test) {
    for (int i = 1; i < args.size(); ++i) {
        const QString& a = args[i];
        const bool has_value = i + 1 < args.size();
        if (a == "--self-test-capture" && has_value) {
            bool ok = false;
            test.capture_seconds = args[++i].toInt(&ok);
            if (!ok || test.capture_seconds <= 0 || test.capture_seconds > 3600) {
                std::fprintf(stderr, "kestrel-capture: --self-test-capture needs 1 to 3600 s\n");
                return false;
            }
        } else if (a == "--scenes") {
            test.scenes = true;
        } else if (a == "--output" && has_value) {
            test.output_dir = QDir(args[++i]).absolutePath().toStdString();
        } else if (a == "--screenshot" && has_value) {
            test.screenshot = QFileInfo(args[++i]).absoluteFilePath().toStdString();
        } else if (a == "--screenshots" && has_value) {
            test.screenshots_dir = QDir(args[++i]).absolutePath().toStdString();
        } else if (a == "--help" || a == "-h") {
            usage();
            std::exit(0);
        } else {
            std::fprintf(stderr, "kestrel-capture: unknown argument %s\n", qPrintable(a));
            usage();
            return false;
        }
    }
    return true;
}

// Where the skin bitmaps and the icon are looked for: an explicit folder, the installed
// share folder beside the program, then the source tree the program was built from.
std::vector<std::string> art_dirs() {
    std::vector<std::string> dirs;
    if (const char* own = std::getenv("KESTREL_ART_DIR"); own != nullptr && *own != '\0') {
        dirs.emplace_back(own);
    }
    const QString exe_dir = QCoreApplication::applicationDirPath();
    dirs.push_back((exe_dir + "/../share/kestrel-capture/skin").toStdString());
    dirs.push_back((exe_dir + "/../share/kestrel-capture/icon").toStdString());
    dirs.push_back(std::string(KC_SOURCE_DIR) + "/resources/skin/bitmaps");
    dirs.push_back(std::string(KC_SOURCE_DIR) + "/resources/icon");
    return dirs;
}

void save_grab(QWidget* window, const std::string& path) {
    if (window == nullptr || path.empty()) {
        return;
    }
    QDir().mkpath(QFileInfo(QString::fromStdString(path)).absolutePath());
    if (window->grab().save(QString::fromStdString(path))) {
        std::printf("self-test: screenshot %s\n", path.c_str());
    } else {
        std::fprintf(stderr, "self-test: cannot write the screenshot %s\n", path.c_str());
    }
    std::fflush(stdout);
}

void after(int ms, std::function<void()> step) {
    QTimer::singleShot(ms, qApp, std::move(step));
}

// Drives the windows through the host's hook: nothing here reaches into a dialog other
// than by the messages a person's clicks would send.
class SelfTestDriver {
  public:
    SelfTestDriver(kc::qt::QtDialogHost& host, SelfTest test) : host(host), test(std::move(test)) {}

    void install() {
        host.set_dialog_shown_hook([this](WindowHandle d, int id) { shown(d, id); });
        if (test.capture_seconds > 0) {
            // However the run goes, it ends: a hung device must not hang the job.
            after((test.capture_seconds + 90) * 1000, [] {
                std::fprintf(stderr, "self-test: timed out\n");
                std::_Exit(3);
            });
        }
    }

  private:
    void command(WindowHandle d, int id) {
        host.post_message(d, wm::command, make_wparam(static_cast<unsigned>(id), 0), 0);
    }

    void shown(WindowHandle d, int id) {
        if (!test.screenshots_dir.empty() && shot_taken.insert(id).second && id != IDD_MAIN) {
            after(700, [this, d, id] {
                save_grab(host.widget(d),
                          test.screenshots_dir + "/dialog-" + std::to_string(id) + ".png");
            });
        }
        if (id == IDD_ERROR || id == IDD_MESSAGE) {
            const std::string text = host.get_dlg_item_text(d, IDC_ERROR_MESSAGE, 2048);
            std::printf("self-test: the program says: %s\n", text.c_str());
            std::fflush(stdout);
            if (test.capture_seconds > 0) {
                after(1000, [this, d] { command(d, IDOK); });
            }
            return;
        }
        if (test.capture_seconds <= 0) {
            if (id == IDD_MAIN && !test.screenshots_dir.empty()) {
                after(4000, [this, d] {
                    save_grab(host.widget(d), test.screenshots_dir + "/main-window.png");
                });
            }
            return;
        }
        if (id == IDD_MAIN) {
            main_started(d);
        } else if (id == IDD_SCENE_DETECT) {
            std::printf("self-test: scene-detection capture running\n");
            std::fflush(stdout);
            // Stop is the dialog's Esc (IDCANCEL); the dialog then finishes by itself.
            after(test.capture_seconds * 1000, [this, d] { command(d, IDCANCEL); });
        }
    }

    void main_started(WindowHandle main) {
        if (!test.output_dir.empty()) {
            QDir().mkpath(QString::fromStdString(test.output_dir));
            app->output_directory = test.output_dir;
        }
        app->scene_detection = test.scenes;
        std::printf("self-test: main window up; output folder %s\n", app->output_directory.c_str());
        std::fflush(stdout);
        command(main, IDC_PLAY);
        after(4000, [this, main] {
            save_grab(host.widget(main), test.screenshot);
            std::printf("self-test: %s for %d s\n",
                        test.scenes ? "scene-detection capture" : "recording",
                        test.capture_seconds);
            std::fflush(stdout);
            command(main, IDC_RECORD);
            if (!test.scenes) {
                after(test.capture_seconds * 1000, [this, main] {
                    command(main, IDC_RECORD);
                    finish(main, 2000);
                });
            } else {
                wait_for_scenes(main);
            }
        });
    }

    // The scene-detection dialog runs modally from the Record command; once it has gone
    // the main window is on top again and the run can end.
    void wait_for_scenes(WindowHandle main) {
        after(500, [this, main] {
            if (host.top_dialog() == main) {
                finish(main, 1000);
            } else {
                wait_for_scenes(main);
            }
        });
    }

    void finish(WindowHandle main, int delay_ms) {
        after(delay_ms, [this, main] {
            std::printf("self-test: quitting\n");
            std::fflush(stdout);
            command(main, IDC_QUIT);
        });
    }

    kc::qt::QtDialogHost& host;
    SelfTest test;
    std::set<int> shot_taken;
};

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

    SelfTest test;
    if (!parse(QApplication::arguments(), test)) {
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

    static SelfTestDriver driver(host, test);
    driver.install();
    static CapPlatform platform{host, system, settings, *media};
    return cap_main(platform, process_runtime());
}
