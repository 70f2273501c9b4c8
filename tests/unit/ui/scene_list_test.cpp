// The scene list editor and the task dialog: rows in list order with their two text
// forms, edit, delete, selection rules, and the task dialog's unsigned tracks and
// preroll arithmetic.

#include <gtest/gtest.h>

#include "tests/unit/ui/ui_rig.h"
#include "ui/capedit.h"

namespace {

struct Editor : Opened<CapEditDialog> {
    explicit Editor(UiRig& rig_) : Opened(rig_, IDD_SCENE_LIST, nullptr) {}
    FakeDialogHost::Window& list() { return rig.host.control(window, 401); }
    std::vector<std::vector<std::string>> rows() { return list().rows; }
    void select(std::initializer_list<int> rows_) { list().selected_rows = std::set<int>(rows_); }
    void double_click() {
        NotifyHeader header;
        header.from = rig.host.get_dlg_item(window, 401);
        header.id = 401;
        header.code = NM_DBLCLK;
        rig.host.send(window, wm::notify, 401, reinterpret_cast<LParam>(&header));
    }
};

// Answers the task dialog with these box texts and OK.
FakeDialogHost::Script task_ok(std::string name, std::string start, std::string end) {
    return [=](FakeDialogHost& host, WindowHandle dlg) {
        host.control(dlg, 503).text = name;
        host.control(dlg, 501).text = start;
        host.control(dlg, 502).text = end;
        host.command(dlg, IDOK);
    };
}

}  // namespace

// Three scenes whose timecode texts differ from their tracks, as logged from a tape.
struct SceneListEditor : ::testing::Test {
    SceneListEditor() {
        rig.add_scenes({{"A", 1000}, {"B", 12000}, {"C", 25000}});
        app->job_at(1)->capture_start.seconds = 3;
        app->job_at(1)->capture_start.frames = 10;
    }
    UiRig rig;
};

TEST_F(SceneListEditor, RowsAreInListOrderWithTimecodeText) {
    Editor e(rig);
    EXPECT_EQ(e.list().columns, (std::vector<std::string>{"Scene name", "Start", "End"}));
    rig.expect_called({"list_insert_column(0,Scene name,100)", "list_insert_column(1,Start,80)",
                       "list_insert_column(2,End,80)"});
    EXPECT_EQ(e.rows(), (std::vector<std::vector<std::string>>{
                            {"A", "00:01:00:00", "00:01:00:00"},
                            {"B", "00:12:03:10", "00:12:00:00"},
                            {"C", "00:25:00:00", "00:25:00:00"},
                        }));
}

// Properties and a double click edit the selected scene; its row is refreshed with
// tracks, shown unsigned.
TEST_F(SceneListEditor, EditingTheSelectedSceneRefreshesItsRowWithTracksUnsigned) {
    Editor e(rig);
    app->preroll = 25;
    e.select({1});
    rig.host.script(504, [](FakeDialogHost& host, WindowHandle dlg) {
        EXPECT_EQ(host.text(dlg, 503), "B");
        task_ok("B2", "100", "400")(host, dlg);
    });
    e.command(109);
    EXPECT_EQ(app->job_at(1)->name, "B2");
    EXPECT_EQ(app->job_at(1)->capture_start.track, 75);
    EXPECT_EQ(e.rows()[1], (Texts{"B2", "75", "400"}));
    EXPECT_EQ(e.rows()[0], (Texts{"A", "00:01:00:00", "00:01:00:00"}));
    EXPECT_EQ(e.rows()[2][1], "00:25:00:00");

    app->preroll = 150;
    e.select({0});
    rig.host.script(504, task_ok("A", "100", "4294967295"));
    e.double_click();
    EXPECT_EQ(app->job_at(0)->capture_start.track, -50);
    EXPECT_EQ(app->job_at(0)->out_point.track, -1);
    EXPECT_EQ(e.rows()[0], (Texts{"A", "4294967246", "4294967295"}));
}

TEST_F(SceneListEditor, DeleteRemovesTheFirstSelectedSceneAndRefills) {
    Editor e(rig);
    const auto before = e.rows();
    e.select({1});
    e.command(402);
    ASSERT_EQ(app->jobs->size(), 2u);
    EXPECT_EQ(app->job_at(0)->name, "A");
    EXPECT_EQ(app->job_at(1)->name, "C");
    EXPECT_EQ(e.rows(), (std::vector{before[0], before[2]}));
    // With two rows selected, the first counts.
    e.select({0, 1});
    e.command(402);
    ASSERT_EQ(app->jobs->size(), 1u);
    EXPECT_EQ(app->job_at(0)->name, "C");
    EXPECT_EQ(e.rows().size(), 1u);
}

