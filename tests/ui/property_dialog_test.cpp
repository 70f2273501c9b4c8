// The generic property dialog: one editor per property kind, only the user's changes
// come back, and Cancel or Esc give nothing.

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QSpinBox>
#include <QTabWidget>
#include <QTest>
#include <QTimer>
#include <functional>

#include "platform/qt/property_dialog.h"
#include "tests/ui/qt_test_app.h"

using kc::qt::PropertyItem;
using kc::qt::PropertyPage;

namespace {

std::vector<PropertyPage> decoder_pages() {
    using K = PropertyItem::Kind;
    const std::vector<std::string> qualities = {"fastest", "monochrome", "colour"};
    return {{"Video",
             {{"clamp-luma", "Clamp luma", "", K::boolean, true, 0, 0, {}, "false"},
              {"drop-factor", "Drop factor", "", K::integer, true, 1, 8, {}, "1"},
              {"quality", "Quality", "", K::choice, true, 0, 0, qualities, "colour"},
              {"gamma", "Gamma", "", K::real, true, 0.1, 4.0, {}, "1.5"}}},
            {"About",
             {{"name", "Name", "", K::text, false, 0, 0, {}, "dvdec0"},
              {"label", "Label", "", K::text, true, 0, 0, {}, ""}}}};
}

// Runs `act` on the dialog once it is open.
void when_open(std::function<void(QDialog&)> act) {
    QTimer::singleShot(0, [act] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(dialog, nullptr);
        act(*dialog);
    });
}

template <typename T>
T* editor(QDialog& d, const char* name) {
    T* w = d.findChild<T*>(name);
    EXPECT_NE(w, nullptr) << name;
    return w;
}

TEST(PropertyDialog, OkGivesBackOnlyWhatTheUserChanged) {
    qt_test_app();
    const auto pages = decoder_pages();
    when_open([](QDialog& d) {
        EXPECT_EQ(d.windowTitle(), QString("DV decoder"));
        editor<QCheckBox>(d, "clamp-luma")->setChecked(true);
        editor<QSpinBox>(d, "drop-factor")->setValue(20);           // beyond the range: held at 8
        editor<QComboBox>(d, "quality")->setCurrentText("colour");  // unchanged
        editor<QDoubleSpinBox>(d, "gamma")->setValue(1.5);          // unchanged
        EXPECT_FALSE(editor<QLineEdit>(d, "name")->isEnabled());
        editor<QLineEdit>(d, "label")->setText("deck");
        d.accept();
    });
    const auto changes = kc::qt::run_property_dialog(nullptr, "DV decoder", pages);
    ASSERT_TRUE(changes.has_value());
    EXPECT_EQ(*changes, (kc::qt::PropertyChanges{
                            {"clamp-luma", "true"}, {"drop-factor", "8"}, {"label", "deck"}}));
}

TEST(PropertyDialog, CancelAndEscGiveNothingAndAnUntouchedOkGivesNoChanges) {
    qt_test_app();
    const auto pages = decoder_pages();
    when_open([](QDialog& d) {
        editor<QCheckBox>(d, "clamp-luma")->setChecked(true);
        QTest::keyClick(&d, Qt::Key_Escape);
    });
    EXPECT_FALSE(kc::qt::run_property_dialog(nullptr, "DV decoder", pages).has_value());

    when_open([](QDialog& d) { d.accept(); });
    const auto none = kc::qt::run_property_dialog(nullptr, "DV decoder", pages);
    ASSERT_TRUE(none.has_value());
    EXPECT_TRUE(none->empty());

    // An element without properties still gets a dialog that says so.
    when_open([](QDialog& d) {
        EXPECT_NE(d.findChild<QTabWidget*>(), nullptr);
        d.reject();
    });
    EXPECT_FALSE(kc::qt::run_property_dialog(nullptr, "Empty", {PropertyPage{"General", {}}}));
}

}  // namespace
