// The batch and scene-detection progress dialogs and the seek dialog: the capture driven
// by the timer, abort, the clean end after an error, and the preview's way back to the
// main window.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/unit/ui/ui_rig.h"
#include "ui/capprogress.h"
#include "ui/capseek.h"

namespace {

const std::string batch_complete = "Batch complete! (7)";

template <class Dialog>
struct Progress {
    Progress(UiRig& rig_, MainWindow& main, int template_id) : rig(rig_) {
        window = open_dialog(rig.host, dialog, template_id, main.window);
    }
    UiRig& rig;
    Dialog dialog;
    WindowHandle window = nullptr;

    void tick() { rig.host.send(window, wm::timer, 1); }
    bool ended() const { return rig.host.ended(window); }
    LResult end_code() const { return rig.host.end_code(window); }
    int bar() { return rig.host.control(window, 601).progress_pos; }
    std::string text(int id) { return rig.host.text(window, id); }
    WindowHandle pane() { return rig.host.get_dlg_item(window, IDC_PREVIEW); }
};

void at_track(UiRig& rig, std::uint32_t track) {
    rig.deck.track = track;
}

std::vector<std::uint8_t> seek_bytes(long track) {
    const auto frame = seek_frame(track);
    return {frame.begin(), frame.end()};
}

}  // namespace

// --- Batch -------------------------------------------------------------------------------

TEST(BatchDialog, CapturesEveryScenePastItsOutPointThenPutsThePreviewBack) {
    UiRig rig;
    MainWindow main(rig);
    rig.add_scenes({{"A", 100}, {"B", 500}});
    Progress<CapBatchDialog> b(rig, main, IDD_BATCH);
    EXPECT_TRUE(rig.host.called("progress_set_range(601,0,100)"));
    EXPECT_TRUE(app->inbatch);
    EXPECT_EQ(b.dialog.preview_window, b.pane());
    EXPECT_EQ(rig.media.graph.owner, b.pane());  // the capture shows in the dialog
    EXPECT_EQ(rig.deck.raw_commands.back().bytes, seek_bytes(100));
    EXPECT_TRUE(rig.host.called("set_timer(600,1,250)"));

    at_track(rig, 150);
    b.tick();
    EXPECT_EQ(b.bar(), 25);
    at_track(rig, 200);  // at the out point: still capturing
    b.tick();
    EXPECT_EQ(rig.media.builder.output_paths.size(), 1u);
    at_track(rig, 201);
    b.tick();
    EXPECT_EQ(rig.deck.raw_commands.back().bytes, seek_bytes(500));
    at_track(rig, 520);
    b.tick();
    EXPECT_EQ(b.bar(), 60);
    EXPECT_TRUE(rig.messages().empty());
    EXPECT_FALSE(b.ended());

    at_track(rig, 601);
    b.tick();
    EXPECT_EQ(rig.messages(), std::vector<std::string>{batch_complete});
    EXPECT_TRUE(b.ended());
    EXPECT_EQ(b.end_code(), 1);
    EXPECT_TRUE(rig.host.called("kill_timer(600,1)"));
    EXPECT_FALSE(app->inbatch);
    EXPECT_TRUE(app->win->attached());
    EXPECT_EQ(rig.media.graph.owner, main.pane());
    ASSERT_EQ(rig.media.builder.output_paths.size(), 2u);
    EXPECT_NE(rig.media.builder.output_paths[0].find("A.avi"), std::string::npos);
    EXPECT_NE(rig.media.builder.output_paths[1].find("B.avi"), std::string::npos);
    EXPECT_TRUE(rig.host.template_misses.empty());
}

TEST(BatchDialog, AbortOrEscEndsOnTheNextTickAndTheCloseBoxDoesNothing) {
    UiRig rig;
    MainWindow main(rig);
    rig.add_scenes({{"A", 100}, {"B", 500}, {"C", 900}});
    Progress<CapBatchDialog> b(rig, main, IDD_BATCH);
    rig.host.send(b.window, wm::close);
    at_track(rig, 120);
    b.tick();
    EXPECT_FALSE(b.ended());
    rig.host.command(b.window, IDCANCEL);  // Abort and Esc send the same id
    EXPECT_TRUE(b.dialog.aborted);
    EXPECT_FALSE(b.ended());  // nothing happens at once
    b.tick();
    EXPECT_TRUE(b.ended());
    EXPECT_EQ(b.end_code(), 1);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{batch_complete});
    EXPECT_EQ(rig.media.builder.output_paths.size(), 1u);  // B and C never captured
    EXPECT_EQ(rig.media.graph.owner, main.pane());
    EXPECT_FALSE(app->inbatch);
}

