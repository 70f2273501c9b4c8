// The one QApplication of a Qt test executable, on the offscreen platform, and a test
// dialog procedure that records what the Qt host sends it.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <utility>
#include <vector>

#include "platform/qt/qt_dialog_host.h"
#include "resources/resource_ids.h"

// The QApplication is never destroyed: Qt's own globals go first at exit, and a
// QApplication destroyed after them crashes.
inline QApplication& qt_test_app() {
    static int argc = 1;
    static char name[] = "kc-ui-test";
    static char* argv[] = {name, nullptr};
    static QApplication* app = [] {
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
        return new QApplication(argc, argv);
    }();
    return *app;
}

// What the test procedures saw; one per test, reached through a global because dialog
// procedures are plain functions.
struct Probe {
    kc::qt::QtDialogHost* host = nullptr;
    std::vector<std::pair<unsigned, WParam>> messages;  // message, wParam
    std::vector<NotifyHeader> notes;
    LResult close_result = 1;
    int timer_ticks = 0;
    int ticks_while_nested = 0;
    WindowHandle nested = nullptr;
    std::vector<unsigned> draw_states;
    std::atomic<int> graph_events{0};
    int expected_events = 0;
    BitmapHandle picture = nullptr;
    BitmapHandle pressed_picture = nullptr;

    int count(unsigned message, WParam wparam) const {
        int n = 0;
        for (const auto& [m, w] : messages) {
            n += m == message && w == wparam ? 1 : 0;
        }
        return n;
    }
    int commands(int id, unsigned code = 0) const {
        return count(wm::command, make_wparam(static_cast<unsigned>(id), code));
    }
};
inline Probe* probe = nullptr;

// Records every message and notification; ends on demand. Sizes template 100 from its
// skin as the main window does, gives display fields the main window's colours, and
// draws the owner-drawn buttons from the probe's pictures.
inline LResult recording_proc(WindowHandle dialog, unsigned message, WParam wparam, LParam lparam) {
    kc::qt::QtDialogHost& host = *probe->host;
    probe->messages.emplace_back(message, wparam);
    switch (message) {
        case wm::init_dialog:
            if (BitmapHandle skin = host.load_bitmap(IDB_SKIN, false)) {
                int w = 0;
                int h = 0;
                if (lparam == IDD_MAIN && host.bitmap_size(skin, w, h)) {
                    host.set_client_size(dialog, w, h);
                }
                host.delete_bitmap(skin);
            }
            return 1;
        case wm::close:
            return probe->close_result;
        case wm::notify:
            probe->notes.push_back(*reinterpret_cast<const NotifyHeader*>(lparam));
            return 0;
        case wm::ctlcolor_static: {
            auto dc = reinterpret_cast<DcHandle>(wparam);
            host.set_bk_color(dc, Rgb{0, 0, 0});
            host.set_text_color(dc, Rgb{149, 145, 143});
            host.set_bk_mode_transparent(dc);
            return reinterpret_cast<LResult>(host.stock_brush(StockBrush::black));
        }
        case wm::draw_item: {
            const auto* item = reinterpret_cast<const DrawItem*>(lparam);
            probe->draw_states.push_back(item->state);
            host.draw_bitmap(
                item->dc, item->rect.left, item->rect.top, item->rect.right, item->rect.bottom,
                (item->state & ODS_SELECTED) ? probe->pressed_picture : probe->picture);
            return 1;
        }
        case wm::graph_event:
            if (++probe->graph_events == probe->expected_events) {
                host.end_dialog(dialog, 7);
            }
            return 1;
        default:
            return 0;
    }
}

// A Qt host with the probe installed.
class QtHostTest : public ::testing::Test {
  protected:
    QtHostTest() {
        qt_test_app();
        probe = &p;
        p.host = &host;
    }
    ~QtHostTest() override { probe = nullptr; }

    // Runs `template_id` with `proc`; `drive` runs once the window is on screen.
    LResult run(int template_id, DialogProc proc, std::function<void(WindowHandle)> drive,
                LParam param = 0) {
        host.set_dialog_shown_hook([this, template_id, drive](WindowHandle d, int id) {
            if (id == template_id && drive) {
                drive(d);
            }
        });
        return host.dialog_box(template_id, nullptr, proc, param == 0 ? template_id : param);
    }
    // Runs `template_id` with the recording procedure, ending it after `drive`.
    void run_and_end(int template_id, std::function<void(WindowHandle)> drive) {
        run(template_id, &recording_proc, [&](WindowHandle d) {
            drive(d);
            host.end_dialog(d, 0);
        });
    }

    Probe p;
    kc::qt::QtDialogHost host;
};
