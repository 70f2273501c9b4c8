// Control operations of the Qt host on the real dialogs: texts and numbers, checks and
// radios, combo boxes, the list view and its double click, progress bars, and the
// notifications each sends.

#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QPalette>
#include <QProgressBar>
#include <QTest>
#include <QTreeWidget>
#include <functional>
#include <vector>

#include "platform/qt/qt_dialog_host.h"
#include "resources/resource_ids.h"
#include "tests/ui/qt_test_app.h"

namespace {

using QtControlsTest = QtHostTest;

TEST_F(QtControlsTest, TextsAndNumbersReadBackAsTheClassicEditGivesThem) {
    run_and_end(IDD_PROPERTIES, [&](WindowHandle d) {
        host.set_dlg_item_text(d, IDC_PROP_SCENE_NAME, "Holiday");
        EXPECT_EQ(host.get_dlg_item_text(d, IDC_PROP_SCENE_NAME, 260), "Holiday");
        // A buffer of n characters holds n - 1 of them.
        EXPECT_EQ(host.get_dlg_item_text(d, IDC_PROP_SCENE_NAME, 4), "Hol");
        EXPECT_EQ(host.get_dlg_item_text(d, IDC_PROP_SCENE_NAME, 0), "");
        // Multi-byte text is never cut inside a character.
        host.set_dlg_item_text(d, IDC_PROP_SCENE_NAME, "Fe\xC3\xA9s");
        EXPECT_EQ(host.get_dlg_item_text(d, IDC_PROP_SCENE_NAME, 4), "Fe");

        host.set_dlg_item_int(d, IDC_PROP_PREROLL, 25, false);
        EXPECT_EQ(host.get_dlg_item_text(d, IDC_PROP_PREROLL, 16), "25");
        EXPECT_EQ(host.get_dlg_item_int(d, IDC_PROP_PREROLL, false), 25u);
        host.set_dlg_item_int(d, IDC_PROP_SCENE_NAME, static_cast<std::uint32_t>(-3), true);
        EXPECT_EQ(host.get_dlg_item_text(d, IDC_PROP_SCENE_NAME, 16), "-3");
        EXPECT_EQ(static_cast<std::int32_t>(host.get_dlg_item_int(d, IDC_PROP_SCENE_NAME, true)),
                  -3);
        EXPECT_EQ(host.get_dlg_item_int(d, IDC_PROP_SCENE_NAME, false), 0u);
        host.set_dlg_item_text(d, IDC_PROP_SCENE_NAME, "12abc");
        EXPECT_EQ(host.get_dlg_item_int(d, IDC_PROP_SCENE_NAME, false), 0u);
        host.set_dlg_item_text(d, IDC_PROP_SCENE_NAME, " 7 ");
        EXPECT_EQ(host.get_dlg_item_int(d, IDC_PROP_SCENE_NAME, false), 7u);
        // Typing into a number field takes digits only.
        auto* preroll =
            static_cast<QLineEdit*>(host.widget(host.get_dlg_item(d, IDC_PROP_PREROLL)));
        preroll->clear();
        QTest::keyClicks(preroll, "4x2");
        EXPECT_EQ(host.get_dlg_item_text(d, IDC_PROP_PREROLL, 16), "42");
        // A missing control reads empty and takes nothing.
        host.set_dlg_item_text(d, 4242, "x");
        EXPECT_EQ(host.get_dlg_item_text(d, 4242, 10), "");
    });
    // Every change of a single-line edit is reported, also the program's own.
    EXPECT_GE(p.commands(IDC_PROP_PREROLL, EN_CHANGE), 1);
    EXPECT_GE(p.commands(IDC_PROP_SCENE_NAME, EN_CHANGE), 4);
}

TEST_F(QtControlsTest, ChecksAndRadiosFollowTheirTemplateGroups) {
    run_and_end(IDD_PROPERTIES, [&](WindowHandle d) {
        host.check_radio_button(d, IDC_PROP_DV_TYPE1, IDC_PROP_DV_TYPE2, IDC_PROP_DV_TYPE2);
        EXPECT_FALSE(host.is_dlg_button_checked(d, IDC_PROP_DV_TYPE1));
        EXPECT_TRUE(host.is_dlg_button_checked(d, IDC_PROP_DV_TYPE2));
        // The user's click moves the mark inside the group and reports the click.
        QTest::mouseClick(host.widget(host.get_dlg_item(d, IDC_PROP_DV_TYPE1)), Qt::LeftButton, {},
                          QPoint(5, 5));
        EXPECT_TRUE(host.is_dlg_button_checked(d, IDC_PROP_DV_TYPE1));
        EXPECT_FALSE(host.is_dlg_button_checked(d, IDC_PROP_DV_TYPE2));
        EXPECT_EQ(p.commands(IDC_PROP_DV_TYPE1, 0), 1);

        host.check_dlg_button(d, IDC_PROP_SCENE_DETECTION, true);
        EXPECT_TRUE(host.is_dlg_button_checked(d, IDC_PROP_SCENE_DETECTION));
        QTest::mouseClick(host.widget(host.get_dlg_item(d, IDC_PROP_SCENE_DETECTION)),
                          Qt::LeftButton, {}, QPoint(5, 5));
        EXPECT_FALSE(host.is_dlg_button_checked(d, IDC_PROP_SCENE_DETECTION));
        // Radios are independent of the check box: still as the click left them.
        EXPECT_TRUE(host.is_dlg_button_checked(d, IDC_PROP_DV_TYPE1));
        // A button that is not a check reads unchecked.
        EXPECT_FALSE(host.is_dlg_button_checked(d, IDC_PROP_BROWSE));
    });
}

TEST_F(QtControlsTest, ComboSelectionIsSilentForTheProgramAndReportedForTheUser) {
    run_and_end(IDD_PROPERTIES, [&](WindowHandle d) {
        WindowHandle combo = host.get_dlg_item(d, IDC_PROP_DEVICE);
        EXPECT_EQ(host.combo_add_string(combo, "Virtual DV deck"), 0);
        EXPECT_EQ(host.combo_add_string(combo, "Webcam"), 1);
        EXPECT_EQ(host.combo_get_cur_sel(combo), -1);
        host.combo_set_cur_sel(combo, 1);
        EXPECT_EQ(host.combo_get_cur_sel(combo), 1);
        host.combo_set_cur_sel(combo, 5);
        EXPECT_EQ(host.combo_get_cur_sel(combo), -1);
        EXPECT_EQ(p.commands(IDC_PROP_DEVICE, CBN_SELCHANGE), 0);

        static_cast<QComboBox*>(host.widget(combo))->setCurrentIndex(0);  // as the user
        EXPECT_EQ(p.commands(IDC_PROP_DEVICE, CBN_SELCHANGE), 1);
        EXPECT_EQ(host.combo_get_cur_sel(combo), 0);
        EXPECT_EQ(host.combo_add_string(host.get_dlg_item(d, IDC_PROP_BROWSE), "x"), -1);
    });
}

TEST_F(QtControlsTest, ListViewHoldsColumnsAndRowsAndReportsADoubleClick) {
    run_and_end(IDD_SCENE_LIST, [&](WindowHandle d) {
        WindowHandle list = host.get_dlg_item(d, IDC_LIST_VIEW);
        host.list_insert_column(list, 0, "Name", 120);
        host.list_insert_column(list, 1, "Out", 80);
        host.list_insert_column(list, 1, "In", 80);
        auto* tree = static_cast<QTreeWidget*>(host.widget(list));
        ASSERT_EQ(tree->columnCount(), 3);
        EXPECT_EQ(tree->headerItem()->text(1), QString("In"));
        EXPECT_EQ(tree->columnWidth(0), 120);

        host.list_insert_item(list, 0, "Scene 2");
        host.list_insert_item(list, 0, "Scene 1");
        host.list_insert_item(list, 99, "Scene 3");
        host.list_set_item_text(list, 0, 1, "00:00:01:00");
        host.list_set_item_text(list, 7, 1, "ignored");
        EXPECT_EQ(host.list_get_item_count(list), 3);
        EXPECT_EQ(tree->topLevelItem(0)->text(0), QString("Scene 1"));
        EXPECT_EQ(tree->topLevelItem(0)->text(1), QString("00:00:01:00"));
        EXPECT_EQ(tree->topLevelItem(2)->text(0), QString("Scene 3"));

        EXPECT_FALSE(host.list_is_item_selected(list, 1));
        tree->topLevelItem(1)->setSelected(true);
        EXPECT_TRUE(host.list_is_item_selected(list, 1));
        EXPECT_FALSE(host.list_is_item_selected(list, 5));

        tree->doItemsLayout();
        const QRect row = tree->visualItemRect(tree->topLevelItem(1));
        ASSERT_FALSE(row.isEmpty());
        QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, row.center());
        QTest::mouseDClick(tree->viewport(), Qt::LeftButton, {}, row.center());
        ASSERT_EQ(p.notes.size(), 1u);
        EXPECT_EQ(p.notes[0].code, NM_DBLCLK);
        EXPECT_EQ(p.notes[0].id, static_cast<std::uintptr_t>(IDC_LIST_VIEW));
        EXPECT_EQ(p.notes[0].from, list);

        host.list_delete_all_items(list);
        EXPECT_EQ(host.list_get_item_count(list), 0);
    });
}