TEST(BatchDialog, WithoutAPositionATickIsSkippedButAnAbortStillEnds) {
    UiRig rig;
    MainWindow main(rig);
    rig.add_scenes({{"A", 100}});
    Progress<CapBatchDialog> b(rig, main, IDD_BATCH);
    rig.deck.fail("get_timecode.timecode", E_FAIL);
    at_track(rig, 5000);  // far past the out point, but unreadable
    b.tick();
    b.tick();
    EXPECT_FALSE(b.ended());
    EXPECT_TRUE(app->inbatch);
    rig.host.command(b.window, IDCANCEL);
    b.tick();
    EXPECT_TRUE(b.ended());
    EXPECT_FALSE(app->inbatch);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{batch_complete});
}

TEST(BatchDialog, AFailingStepIsShownAndTheBatchEndsCleanly) {
    UiRig rig;
    MainWindow main(rig);
    rig.add_scenes({{"A", 100}, {"B", 500}});
    Progress<CapBatchDialog> b(rig, main, IDD_BATCH);
    rig.deck.fail("get_transport_basic_parameters", E_FAIL);  // the seek to B
    at_track(rig, 201);
    b.tick();
    EXPECT_EQ(rig.messages(), std::vector<std::string>{"DV Seek failed"});
    EXPECT_TRUE(b.ended());
    EXPECT_TRUE(rig.host.called("kill_timer(600,1)"));
    EXPECT_FALSE(app->inbatch);
    EXPECT_EQ(app->callback, nullptr);
    EXPECT_TRUE(app->win->attached());
    EXPECT_EQ(rig.media.graph.owner, main.pane());
    // The main window goes on working with the preview.
    main.command(102);
    EXPECT_EQ(main.dialog.state, 2);
    EXPECT_TRUE(app->win->running());
    EXPECT_EQ(rig.messages().size(), 1u);
}

TEST(BatchDialog, AFailingStartIsShownAndNothingKeepsRunning) {
    UiRig rig;
    MainWindow main(rig);
    rig.add_scenes({{"A", 100}});
    rig.deck.fail("get_transport_basic_parameters", E_FAIL);
    Progress<CapBatchDialog> b(rig, main, IDD_BATCH);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{"DV Seek failed"});
    EXPECT_TRUE(b.ended());
    EXPECT_EQ(b.end_code(), 0);
    EXPECT_EQ(rig.host.count("set_timer(600"), 0u);
    EXPECT_FALSE(app->inbatch);
    EXPECT_EQ(rig.media.graph.owner, main.pane());
}

TEST(BatchDialog, NoSceneOrNoDvDeviceStartsNothing) {
    {
        UiRig rig;
        MainWindow main(rig);
        const std::size_t mark = rig.media.ledger.calls.size();
        Progress<CapBatchDialog> b(rig, main, IDD_BATCH);
        EXPECT_TRUE(b.ended());
        EXPECT_TRUE(rig.media_since(mark, "").empty());
        EXPECT_FALSE(app->inbatch);
    }
    {
        UiRig rig(1);
        MainWindow main(rig);
        rig.add_scenes({{"A", 100}});
        const std::size_t mark = rig.media.ledger.calls.size();
        Progress<CapBatchDialog> b(rig, main, IDD_BATCH);
        EXPECT_EQ(rig.messages(), std::vector<std::string>{"Failed to get device interface (39)"});
        EXPECT_TRUE(b.ended());
        EXPECT_TRUE(rig.media_since(mark, "").empty());
        EXPECT_TRUE(app->win->running());
    }
}

