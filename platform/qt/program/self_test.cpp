#include "platform/qt/program/self_test.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QPixmap>
#include <QTimer>
#include <QWidget>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "resources/resource_ids.h"

namespace kc::program {
namespace {

void usage() {
    std::fprintf(stderr,
                 "usage: kestrel-capture [--self-test-capture SECONDS [--scenes] | --tour |\n"
                 "                        --self-test-properties RESOLUTION]\n"
                 "                       [--output DIR] [--screenshot FILE.png]\n"
                 "                       [--screenshots DIR]\n");
}

void say(const std::string& line) {
    std::printf("self-test: %s\n", line.c_str());
    std::fflush(stdout);
}

void save_grab(QWidget* window, const std::string& path) {
    if (window == nullptr || path.empty()) {
        return;
    }
    QDir().mkpath(QFileInfo(QString::fromStdString(path)).absolutePath());
    if (window->grab().save(QString::fromStdString(path))) {
        say("screenshot " + path);
    } else {
        std::fprintf(stderr, "self-test: cannot write the screenshot %s\n", path.c_str());
    }
}

void after(int ms, std::function<void()> step) {
    QTimer::singleShot(ms, qApp, std::move(step));
}

class Driver {
  public:
    Driver(kc::qt::QtDialogHost& host, SelfTest test) : host(host), test(std::move(test)) {}

    void install() {
        host.set_dialog_shown_hook([this](WindowHandle d, int id) { shown(d, id); });
        if (!test.drives_windows()) {
            return;
        }
        // However the run goes, it ends: a hung device must not hang the job.
        const int limit_s = test.tour ? 300 : test.capture_seconds + 90;
        after(limit_s * 1000, [] {
            std::fprintf(stderr, "self-test: timed out\n");
            std::_Exit(3);
        });
    }

  private:
    void command(WindowHandle d, int id) {
        host.post_message(d, wm::command, make_wparam(static_cast<unsigned>(id), 0), 0);
    }

    // Runs `step` once the dialog of `template_id` is the innermost one running, which is
    // how a person would wait for a window to come up or for a child window to go.
    void when_top(int template_id, std::function<void(WindowHandle)> step, int delay_ms = 0) {
        after(250, [this, template_id, step = std::move(step), delay_ms]() mutable {
            const WindowHandle top = host.top_dialog();
            const auto it = template_of.find(top);
            if (top != nullptr && it != template_of.end() && it->second == template_id) {
                after(delay_ms, [step = std::move(step), top] { step(top); });
            } else {
                when_top(template_id, std::move(step), delay_ms);
            }
        });
    }

    void shown(WindowHandle d, int id) {
        template_of[d] = id;
        if (!test.screenshots_dir.empty() && id != IDD_MAIN && shot_taken.insert(id).second) {
            // Progress dialogs are pictured once they show something.
            const int delay = id == IDD_BATCH || id == IDD_SCENE_DETECT ? 2000 : 700;
            after(delay, [this, d, id] {
                save_grab(host.widget(d),
                          test.screenshots_dir + "/dialog-" + std::to_string(id) + ".png");
            });
        }
        if (id == IDD_ERROR || id == IDD_MESSAGE) {
            say("the program says: " + host.get_dlg_item_text(d, IDC_ERROR_MESSAGE, 2048));
            if (test.drives_windows()) {
                after(1500, [this, d] { command(d, IDOK); });
            }
            return;
        }
        if (id != IDD_MAIN) {
            return;
        }
        main_window = d;
        if (!test.drives_windows()) {
            if (!test.screenshots_dir.empty()) {
                after(4000, [this] {
                    save_grab(host.widget(main_window), test.screenshots_dir + "/main-window.png");
                });
            }
            return;
        }
        main_started();
    }

    void main_started() {
        if (!test.output_dir.empty()) {
            QDir().mkpath(QString::fromStdString(test.output_dir));
            app->output_directory = test.output_dir;
        }
        say("main window up; output folder " + app->output_directory);
        command(main_window, IDC_PLAY);
        after(4000, [this] {
            std::string shot = test.screenshot;
            if (shot.empty() && !test.screenshots_dir.empty()) {
                shot = test.screenshots_dir + "/main-window.png";
            }
            save_grab(host.widget(main_window), shot);
            if (test.tour) {
                tour();
            } else if (!test.decoder_resolution.empty()) {
                decoder_pages();
            } else {
                capture();
            }
        });
    }

    void capture() {
        app->scene_detection = test.scenes;
        say(std::string(test.scenes ? "scene-detection capture" : "recording") + " for " +
            std::to_string(test.capture_seconds) + " s");
        command(main_window, IDC_RECORD);
        if (test.scenes) {
            // Stop is the dialog's Esc (IDCANCEL); the dialog then finishes by itself.
            when_top(IDD_SCENE_DETECT, [this](WindowHandle d) {
                say("scene-detection capture running");
                after(test.capture_seconds * 1000, [this, d] { command(d, IDCANCEL); });
                when_top(
                    IDD_MAIN, [this](WindowHandle) { quit(); }, 1000);
            });
        } else {
            after(test.capture_seconds * 1000, [this] {
                command(main_window, IDC_RECORD);
                after(2000, [this] { quit(); });
            });
        }
    }

