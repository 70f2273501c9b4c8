// The Qt host's windows and messages: template geometry, Enter/Esc/close box, timers
// through nested modal loops, owner-drawn pressed state, messages posted from other
// threads, the preview surface and drawing outside the paint cycle.

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>
#include <QWidget>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "platform/qt/dialog_units.h"
#include "platform/qt/qt_dialog_host.h"
#include "resources/dialog_template.h"
#include "resources/resource_ids.h"
#include "resources/skin_tables.h"
#include "tests/ui/qt_test_app.h"

using kc::qt::DialogUnits;
using kc::qt::QtDialogHost;

namespace {

constexpr unsigned open_nested = wm::user + 10;

// The outer dialog of the nesting test: a fast timer, and on request an inner dialog
// that stays open until the outer timer has fired three times inside it.
LResult outer_proc(WindowHandle dialog, unsigned message, WParam wparam, LParam) {
    QtDialogHost& host = *probe->host;
    switch (message) {
        case wm::init_dialog:
            host.set_timer(dialog, 5, 10);
            return 1;
        case wm::timer:
            if (wparam == 5) {
                ++probe->timer_ticks;
                if (probe->nested != nullptr && ++probe->ticks_while_nested == 3) {
                    host.end_dialog(probe->nested, 1);
                }
            }
            return 1;
        case open_nested:
            host.dialog_box(IDD_TASK, dialog, &recording_proc, 0);
            probe->nested = nullptr;
            host.end_dialog(dialog, 3);
            return 1;
        default:
            return 0;
    }
}

TEST_F(QtHostTest, TemplateFontUnitsPutTheSkinLayoutOnSixHundredBySixSixty) {
    const DialogUnits du = DialogUnits::for_font("MS Sans Serif", 8);
    EXPECT_EQ(du.x(440), 660);
    EXPECT_EQ(du.y(370), 600);
    EXPECT_EQ(du.x(4), 6);
    EXPECT_EQ(du.y(8), 13);  // 12.97 rounds up
    // Any other font is measured: units grow with the font.
    const DialogUnits small = DialogUnits::for_font("DejaVu Sans", 8);
    const DialogUnits large = DialogUnits::for_font("DejaVu Sans", 16);
    EXPECT_GT(large.x(100), small.x(100));
    EXPECT_GT(large.y(100), small.y(100));
}

TEST_F(QtHostTest, MainWindowControlsSitWhereTemplate100PutsThem) {
    const DialogTemplate* t = find_dialog_template(IDD_MAIN);
    ASSERT_NE(t, nullptr);
    const DialogUnits du = DialogUnits::for_font(t->font, t->font_points);
    int checked = 0;
    run_and_end(IDD_MAIN, [&](WindowHandle d) {
        QWidget* window = host.widget(d);
        ASSERT_NE(window, nullptr);
        EXPECT_EQ(window->size(), QSize(660, 600));
        EXPECT_EQ(window->windowTitle(), QString("Kestrel Capture"));
        for (const ControlTemplate& c : t->controls) {
            if (c.id == IDC_STATIC) {
                continue;
            }
            QWidget* w = host.widget(host.get_dlg_item(d, c.id));
            ASSERT_NE(w, nullptr) << c.id;
            EXPECT_EQ(w->geometry(), QRect(du.x(c.x), du.y(c.y), du.x(c.cx), du.y(c.cy))) << c.id;
            EXPECT_EQ(w->isVisibleTo(window), (c.style & style::WS_VISIBLE) != 0) << c.id;
            EXPECT_EQ(w->isEnabled(), (c.style & style::WS_DISABLED) == 0) << c.id;
            ++checked;
        }
        // The skin picture fills the client area and lies under every control: a point
        // on the Play button finds the button, not the skin.
        auto* skin = window->findChild<QLabel*>();
        ASSERT_NE(skin, nullptr);
        EXPECT_EQ(skin->geometry(), QRect(0, 0, 660, 600));
        QWidget* play = host.widget(host.get_dlg_item(d, IDC_PLAY));
        EXPECT_EQ(window->childAt(play->geometry().center()), play);
        EXPECT_EQ(host.get_dlg_item(d, 9999), nullptr);
        // A display field shows the whole of a text wider than its template font allows.
        host.set_dlg_item_text(d, IDC_DROPPED, "Unavailable");
        auto* dropped = static_cast<QLineEdit*>(host.widget(host.get_dlg_item(d, IDC_DROPPED)));
        EXPECT_LT(dropped->font().pixelSize(), window->font().pixelSize());
        EXPECT_LE(dropped->fontMetrics().horizontalAdvance(dropped->text()),
                  dropped->contentsRect().width());
        host.set_dlg_item_text(d, IDC_DROPPED, "000000");
        EXPECT_EQ(dropped->font().pixelSize(), window->font().pixelSize());
    });
    EXPECT_EQ(checked, 24);
    // The font arrives before the dialog is initialised, then WM_INITDIALOG.
    ASSERT_GE(p.messages.size(), 2u);
    EXPECT_EQ(p.messages[0].first, wm::set_font);
    EXPECT_EQ(p.messages[1].first, wm::init_dialog);
}

TEST_F(QtHostTest, EnterEscAndTheCloseBoxBecomeCommandsAsTheDialogManagerSendsThem) {
    run(IDD_TASK, &recording_proc, [&](WindowHandle d) {
        QWidget* window = host.widget(d);
        QTest::keyClick(window, Qt::Key_Return);
        EXPECT_EQ(p.commands(IDOK), 1);
        QTest::keyClick(window, Qt::Key_Escape);
        EXPECT_EQ(p.commands(IDCANCEL), 1);
        // A procedure that handles WM_CLOSE: nothing more happens, the window stays.
        p.close_result = 1;
        window->close();
        EXPECT_EQ(p.count(wm::close, 0), 1);
        EXPECT_EQ(p.commands(IDCANCEL), 1);
        EXPECT_TRUE(window->isVisible());
        // One that leaves it to the dialog manager gets IDCANCEL.
        p.close_result = 0;
        window->close();
        EXPECT_EQ(p.count(wm::close, 0), 2);
        EXPECT_EQ(p.commands(IDCANCEL), 2);
        // Enter in a text field still reaches the default button (IDOK).
        QWidget* name = host.widget(host.get_dlg_item(d, IDC_TASK_NAME));
        QTest::keyClick(name, Qt::Key_Return);
        EXPECT_EQ(p.commands(IDOK), 2);
        host.end_dialog(d, 42);
    });
}

TEST_F(QtHostTest, OuterTimersKeepFiringWhileANestedModalDialogRuns) {
    // The inner dialog opens from a posted message and ends from the outer's timer.
    host.set_dialog_shown_hook([&](WindowHandle d, int id) {
        if (id == IDD_SEEK) {
            host.post_message(d, open_nested, 0, 0);
        } else if (id == IDD_TASK) {
            p.nested = d;
            EXPECT_EQ(host.top_dialog(), d);
            EXPECT_NE(host.get_parent(d), nullptr);
            EXPECT_EQ(host.widget(d)->windowModality(), Qt::ApplicationModal);
        }
    });
    EXPECT_EQ(host.dialog_box(IDD_SEEK, nullptr, &outer_proc, 0), 3);
    EXPECT_EQ(p.ticks_while_nested, 3);
}

TEST_F(QtHostTest, OwnerDrawnButtonShowsThePressedPictureOnlyWhileHeldDown) {
    // The stand-in pictures of an art-less host: grey, and red-tinted when pressed.
    p.picture = host.load_bitmap(139, false);
    p.pressed_picture = host.load_bitmap(138, false);
    ASSERT_NE(p.picture, nullptr);
    int clicks = 0;
    run_and_end(IDD_MAIN, [&](WindowHandle d) {
        auto* play = static_cast<QAbstractButton*>(host.widget(host.get_dlg_item(d, IDC_PLAY)));
        const QImage normal = play->grab().toImage();
        ASSERT_FALSE(p.draw_states.empty());
        EXPECT_EQ(p.draw_states.back() & ODS_SELECTED, 0u);

        QTest::mousePress(play, Qt::LeftButton);
        const QImage pressed = play->grab().toImage();
        EXPECT_NE(p.draw_states.back() & ODS_SELECTED, 0u);
        // The stand-in pressed picture is red-tinted: more red than green.
        const QColor inside = pressed.pixelColor(5, 5);
        EXPECT_GT(inside.red(), inside.green() + 30);
        const QColor grey = normal.pixelColor(5, 5);
        EXPECT_LT(std::abs(grey.red() - grey.green()), 10);

        QTest::mouseRelease(play, Qt::LeftButton);
        play->grab();
        EXPECT_EQ(p.draw_states.back() & ODS_SELECTED, 0u);
        clicks = p.commands(IDC_PLAY);

        // Disabled, it still shows its normal picture and clicks give nothing.
        host.enable_window(host.get_dlg_item(d, IDC_PLAY), false);
        QTest::mouseClick(play, Qt::LeftButton);
        EXPECT_EQ(p.commands(IDC_PLAY), clicks);
    });
    EXPECT_EQ(clicks, 1);
    host.delete_bitmap(p.picture);
    host.delete_bitmap(p.pressed_picture);
}

TEST_F(QtHostTest, MessagesPostedFromOtherThreadsArriveOnTheUiThreadInOrder) {
    constexpr int per_thread = 200;
    p.expected_events = 2 * per_thread;
    std::vector<std::thread> senders;
    const LResult result = run(IDD_SEEK, &recording_proc, [&](WindowHandle d) {
        for (int t = 0; t < 2; ++t) {
            senders.emplace_back([this, d] {
                for (int i = 0; i < per_thread; ++i) {
                    EXPECT_TRUE(host.post_message(d, wm::graph_event, 0, 0));
                }
            });
        }
    });
    for (std::thread& t : senders) {
        t.join();
    }
    EXPECT_EQ(result, 7);
    EXPECT_EQ(p.graph_events.load(), 2 * per_thread);
}

// The code given to end_dialog is returned, an unknown template gives -1, and messages
// for a window that has ended are dropped.
TEST_F(QtHostTest, EndDialogCodeIsReturnedAndAnEndedWindowTakesNothing) {
    WindowHandle gone = nullptr;
    EXPECT_EQ(run(IDD_SEEK, &recording_proc,
                  [&](WindowHandle d) {
                      gone = d;
                      host.end_dialog(d, 42);
                  }),
              42);
    EXPECT_EQ(host.dialog_box(12345, nullptr, &recording_proc, 0), -1);
    EXPECT_EQ(host.top_dialog(), nullptr);
    const auto before = p.messages.size();
    EXPECT_TRUE(host.post_message(gone, wm::graph_event, 0, 0));
    QCoreApplication::processEvents();
    EXPECT_EQ(p.messages.size(), before);
    EXPECT_EQ(host.get_dlg_item(gone, IDC_SEEK_TRACK), nullptr);
    EXPECT_EQ(host.set_timer(gone, 1, 10), 0u);
}

TEST_F(QtHostTest, PaneSurfaceShowsTheNewestFramePresentedFromAnyThread) {
    run_and_end(IDD_MAIN, [&](WindowHandle d) {
        EXPECT_EQ(host.surface_for(host.get_dlg_item(d, IDC_PLAY)), nullptr);
        WindowHandle pane = host.get_dlg_item(d, IDC_PREVIEW);
        VideoSurface* surface = host.surface_for(pane);
        ASSERT_NE(surface, nullptr);
        EXPECT_EQ(host.surface_for(pane), surface);
        QWidget* w = host.widget(pane);
        EXPECT_EQ(w->grab().toImage().pixelColor(10, 10), QColor(Qt::black));

        // 8 x 4 pixels of B, G, R, X: pure red, with padding at the end of each row.
        constexpr int width = 8;
        constexpr int height = 4;
        constexpr int stride = width * 4 + 16;
        std::vector<std::uint8_t> frame(stride * height, 0xAB);
        for (int i = 0; i < width * height; ++i) {
            std::memcpy(&frame[static_cast<std::size_t>(i / width * stride + i % width * 4)],
                        "\x00\x00\xFF\x00", 4);
        }
        std::thread streaming([&] { surface->present(frame.data(), width, height, stride); });
        streaming.join();
        QCoreApplication::processEvents();
        const QImage shown = w->grab().toImage();
        EXPECT_EQ(shown.pixelColor(shown.rect().center()), QColor(255, 0, 0));
        // Scaled to the whole pane.
        EXPECT_EQ(shown.pixelColor(2, 2), QColor(255, 0, 0));
        EXPECT_EQ(shown.pixelColor(shown.width() - 3, shown.height() - 3), QColor(255, 0, 0));

        surface->clear();
        QCoreApplication::processEvents();
        EXPECT_EQ(w->grab().toImage().pixelColor(10, 10), QColor(Qt::black));
    });
}

TEST_F(QtHostTest, DrawingOutsideThePaintCycleStaysUntilItsAreaIsInvalidated) {
    run_and_end(IDD_MAIN, [&](WindowHandle d) {
        QWidget* window = host.widget(d);
        const QPoint at(skin::indicator_x + skin::indicator_width / 2,
                        skin::indicator_y + skin::indicator_height / 2);
        const QColor before = window->grab().toImage().pixelColor(at);
        BitmapHandle indicator = host.load_bitmap(IDB_INDICATOR, true);
        ASSERT_NE(indicator, nullptr);
        host.draw_bitmap_on_window(d, skin::indicator_x, skin::indicator_y, indicator);
        const QColor stamped = window->grab().toImage().pixelColor(at);
        EXPECT_NE(stamped, before);
        const Rect area{skin::indicator_x, skin::indicator_y,
                        skin::indicator_x + skin::indicator_width,
                        skin::indicator_y + skin::indicator_height};
        host.invalidate_rect(d, &area, false);
        EXPECT_EQ(window->grab().toImage().pixelColor(at), before);
        host.delete_bitmap(indicator);
    });
}

TEST_F(QtHostTest, TimersStopWithKillTimerAndWithTheirWindow) {
    struct Local {
        static LResult proc(WindowHandle d, unsigned m, WParam w, LParam) {
            if (m == wm::init_dialog) {
                probe->host->set_timer(d, 1, 10);
                probe->host->set_timer(d, 2, 10);
            } else if (m == wm::timer) {
                probe->messages.emplace_back(m, w);
                if (w == 1) {
                    probe->host->kill_timer(d, 1);
                } else if (++probe->timer_ticks == 5) {
                    probe->host->end_dialog(d, 0);
                }
            }
            return 0;
        }
    };
    host.dialog_box(IDD_SEEK, nullptr, &Local::proc, 0);
    EXPECT_EQ(p.count(wm::timer, 1), 1);
    EXPECT_EQ(p.count(wm::timer, 2), 5);
    const std::uint32_t t0 = host.tick_count();
    QTest::qWait(20);
    EXPECT_GE(host.tick_count() - t0, 20u);
    EXPECT_EQ(p.count(wm::timer, 2), 5);  // gone with the window
}

}  // namespace

