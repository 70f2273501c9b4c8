#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/foundation/test_platform.h"
#include "ui/capdlg.h"

namespace {
// Records every routed call with its arguments.
class RecordingDialog : public CapDialog {
  public:
    std::vector<std::string> seen;
    WindowHandle hwnd_at_init = nullptr;
    WindowHandle item_at_init = nullptr;
    BrushHandle brush = reinterpret_cast<BrushHandle>(0x77);

  protected:
    void on_init_dialog() override {
        seen.push_back("init");
        hwnd_at_init = hwnd;
        item_at_init = item(1007);
    }
    BrushHandle on_ctlcolor_static(DcHandle, WindowHandle) override {
        seen.push_back("static");
        return brush;
    }
    BrushHandle on_ctlcolor_edit(DcHandle, WindowHandle) override {
        seen.push_back("edit");
        return brush;
    }
    BrushHandle on_ctlcolor_button(DcHandle, WindowHandle) override {
        seen.push_back("button");
        return brush;
    }
    void on_command(WParam w, LParam l) override {
        seen.push_back("command " + std::to_string(w) + " " + std::to_string(l));
    }
    void on_close() override { seen.push_back("close"); }
    void on_notify(LParam) override { seen.push_back("notify"); }
    void on_timer(WParam id) override { seen.push_back("timer " + std::to_string(id)); }
    void on_graph_event() override { seen.push_back("graph"); }
    void on_draw_item(WParam id, LParam) override { seen.push_back("draw " + std::to_string(id)); }
    void on_activate(bool active) override { seen.push_back(active ? "active" : "inactive"); }
};

class PlainDialog : public CapDialog {};
}  // namespace

TEST(DialogFramework, EveryRoutedMessageReachesItsOperationWithItsResult) {
    FoundationPlatform fakes;
    RecordingDialog d;
    WindowHandle w = open_dialog(fakes.host, d, 101);
    FakeDialogHost& h = fakes.host;
    // The window is known before init, so that item() works there.
    EXPECT_EQ(d.hwnd, w);
    EXPECT_EQ(d.hwnd_at_init, w);
    EXPECT_EQ(d.item_at_init, h.get_dlg_item(w, 1007));
    EXPECT_TRUE(h.called("set_prop(101,CapDlgThisPtr)"));
    const LResult brush = reinterpret_cast<LResult>(d.brush);

    EXPECT_EQ(h.send(w, wm::ctlcolor_static), brush);
    EXPECT_EQ(h.send(w, wm::ctlcolor_edit), brush);
    EXPECT_EQ(h.send(w, wm::ctlcolor_button), brush);
    EXPECT_EQ(h.send(w, wm::command, make_wparam(109, 1), 55), 1);
    EXPECT_EQ(h.send(w, wm::close), 1);
    NotifyHeader nh;
    EXPECT_EQ(h.send(w, wm::notify, 0, reinterpret_cast<LParam>(&nh)), 0);
    EXPECT_EQ(h.send(w, wm::timer, 3), 1);
    EXPECT_EQ(h.send(w, wm::graph_event), 1);
    DrawItem di;
    EXPECT_EQ(h.send(w, wm::draw_item, 102, reinterpret_cast<LParam>(&di)), 1);
    EXPECT_EQ(h.send(w, wm::activate, make_wparam(WA_CLICKACTIVE, 0)), 0);
    // Inactive and minimised: only the low word counts.
    EXPECT_EQ(h.send(w, wm::activate, make_wparam(WA_INACTIVE, 1)), 0);
    // Not routed: back to the dialog manager, reaching nothing.
    EXPECT_EQ(h.send(w, wm::size), 0);
    EXPECT_EQ(h.send(w, wm::set_font), 0);

    const std::vector<std::string> expected = {
        "init",
        "static",
        "edit",
        "button",
        "command " + std::to_string(make_wparam(109, 1)) + " 55",
        "close",
        "notify",
        "timer 3",
        "graph",
        "draw 102",
        "active",
        "inactive"};
    EXPECT_EQ(d.seen, expected);
}

TEST(DialogFramework, DefaultOperationsAnswerTheirFixedResults) {
    FoundationPlatform fakes;
    PlainDialog d;
    WindowHandle w = open_dialog(fakes.host, d, 504);
    EXPECT_EQ(fakes.host.send(w, wm::ctlcolor_edit), 0);  // null brush
    EXPECT_EQ(fakes.host.send(w, wm::close), 1);          // handled, yet the dialog stays
    EXPECT_FALSE(fakes.host.ended(w));
    EXPECT_EQ(fakes.host.send(w, wm::notify), 0);
}

TEST(DialogFramework, NothingIsDispatchedBeforeTheObjectIsAttached) {
    FoundationPlatform fakes;
    // A window that has not had wm::init_dialog: every routed message returns FALSE.
    RecordingDialog d;
    WindowHandle w = open_dialog(fakes.host, d, 600);
    fakes.host.remove_prop(w, "CapDlgThisPtr");
    d.seen.clear();
    for (unsigned m : {wm::command, wm::close, wm::timer, wm::graph_event, wm::draw_item,
                       wm::ctlcolor_static, wm::notify, wm::activate}) {
        EXPECT_EQ(fakes.host.send(w, m), 0) << m;
    }
    EXPECT_TRUE(d.seen.empty());
}

TEST(DialogFramework, DoModalReturnsTheEndCodeAndNestedDialogsWork) {
    FoundationPlatform fakes;
    class Outer : public CapDialog {
      protected:
        void on_command(WParam w, LParam) override {
            if (low_word(w) == 120) {
                PlainDialog inner;
                inner_result = inner.do_modal(hwnd, 400);
            } else {
                host().end_dialog(hwnd, 7);
            }
        }

      public:
        LResult inner_result = 0;
    } outer;
    fakes.host.script(100, [](FakeDialogHost& host, WindowHandle dlg) {
        host.command(dlg, 120);
        host.command(dlg, IDOK);
    });
    fakes.host.script(400, [](FakeDialogHost& host, WindowHandle dlg) { host.end_dialog(dlg, 3); });
    EXPECT_EQ(outer.do_modal(nullptr, 100), 7);
    EXPECT_EQ(outer.inner_result, 3);
    EXPECT_TRUE(fakes.host.called("dialog_box(400,100)"));
}

TEST(DialogFrameworkDeathTest, MissingControlStopsWithTheAssertion) {
    FoundationPlatform fakes;
    PlainDialog d;
    WindowHandle w = open_dialog(fakes.host, d, 102);
    fakes.host.remove_control(w, 999);
    EXPECT_DEATH(d.item(999), "Assertion failed: ret != NULL, file capdlg.cpp");
}