    // Every dialog a person meets, in the order of a session: log a scene, list it,
    // batch-capture it, the options, seeking, and a scene-detection capture.
    void tour() {
        say("tour: set in point");
        command(main_window, IDC_SET_IN);
        when_top(
            IDD_TASK,
            [this](WindowHandle d) {
                command(d, IDOK);
                when_top(
                    IDD_MAIN,
                    [this](WindowHandle m) {
                        say("tour: set out point, scene list");
                        command(m, IDC_SET_OUT);
                        after(500, [this, m] { command(m, IDC_EDIT_SCENES); });
                        when_top(
                            IDD_SCENE_LIST,
                            [this](WindowHandle list) {
                                say("tour: batch capture of the scene list");
                                command(list, IDC_RECORD);
                                when_top(IDD_BATCH, [this](WindowHandle) {
                                    when_top(
                                        IDD_SCENE_LIST,
                                        [this](WindowHandle back) {
                                            command(back, IDOK);
                                            tour_options();
                                        },
                                        1000);
                                });
                            },
                            1500);
                    },
                    3000);
            },
            1500);
    }

    void tour_options() {
        when_top(
            IDD_MAIN,
            [this](WindowHandle m) {
                say("tour: properties");
                command(m, IDC_OPTIONS);
                when_top(
                    IDD_PROPERTIES,
                    [this](WindowHandle d) {
                        command(d, IDOK);
                        when_top(
                            IDD_MAIN,
                            [this](WindowHandle m2) {
                                say("tour: seek");
                                command(m2, IDC_SEEK);
                                when_top(
                                    IDD_SEEK,
                                    [this](WindowHandle s) {
                                        command(s, IDCANCEL);
                                        tour_scene_detection();
                                    },
                                    1500);
                            },
                            500);
                    },
                    1500);
            },
            500);
    }

    void tour_scene_detection() {
        when_top(
            IDD_MAIN,
            [this](WindowHandle m) {
                say("tour: scene-detection capture");
                app->scene_detection = true;
                command(m, IDC_RECORD);
                when_top(IDD_SCENE_DETECT, [this](WindowHandle d) {
                    after(8000, [this, d] { command(d, IDCANCEL); });
                    when_top(
                        IDD_MAIN, [this](WindowHandle) { quit(); }, 1000);
                });
            },
            500);
    }

    // The generic property dialog is Qt's own, not one of the templates: it is found as
    // the modal dialog that has the named editor.
    void when_property_frame(std::function<void(QDialog&, QComboBox&)> step) {
        after(250, [this, step = std::move(step)]() mutable {
            auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            auto* combo = dialog ? dialog->findChild<QComboBox*>("resolution") : nullptr;
            if (combo != nullptr) {
                step(*dialog, *combo);
            } else {
                when_property_frame(std::move(step));
            }
        });
    }

    void say_frame_size() {
        const auto [w, h] = host.presented_size(host.get_dlg_item(main_window, IDC_PREVIEW));
        say("preview frame " + std::to_string(w) + "x" + std::to_string(h));
    }

    // Properties, "DV Capture properties", a display resolution, OK; the preview is
    // watched before and after, and the page opened again shows what the decoder holds.
    void decoder_pages() {
        say_frame_size();
        command(main_window, IDC_OPTIONS);
        when_top(IDD_PROPERTIES, [this](WindowHandle d) {
            command(d, IDC_PROP_DV_PAGES);
            when_property_frame([this, d](QDialog& frame, QComboBox& combo) {
                say("decoder page \"" + frame.windowTitle().toStdString() + "\" offers " +
                    std::to_string(combo.count()) + " resolutions, shows " +
                    combo.currentText().toStdString());
                combo.setCurrentText(QString::fromStdString(test.decoder_resolution));
                frame.accept();
                when_top(IDD_PROPERTIES, [this, d](WindowHandle) {
                    command(d, IDOK);
                    when_top(
                        IDD_MAIN, [this](WindowHandle) { decoder_pages_again(); }, 3000);
                });
            });
        });
    }

    void decoder_pages_again() {
        say_frame_size();
        command(main_window, IDC_OPTIONS);
        when_top(IDD_PROPERTIES, [this](WindowHandle d) {
            command(d, IDC_PROP_DV_PAGES);
            when_property_frame([this, d](QDialog& frame, QComboBox& combo) {
                say("decoder resolution " + combo.currentText().toStdString());
                frame.reject();
                when_top(IDD_PROPERTIES, [this, d](WindowHandle) {
                    command(d, IDOK);
                    when_top(
                        IDD_MAIN, [this](WindowHandle) { quit(); }, 500);
                });
            });
        });
    }

    void quit() {
        say("quitting");
        command(main_window, IDC_QUIT);
    }

    kc::qt::QtDialogHost& host;
    SelfTest test;
    WindowHandle main_window = nullptr;
    std::map<WindowHandle, int> template_of;
    std::set<int> shot_taken;
};

}  // namespace

bool parse_self_test(const QStringList& args, SelfTest& test) {
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
        } else if (a == "--self-test-properties" && has_value) {
            test.decoder_resolution = args[++i].toStdString();
        } else if (a == "--scenes") {
            test.scenes = true;
        } else if (a == "--tour") {
            test.tour = true;
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
    if ((test.tour ? 1 : 0) + (test.capture_seconds > 0 ? 1 : 0) +
            (test.decoder_resolution.empty() ? 0 : 1) >
        1) {
        std::fprintf(stderr,
                     "kestrel-capture: --tour, --self-test-capture and --self-test-properties "
                     "exclude each other\n");
        return false;
    }
    return true;
}

void install_self_test(kc::qt::QtDialogHost& host, const SelfTest& test) {
    // Lives until the process ends: the host's hook refers to it.
    auto* driver = new Driver(host, test);
    driver->install();
}

}  // namespace kc::program