namespace {

TEST(QtHostArt, BitmapsAndIconComeFromTheArtFoldersElseFromLabelledStandIns) {
    qt_test_app();
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QImage skin(660, 600, QImage::Format_RGB32);
    skin.fill(QColor(10, 200, 30));
    ASSERT_TRUE(skin.save(dir.path() + "/153.png"));
    QPixmap icon(32, 32);
    icon.fill(Qt::blue);
    ASSERT_TRUE(icon.save(dir.path() + "/kestrel-capture.png"));

    QtDialogHost host(kc::qt::HostOptions{{dir.path().toStdString()}});
    BitmapHandle found = host.load_bitmap(IDB_SKIN, false);
    ASSERT_NE(found, nullptr);
    EXPECT_TRUE(host.has_art(IDB_SKIN));
    // Not on disk, but in the skin tables: a stand-in at the table's size.
    BitmapHandle stand_in = host.load_bitmap(145, false);
    ASSERT_NE(stand_in, nullptr);
    EXPECT_FALSE(host.has_art(145));
    int w = 0;
    int h = 0;
    ASSERT_TRUE(host.bitmap_size(stand_in, w, h));
    EXPECT_EQ(QSize(w, h), QSize(62, 41));
    // Neither on disk nor in the tables: nothing.
    EXPECT_EQ(host.load_bitmap(4321, false), nullptr);
    EXPECT_FALSE(host.bitmap_size(nullptr, w, h));

    Probe p;
    probe = &p;
    p.host = &host;
    host.set_dialog_shown_hook([&](WindowHandle d, int) {
        auto* label = host.widget(d)->findChild<QLabel*>();
        ASSERT_NE(label, nullptr);
        EXPECT_EQ(label->pixmap().toImage().pixelColor(5, 5), QColor(10, 200, 30));
        host.set_big_icon(d, host.load_icon(IDI_MAIN));
        EXPECT_FALSE(host.widget(d)->windowIcon().isNull());
        host.end_dialog(d, 0);
    });
    host.dialog_box(IDD_MAIN, nullptr, &recording_proc, IDD_MAIN);
    probe = nullptr;
    host.delete_bitmap(found);
    host.delete_bitmap(stand_in);
}

}  // namespace