TEST_F(QtControlsTest, ProgressBarClampsLikeTheClassicBar) {
    run_and_end(IDD_BATCH, [&](WindowHandle d) {
        WindowHandle bar = host.get_dlg_item(d, IDC_BATCH_PROGRESS);
        auto* widget = static_cast<QProgressBar*>(host.widget(bar));
        EXPECT_EQ(widget->maximum(), 100);
        host.progress_set_range(bar, 0, 1000);
        host.progress_set_pos(bar, 250);
        EXPECT_EQ(widget->value(), 250);
        host.progress_set_pos(bar, 5000);
        EXPECT_EQ(widget->value(), 1000);
        host.progress_set_pos(bar, -4);
        EXPECT_EQ(widget->value(), 0);
    });
}

TEST_F(QtControlsTest, DisplayFieldsTakeTheColoursTheirDialogChooses) {
    run_and_end(IDD_MAIN, [&](WindowHandle d) {
        QWidget* field = host.widget(host.get_dlg_item(d, IDC_TIMECODE));
        EXPECT_FALSE(field->isEnabled());
        const QPalette p = field->palette();
        EXPECT_EQ(p.color(QPalette::Disabled, QPalette::Text), QColor(149, 145, 143));
        EXPECT_EQ(p.color(QPalette::Disabled, QPalette::Base), QColor(0, 0, 0));
        // Enabled again, the field asks as an edit; this procedure leaves that to the
        // defaults.
        host.enable_window(host.get_dlg_item(d, IDC_TIMECODE), true);
        EXPECT_NE(field->palette().color(QPalette::Active, QPalette::Base), QColor(0, 0, 0));
    });
}

TEST_F(QtControlsTest, TooltipsAndWaitCursor) {
    run_and_end(IDD_MAIN, [&](WindowHandle d) {
        WindowHandle tip = host.create_tooltip(d);
        ASSERT_NE(tip, nullptr);
        WindowHandle record = host.get_dlg_item(d, IDC_RECORD);
        host.add_tool(tip, record, IDC_RECORD, host.get_client_rect(record), "Record");
        EXPECT_EQ(host.widget(record)->toolTip(), QString("Record"));

        CursorHandle normal = host.set_wait_cursor();
        EXPECT_EQ(QApplication::overrideCursor()->shape(), Qt::WaitCursor);
        CursorHandle wait = host.set_wait_cursor();
        EXPECT_NE(normal, wait);
        host.set_cursor(normal);
        EXPECT_EQ(QApplication::overrideCursor(), nullptr);
    });
}

}  // namespace