// With nothing selected every action asks for an entry; a cancelled edit leaves the row.
TEST_F(SceneListEditor, NothingSelectedAsksForAnEntryAndACancelledEditLeavesTheRow) {
    Editor e(rig);
    const auto before = e.rows();
    e.command(109);
    e.command(402);
    e.double_click();
    const std::string ask = "You need to select an entry (4)";
    EXPECT_EQ(rig.messages(), (Texts{ask, ask, ask}));
    EXPECT_EQ(rig.host.count("dialog_box(504"), 0u);
    e.select({2});
    rig.host.script(504, [](FakeDialogHost& host, WindowHandle dlg) {
        host.control(dlg, 503).text = "changed";
        host.command(dlg, IDCANCEL);
    });
    e.command(109);
    EXPECT_EQ(rig.host.count("dialog_box(504"), 1u);
    EXPECT_EQ(e.rows(), before);
    EXPECT_EQ(app->job_at(2)->name, "C");
    EXPECT_EQ(app->jobs->size(), 3u);
}

TEST_F(SceneListEditor, OnlyOkCloses) {
    Editor e(rig);
    e.command(IDCANCEL);
    e.send(wm::close);
    NotifyHeader end_edit{nullptr, 401, -106};  // end of an in-place label edit
    rig.host.send(e.window, wm::notify, 401, reinterpret_cast<LParam>(&end_edit));
    EXPECT_FALSE(e.ended());
    e.command(IDOK);
    EXPECT_TRUE(e.ended());
    EXPECT_EQ(e.end_code(), 1);
}

TEST(SceneListEditorEmpty, RecordWithAnEmptyListStartsNothing) {
    UiRig rig;
    Editor e(rig);
    const std::size_t mark = rig.media.ledger.calls.size();
    e.command(108);
    EXPECT_EQ(rig.messages(), Texts{"Specify a start point first (2)"});
    EXPECT_EQ(rig.host.count("dialog_box(600"), 0u);
    EXPECT_TRUE(rig.media_since(mark, "").empty());
}

TEST(TaskDialog, ShowsTracksUnsignedAndStoresStartLessPreroll) {
    UiRig rig;
    rig.add_scenes({{"kestrel 001", 120}});
    CapJob* job = app->job_at(0);
    job->out_point.clear();
    app->preroll = 25;
    rig.host.script(504, [](FakeDialogHost& host, WindowHandle dlg) {
        EXPECT_EQ(host.text(dlg, 503), "kestrel 001");
        EXPECT_EQ(host.text(dlg, 501), "120");
        EXPECT_EQ(host.text(dlg, 502), "0");
        host.command(dlg, IDOK);
    });
    EXPECT_TRUE(job->edit(nullptr));
    EXPECT_EQ(job->in_point.track, 120);
    EXPECT_EQ(job->capture_start.track, 95);
    EXPECT_EQ(job->out_point.track, 0);
    // Only tracks and the name change; the timecode parts stay as read.
    EXPECT_EQ(job->capture_start.minutes, 0);

    job->in_point.track = -1;
    rig.host.script(504, [](FakeDialogHost& host, WindowHandle dlg) {
        EXPECT_EQ(host.text(dlg, 501), "4294967295");
        host.command(dlg, IDCANCEL);
    });
    EXPECT_FALSE(job->edit(nullptr));
    EXPECT_EQ(job->in_point.track, -1);
}

TEST(TaskDialog, EmptyNameKeepsItOpenAndEmptyBoxesReadZero) {
    UiRig rig;
    rig.add_scenes({{"x", 500}});
    CapJob* job = app->job_at(0);
    Opened<CapTaskDialog> task(rig, IDD_TASK, nullptr, job);
    task.control(503).text = "";
    task.command(IDOK);
    EXPECT_FALSE(task.ended());
    EXPECT_TRUE(rig.messages().empty());
    EXPECT_EQ(job->name, "x");
    task.send(wm::close);  // the close box does nothing
    EXPECT_FALSE(task.ended());
    task.control(503).text = "y";
    task.control(501).text = "";
    task.control(502).text = "";
    task.command(IDOK);
    EXPECT_TRUE(task.ended());
    EXPECT_EQ(task.end_code(), 1);
    EXPECT_EQ(job->name, "y");
    EXPECT_EQ(job->in_point.track, 0);
    EXPECT_EQ(job->out_point.track, 0);
}
