// The real dialogs of the capture station on the Qt host, clicked through as a person
// would: the application object runs over the media fakes, every window is the one the
// program shows.

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QCheckBox>
#include <QLineEdit>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "platform/qt/dialog_units.h"
#include "platform/qt/qt_dialog_host.h"
#include "resources/dialog_template.h"
#include "resources/resource_ids.h"
#include "resources/skin_tables.h"
#include "tests/fakes/fake_media.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/fake_settings_store.h"
#include "tests/ui/qt_test_app.h"
#include "ui/capmain.h"

using kc::qt::QtDialogHost;

namespace {

using Texts = std::vector<std::string>;

// The application over the media fakes, with the Qt host as its dialog host. Each
// dialog template can be given a script that runs once its window is on screen.
struct QtAppRig {
    QtAppRig() : init_app((qt_test_app(), 0)) {
        media.graph.host = &host;
        media.dv_camera.device_type = media::ED_DEVTYPE_VCR;
        system.existing_paths.insert(system.videos);
        owned = std::make_unique<CapApp>(platform);
        app = owned.get();
        app->output_directory = system.videos;
        app->video_device = 0;
        app->connect();
        app->build_preview();
        host.set_dialog_shown_hook([this](WindowHandle d, int id) {
            auto it = scripts.find(id);
            if (it != scripts.end() && !it->second.empty()) {
                auto script = std::move(it->second.front());
                it->second.erase(it->second.begin());
                // From the event loop, as a person's input arrives.
                QTimer::singleShot(0, &host, [script, d] { script(d); });
            }
        });
    }
    ~QtAppRig() {
        for (const auto& [id, left] : scripts) {
            EXPECT_TRUE(left.empty()) << "template " << id << " was not shown";
        }
        owned.reset();
        app = nullptr;
        main_window = nullptr;
        transport_timer = 0;
    }
    QtAppRig(const QtAppRig&) = delete;
    QtAppRig& operator=(const QtAppRig&) = delete;

    void on_shown(int template_id, std::function<void(WindowHandle)> script) {
        scripts[template_id].push_back(std::move(script));
    }
    LResult run_main() {
        CapMainDialog main;
        return main.do_modal(nullptr, IDD_MAIN);
    }
    QWidget* widget(WindowHandle d, int id) { return host.widget(host.get_dlg_item(d, id)); }
    void click(WindowHandle d, int id) {
        QWidget* w = widget(d, id);
        ASSERT_NE(w, nullptr) << id;
        // A check box takes clicks on its box and label only, so it is clicked at its box.
        const bool check = qobject_cast<QCheckBox*>(w) != nullptr;
        QTest::mouseClick(w, Qt::LeftButton, {},
                          QPoint(check ? 6 : w->width() / 2, w->height() / 2));
    }
    // Quits the main window once every dialog over it has gone.
    void quit_when_back(WindowHandle main) {
        QTimer::singleShot(10, &host, [this, main] {
            if (host.top_dialog() == main) {
                click(main, IDC_QUIT);
            } else {
                quit_when_back(main);
            }
        });
    }
    // The text of each message or error dialog, answered with Esc first (which must
    // not close it) and then Enter.
    void answer_messages(int how_many) {
        for (int i = 0; i < how_many; ++i) {
            on_shown(IDD_MESSAGE, [this](WindowHandle m) {
                messages.push_back(host.get_dlg_item_text(m, IDC_ERROR_MESSAGE, 1024));
                QTest::keyClick(host.widget(m), Qt::Key_Escape);
                esc_left_message_open = host.widget(m)->isVisible();
                QTest::keyClick(host.widget(m), Qt::Key_Return);
            });
        }
    }

