#include "ui/self_test.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "platform/window.h"
#include "resources/resource_ids.h"

namespace kc::program {
namespace {

void usage() {
    std::fprintf(stderr,
                 "usage: kestrel-capture [--self-test-capture SECONDS [--scenes | --batch] |\n"
                 "                        --tour |\n"
                 "                        --self-test-properties RESOLUTION]\n"
                 "                       [--output DIR] [--screenshot FILE]\n"
                 "                       [--screenshots DIR]\n");
}

void say(const std::string& line) {
    std::printf("self-test: %s\n", line.c_str());
    std::fflush(stdout);
}

}  // namespace

bool parse_self_test(const std::vector<std::string>& args, SelfTest& test) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool has_value = i + 1 < args.size();
        if (a == "--self-test-capture" && has_value) {
            char* end = nullptr;
            const std::string& value = args[++i];
            const long seconds = std::strtol(value.c_str(), &end, 10);
            if (end == value.c_str() || *end != '\0' || seconds <= 0 || seconds > 3600) {
                std::fprintf(stderr, "kestrel-capture: --self-test-capture needs 1 to 3600 s\n");
                return false;
            }
            test.capture_seconds = static_cast<int>(seconds);
        } else if (a == "--self-test-properties" && has_value) {
            test.decoder_resolution = args[++i];
        } else if (a == "--scenes") {
            test.scenes = true;
        } else if (a == "--batch") {
            test.batch = true;
        } else if (a == "--tour") {
            test.tour = true;
        } else if (a == "--output" && has_value) {
            test.output_dir = args[++i];
        } else if (a == "--screenshot" && has_value) {
            test.screenshot = args[++i];
        } else if (a == "--screenshots" && has_value) {
            test.screenshots_dir = args[++i];
        } else if (a == "--help" || a == "-h") {
            usage();
            std::exit(0);
        } else {
            std::fprintf(stderr, "kestrel-capture: unknown argument %s\n", a.c_str());
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

void SelfTestDriver::install() {
    if (!test.drives_windows()) {
        return;
    }
    // However the run goes, it ends: a hung device must not hang the job.
    const int limit_s = test.tour ? 300 : test.capture_seconds + 90;
    host.after(limit_s * 1000, [] {
        std::fprintf(stderr, "self-test: timed out\n");
        std::_Exit(3);
    });
}

void SelfTestDriver::command(WindowHandle dialog, int id) {
    host.dialogs().post_message(dialog, wm::command, make_wparam(static_cast<unsigned>(id), 0), 0);
}

// Runs `step` once the dialog of `template_id` is the innermost one running, which is how
// a person would wait for a window to come up or for a child window to go.
void SelfTestDriver::when_top(int template_id, std::function<void(WindowHandle)> step,
                              int delay_ms) {
    host.after(250, [this, template_id, step = std::move(step), delay_ms]() mutable {
        const WindowHandle top = host.top_dialog();
        const auto it = template_of.find(top);
        if (top != nullptr && it != template_of.end() && it->second == template_id) {
            host.after(delay_ms, [step = std::move(step), top] { step(top); });
        } else {
            when_top(template_id, std::move(step), delay_ms);
        }
    });
}

void SelfTestDriver::save(WindowHandle window, const std::string& path) {
    if (window == nullptr || path.empty()) {
        return;
    }
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    if (host.save_picture(window, path)) {
        say("screenshot " + path);
    } else {
        std::fprintf(stderr, "self-test: cannot write the screenshot %s\n", path.c_str());
    }
}

void SelfTestDriver::shown(WindowHandle d, int id) {
    template_of[d] = id;
    if (!test.screenshots_dir.empty() && id != IDD_MAIN && shot_taken.insert(id).second) {
        // Progress dialogs are pictured once they show something.
        const int delay = id == IDD_BATCH || id == IDD_SCENE_DETECT ? 2000 : 700;
        host.after(delay, [this, d, id] {
            save(d, test.screenshots_dir + "/dialog-" + std::to_string(id) + host.picture_ending());
        });
    }
    if (id == IDD_ERROR || id == IDD_MESSAGE) {
        say("the program says: " + host.dialogs().get_dlg_item_text(d, IDC_ERROR_MESSAGE, 2048));
        if (test.drives_windows()) {
            host.after(1500, [this, d] { command(d, IDOK); });
        }
        return;
    }
    if (id != IDD_MAIN) {
        return;
    }
    main_window = d;
    if (!test.drives_windows()) {
        if (!test.screenshots_dir.empty()) {
            host.after(4000, [this] {
                save(main_window, test.screenshots_dir + "/main-window" + host.picture_ending());
            });
        }
        return;
    }
    main_started();
}

void SelfTestDriver::main_started() {
    if (!test.output_dir.empty()) {
        std::error_code ignored;
        std::filesystem::create_directories(test.output_dir, ignored);
        app->output_directory = test.output_dir;
    }
    say("main window up; output folder " + app->output_directory);
    command(main_window, IDC_PLAY);
    host.after(4000, [this] {
        std::string shot = test.screenshot;
        if (shot.empty() && !test.screenshots_dir.empty()) {
            shot = test.screenshots_dir + "/main-window" + host.picture_ending();
        }
        save(main_window, shot);
        if (test.tour) {
            tour();
        } else if (!test.decoder_resolution.empty()) {
            decoder_pages();
        } else if (test.batch) {
            log_scene(3);
        } else {
            capture();
        }
    });
}

// A scene logged as a person logs one while the tape plays: Set In, the scene's task
// dialog accepted as it comes, Set Out once the scene has played.
void SelfTestDriver::log_scene(int left) {
    if (left == 0) {
        batch_capture();
        return;
    }
    say("logging a scene of " + std::to_string(test.capture_seconds) + " s");
    command(main_window, IDC_SET_IN);
    when_top(IDD_TASK, [this, left](WindowHandle d) {
        command(d, IDOK);
        when_top(
            IDD_MAIN,
            [this, left](WindowHandle m) {
                command(m, IDC_SET_OUT);
                host.after(1000, [this, left] { log_scene(left - 1); });
            },
            test.capture_seconds * 1000);
    });
}

// The scene list's Record; once the batch is done, each scene's points on the tape are
// said, so that the files can be checked against them.
void SelfTestDriver::batch_capture() {
    command(main_window, IDC_EDIT_SCENES);
    when_top(
        IDD_SCENE_LIST,
        [this](WindowHandle list) {
            say("batch capture of the scene list");
            command(list, IDC_RECORD);
            when_top(IDD_BATCH, [this](WindowHandle) {
                when_top(
                    IDD_SCENE_LIST,
                    [this](WindowHandle back) {
                        for (const CapJob* job : *app->jobs) {
                            say("scene \"" + job->name + "\": capture start track " +
                                std::to_string(job->capture_start.track) + ", in track " +
                                std::to_string(job->in_point.track) + ", out track " +
                                std::to_string(job->out_point.track));
                        }
                        command(back, IDOK);
                        when_top(
                            IDD_MAIN, [this](WindowHandle) { quit(); }, 500);
                    },
                    1000);
            });
        },
        1000);
}

void SelfTestDriver::capture() {
    app->scene_detection = test.scenes;
    say(std::string(test.scenes ? "scene-detection capture" : "recording") + " for " +
        std::to_string(test.capture_seconds) + " s");
    command(main_window, IDC_RECORD);
    if (test.scenes) {
        // Stop is the dialog's Esc (IDCANCEL); the dialog then finishes by itself.
        when_top(IDD_SCENE_DETECT, [this](WindowHandle d) {
            say("scene-detection capture running");
            host.after(test.capture_seconds * 1000, [this, d] { command(d, IDCANCEL); });
            when_top(
                IDD_MAIN, [this](WindowHandle) { quit(); }, 1000);
        });
    } else {
        host.after(test.capture_seconds * 1000, [this] {
            command(main_window, IDC_RECORD);
            host.after(2000, [this] { quit(); });
        });
    }
}

// Every dialog a person meets, in the order of a session: log a scene, list it,
// batch-capture it, the options, seeking, and a scene-detection capture.
void SelfTestDriver::tour() {
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
                    host.after(500, [this, m] { command(m, IDC_EDIT_SCENES); });
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

void SelfTestDriver::tour_options() {
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

void SelfTestDriver::tour_scene_detection() {
    when_top(
        IDD_MAIN,
        [this](WindowHandle m) {
            say("tour: scene-detection capture");
            app->scene_detection = true;
            command(m, IDC_RECORD);
            when_top(IDD_SCENE_DETECT, [this](WindowHandle d) {
                host.after(8000, [this, d] { command(d, IDCANCEL); });
                when_top(
                    IDD_MAIN, [this](WindowHandle) { quit(); }, 1000);
            });
        },
        500);
}

void SelfTestDriver::say_frame_size() {
    const auto [w, h] = host.presented_size(host.dialogs().get_dlg_item(main_window, IDC_PREVIEW));
    say("preview frame " + std::to_string(w) + "x" + std::to_string(h));
}

// Properties, "DV Capture properties", a display resolution, OK; the preview is watched
// before and after, and the page opened again shows what the decoder holds.
void SelfTestDriver::decoder_pages() {
    say_frame_size();
    command(main_window, IDC_OPTIONS);
    when_top(IDD_PROPERTIES, [this](WindowHandle d) {
        command(d, IDC_PROP_DV_PAGES);
        const bool offered = host.when_property_frame([this, d](PropertyFrameView frame) {
            say("decoder page \"" + frame.title + "\" offers " +
                std::to_string(frame.resolutions_offered) + " resolutions, shows " +
                frame.resolution);
            frame.choose(test.decoder_resolution);
            when_top(IDD_PROPERTIES, [this, d](WindowHandle) {
                command(d, IDOK);
                when_top(
                    IDD_MAIN, [this](WindowHandle) { decoder_pages_again(); }, 3000);
            });
        });
        if (!offered) {
            say("this host cannot work the decoder's page");
            std::_Exit(2);
        }
    });
}

void SelfTestDriver::decoder_pages_again() {
    say_frame_size();
    if (!test.screenshots_dir.empty()) {
        std::string name = test.decoder_resolution;
        std::replace(name.begin(), name.end(), ' ', '-');
        save(main_window, test.screenshots_dir + "/main-window-" + name + host.picture_ending());
    }
    command(main_window, IDC_OPTIONS);
    when_top(IDD_PROPERTIES, [this](WindowHandle d) {
        command(d, IDC_PROP_DV_PAGES);
        host.when_property_frame([this, d](PropertyFrameView frame) {
            say("decoder resolution " + frame.resolution);
            frame.cancel();
            when_top(IDD_PROPERTIES, [this, d](WindowHandle) {
                command(d, IDOK);
                when_top(
                    IDD_MAIN, [this](WindowHandle) { quit(); }, 500);
            });
        });
    });
}

void SelfTestDriver::quit() {
    say("quitting");
    command(main_window, IDC_QUIT);
}

}  // namespace kc::program