TEST(BatchDialog, ProgressBarTruncatesAndToleratesOddFractions) {
    UiRig rig;
    MainWindow main(rig);
    rig.add_scenes({{"A", 100}});
    Progress<CapBatchDialog> b(rig, main, IDD_BATCH);
    b.dialog.progress(0.999f);
    EXPECT_EQ(b.bar(), 99);
    b.dialog.progress(0.0f);
    EXPECT_EQ(b.bar(), 0);
    b.dialog.progress(std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(b.bar(), 0);
    b.dialog.progress(std::numeric_limits<float>::infinity());
    EXPECT_EQ(b.bar(), 0);
    b.dialog.progress(3.0e9f);
    EXPECT_EQ(b.bar(), 100);
    rig.host.command(b.window, IDCANCEL);
    b.tick();
}

TEST(BatchDialog, TheEditorsRecordRunsItOverTheEditor) {
    UiRig rig;
    MainWindow main(rig);
    rig.add_scenes({{"A", 100}});
    rig.host.script(600, [&](FakeDialogHost& host, WindowHandle dlg) {
        rig.deck.track = 300;
        host.send(dlg, wm::timer, 1);
    });
    rig.host.script(400, [](FakeDialogHost& host, WindowHandle dlg) {
        host.command(dlg, 108);
        host.command(dlg, IDOK);
    });
    main.command(120);
    EXPECT_TRUE(rig.host.called("dialog_box(600,400)"));
    EXPECT_EQ(rig.messages(), std::vector<std::string>{batch_complete});
    EXPECT_EQ(rig.media.graph.owner, main.pane());
    EXPECT_EQ(transport_timer, 1u);
}

// --- Scene detection -----------------------------------------------------------------------

TEST(SceneDetectDialog, ShowsTheFileBeingWrittenAndEachStepsTimecode) {
    UiRig rig;
    MainWindow main(rig);
    rig.deck.timecode_bcd = bcd_timecode(0, 10, 0, 0);
    rig.media.builder.dropped.not_dropped = 250;  // every file long enough to keep
    Progress<CapSceneCaptureDialog> s(rig, main, IDD_SCENE_DETECT);
    ASSERT_TRUE(app->inbatch);
    const std::string first = s.text(1022);
    EXPECT_EQ(first.substr(first.size() - 6), " 1.avi");
    EXPECT_EQ(rig.media.graph.owner, s.pane());

    rig.deck.timecode_bcd = bcd_timecode(0, 10, 0, 7);
    s.tick();
    EXPECT_EQ(s.text(1021), "00:10:00:07");
    EXPECT_EQ(s.text(1022), first);

    rig.deck.timecode_bcd = bcd_timecode(0, 4, 10, 12);  // backwards: a new scene
    s.tick();
    EXPECT_EQ(s.text(1021), "00:04:10:12");
    const std::string second = s.text(1022);
    EXPECT_EQ(second.substr(second.size() - 6), " 2.avi");
    EXPECT_EQ(second.substr(0, second.size() - 6), first.substr(0, first.size() - 6));

    rig.host.send(s.window, wm::close);  // the close box does nothing
    EXPECT_FALSE(s.ended());
    rig.host.command(s.window, IDCANCEL);
    EXPECT_FALSE(s.ended());
    s.tick();
    EXPECT_TRUE(s.ended());
    EXPECT_EQ(s.end_code(), 1);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{batch_complete});
    EXPECT_FALSE(app->inbatch);
    EXPECT_EQ(rig.media.graph.owner, main.pane());
    EXPECT_TRUE(rig.host.template_misses.empty());
}

TEST(SceneDetectDialog, ATapeThatStopsEndsTheCapture) {
    UiRig rig;
    MainWindow main(rig);
    Progress<CapSceneCaptureDialog> s(rig, main, IDD_SCENE_DETECT);
    rig.deck.playing = media::OAFALSE;
    rig.deck.follow_modes = false;
    s.tick();
    EXPECT_TRUE(s.ended());
    EXPECT_EQ(rig.messages(), std::vector<std::string>{batch_complete});
}

TEST(SceneDetectDialog, AFailingStepIsShownAndEndsCleanly) {
    UiRig rig;
    MainWindow main(rig);
    rig.deck.timecode_bcd = bcd_timecode(0, 10, 0, 0);
    Progress<CapSceneCaptureDialog> s(rig, main, IDD_SCENE_DETECT);
    rig.media.builder.fail("set_output_file_name", E_ACCESSDENIED);
    rig.deck.timecode_bcd = bcd_timecode(0, 20, 0, 0);  // a break: the next file fails
    s.tick();
    EXPECT_EQ(rig.messages(), std::vector<std::string>{"Unable to set output filename"});
    EXPECT_TRUE(s.ended());
    EXPECT_TRUE(rig.host.called("kill_timer(701,1)"));
    EXPECT_FALSE(app->inbatch);
    EXPECT_TRUE(app->win->attached());
    EXPECT_EQ(rig.media.graph.owner, main.pane());
}