    int init_app;
    QtDialogHost host;
    FakeSystem system;
    FakeSettingsStore store;  // nothing stored: every run starts from the defaults
    FakeMediaFactory media;
    CapPlatform platform{host, system, store, media};
    ScopedInstance scoped{platform};
    std::unique_ptr<CapApp> owned;
    std::map<int, std::vector<std::function<void(WindowHandle)>>> scripts;
    std::vector<std::string> messages;
    bool esc_left_message_open = false;
};

// The window on its skin with the controls where template 100 puts them and the
// transport of a deck; its close box stops the preview and ends it with zero.
TEST(QtAppWindows, MainWindowStartsOnItsSkinWithTheTransportOfADeckAndClosesWithItsBox) {
    QtAppRig rig;
    rig.on_shown(IDD_MAIN, [&](WindowHandle d) {
        QWidget* window = rig.host.widget(d);
        EXPECT_EQ(window->size(), QSize(660, 600));
        EXPECT_EQ(main_window, d);
        const DialogTemplate* t = find_dialog_template(IDD_MAIN);
        const auto du = kc::qt::DialogUnits::for_font(t->font, t->font_points);
        for (const ControlTemplate& c : t->controls) {
            if (c.id != IDC_STATIC) {
                EXPECT_EQ(rig.widget(d, c.id)->pos(), QPoint(du.x(c.x), du.y(c.y))) << c.id;
            }
        }
        EXPECT_EQ(rig.host.get_dlg_item_text(d, IDC_IN_POINT, 32), "00:00:00:00");
        EXPECT_EQ(rig.host.get_dlg_item_text(d, IDC_OUT_POINT, 32), "00:00:00:00");
        EXPECT_EQ(rig.host.get_dlg_item_text(d, IDC_DEVICE_TYPE, 32), "VCR");
        EXPECT_TRUE(rig.widget(d, IDC_FAST_FORWARD)->isEnabled());
        EXPECT_EQ(rig.widget(d, IDC_RECORD)->toolTip(), QString("Record"));
        EXPECT_TRUE(app->win->running());
        window->close();
    });
    EXPECT_EQ(rig.run_main(), 0);
    EXPECT_FALSE(app->win->running());
}

TEST(QtAppWindows, RecordTogglesTheRecordingAndItsBlinkingIndicator) {
    QtAppRig rig;
    rig.on_shown(IDD_MAIN, [&](WindowHandle d) {
        QWidget* window = rig.host.widget(d);
        const QPoint mark(skin::indicator_x + 4, skin::indicator_y + 4);
        QColor last = window->grab().toImage().pixelColor(mark);
        rig.click(d, IDC_RECORD);
        EXPECT_TRUE(app->recording);
        // The indicator turns on and off with the main window's timers; watch it change.
        int blinks = 0;
        for (int i = 0; i < 100 && blinks < 2; ++i) {
            QTest::qWait(100);
            const QColor now = window->grab().toImage().pixelColor(mark);
            blinks += now != last ? 1 : 0;
            last = now;
        }
        EXPECT_GE(blinks, 2);
        rig.click(d, IDC_RECORD);
        EXPECT_FALSE(app->recording);
        rig.click(d, IDC_QUIT);
    });
    EXPECT_EQ(rig.run_main(), 0);
}

TEST(QtAppWindows, SceneListEditorListsTheLoggedScenesAndLeavesOnlyThroughOk) {
    QtAppRig rig;
    for (const char* name : {"Beach", "Harbour"}) {
        Timecode in;
        in.clear();
        in.track = 1000;
        app->add_job(in)->name = name;
    }
    rig.on_shown(IDD_MAIN, [&](WindowHandle d) {
        rig.click(d, IDC_EDIT_SCENES);
        rig.quit_when_back(d);
    });
    rig.on_shown(IDD_SCENE_LIST, [&](WindowHandle editor) {
        auto* list = static_cast<QTreeWidget*>(rig.widget(editor, IDC_LIST_VIEW));
        QStringList names;
        for (int i = 0; i < list->topLevelItemCount(); ++i) {
            names << list->topLevelItem(i)->text(0);
        }
        EXPECT_EQ(names, (QStringList{"Beach", "Harbour"}));
        QTest::keyClick(rig.host.widget(editor), Qt::Key_Escape);
        EXPECT_TRUE(rig.host.widget(editor)->isVisible());
        rig.host.widget(editor)->close();
        EXPECT_TRUE(rig.host.widget(editor)->isVisible());
        rig.click(editor, IDOK);
    });
    EXPECT_EQ(rig.run_main(), 0);
}

TEST(QtAppWindows, PropertiesRefuseAnEmptySceneNameAndStoreOnClose) {
    QtAppRig rig;
    rig.answer_messages(1);
    rig.on_shown(IDD_MAIN, [&](WindowHandle d) {
        rig.click(d, IDC_OPTIONS);
        rig.quit_when_back(d);
    });
    rig.on_shown(IDD_PROPERTIES, [&](WindowHandle props) {
        auto* name = static_cast<QLineEdit*>(rig.widget(props, IDC_PROP_SCENE_NAME));
        EXPECT_EQ(name->text(), QString::fromStdString(app->scene_name));
        name->clear();
        // The close box asks to store; the empty name is refused with a message.
        rig.host.widget(props)->close();
        EXPECT_TRUE(rig.host.widget(props)->isVisible());
        QTest::keyClick(rig.host.widget(props), Qt::Key_Escape);
        EXPECT_TRUE(rig.host.widget(props)->isVisible());
        QTest::keyClicks(name, "Holiday");
        rig.click(props, IDC_PROP_SCENE_DETECTION);
        rig.click(props, IDOK);
    });
    const bool detection_before = app->scene_detection;
    EXPECT_EQ(rig.run_main(), 0);
    EXPECT_EQ(rig.messages, Texts{"You need to specify a scene name (6)"});
    EXPECT_TRUE(rig.esc_left_message_open);
    EXPECT_EQ(app->scene_name, "Holiday");
    EXPECT_NE(app->scene_detection, detection_before);
}

}  // namespace