TEST(SceneDetectDialog, WithoutADvDeviceItIsRefused) {
    UiRig rig(1);
    MainWindow main(rig);
    const std::size_t mark = rig.media.ledger.calls.size();
    Progress<CapSceneCaptureDialog> s(rig, main, IDD_SCENE_DETECT);
    EXPECT_TRUE(s.ended());
    EXPECT_EQ(rig.messages(), std::vector<std::string>{"Failed to get device interface (39)"});
    EXPECT_TRUE(rig.media_since(mark, "").empty());
    EXPECT_FALSE(app->inbatch);
}

// --- Seek ----------------------------------------------------------------------------------

TEST(SeekDialog, OkWindsToTheTypedTrackAndAnEmptyBoxMeansZero) {
    for (auto [typed, track] :
         {std::pair{std::string("1500"), 1500L}, std::pair{std::string(""), 0L}}) {
        UiRig rig;
        MainWindow main(rig);
        CapSeekDialog seek;
        WindowHandle dlg = open_dialog(rig.host, seek, IDD_SEEK, main.window);
        rig.host.control(dlg, 114).text = typed;
        rig.host.command(dlg, IDOK);
        EXPECT_EQ(rig.deck.raw_commands.back().bytes, seek_bytes(track));
        EXPECT_TRUE(rig.host.ended(dlg));
        EXPECT_EQ(rig.host.end_code(dlg), 1);
        EXPECT_TRUE(rig.host.called("set_wait_cursor()"));
        EXPECT_EQ(rig.host.cursor, 0);
        EXPECT_TRUE(rig.host.template_misses.empty());
    }
}

TEST(SeekDialog, AFailingSeekIsShownWithTheNormalCursorAndTheDialogStays) {
    UiRig rig;
    MainWindow main(rig);
    rig.system.texts[E_FAIL] = "Unspecified error\r\n";
    CapSeekDialog seek;
    WindowHandle dlg = open_dialog(rig.host, seek, IDD_SEEK, main.window);
    rig.deck.fail("get_transport_basic_parameters", E_FAIL);
    rig.host.control(dlg, 114).text = "77";
    std::string system_text;
    rig.host.script(101, [&](FakeDialogHost& host, WindowHandle error) {
        EXPECT_EQ(host.cursor, 0);  // the cursor is back before the error shows
        system_text = host.text(error, 1006);
        host.command(error, IDOK);
    });
    rig.host.command(dlg, IDOK);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{"DV Seek failed"});
    EXPECT_EQ(system_text, "Unspecified error (-2147467259)");
    EXPECT_FALSE(rig.host.ended(dlg));
    EXPECT_EQ(rig.host.cursor, 0);
}

TEST(SeekDialog, CancelEscAndTheCloseBoxEndWithZero) {
    UiRig rig;
    MainWindow main(rig);
    for (bool by_close : {false, true}) {
        CapSeekDialog seek;
        WindowHandle dlg = open_dialog(rig.host, seek, IDD_SEEK, main.window);
        if (by_close) {
            rig.host.send(dlg, wm::close);
        } else {
            rig.host.command(dlg, IDCANCEL);
        }
        EXPECT_TRUE(rig.host.ended(dlg));
        EXPECT_EQ(rig.host.end_code(dlg), 0);
    }
    EXPECT_TRUE(rig.deck.raw_commands.empty());
}

TEST(SeekDialog, NoAttachedDeviceIsShownInsteadOfSeeking) {
    UiRig rig;
    MainWindow main(rig);
    app->dv->detach();
    CapSeekDialog seek;
    WindowHandle dlg = open_dialog(rig.host, seek, IDD_SEEK, main.window);
    rig.host.command(dlg, IDOK);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{"Failed to get device interface (39)"});
    EXPECT_FALSE(rig.host.ended(dlg));
    EXPECT_TRUE(rig.deck.raw_commands.empty());
}
