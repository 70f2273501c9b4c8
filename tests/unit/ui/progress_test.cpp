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

const Texts batch_complete = {"Batch complete! (7)"};
const Texts no_device = {"Failed to get device interface (39)"};

template <class Dialog>
struct Progress : Opened<Dialog> {
    Progress(UiRig& rig_, MainWindow& main_, int template_id_)
        : Opened<Dialog>(rig_, template_id_, main_.window), main(main_) {}
    MainWindow& main;

    void tick() { this->timer(1); }
    void tick_at(std::uint32_t track) {
        this->rig.deck.track = track;
        tick();
    }
    int bar() { return this->control(601).progress_pos; }
    // Ended cleanly: these messages shown, the timer stopped, out of the batch, and the
    // preview back in the main window.
    void expect_clean_end(const Texts& messages) {
        EXPECT_EQ(this->rig.messages(), messages);
        EXPECT_TRUE(this->ended());
        EXPECT_TRUE(
            this->rig.host.called("kill_timer(" + std::to_string(this->template_id) + ",1)"));
        EXPECT_FALSE(app->inbatch);
        EXPECT_TRUE(app->win->attached());
        EXPECT_EQ(this->rig.media.graph.owner, main.pane());
    }
};
using Batch = Progress<CapBatchDialog>;
using SceneDetect = Progress<CapSceneCaptureDialog>;

std::vector<std::uint8_t> seek_bytes(long track) {
    const auto frame = seek_frame(track);
    return {frame.begin(), frame.end()};
}

}  // namespace

// --- Batch -------------------------------------------------------------------------------

TEST_F(MainWindowTest, BatchCapturesEveryScenePastItsOutPointThenPutsThePreviewBack) {
    rig.add_scenes({{"A", 100}, {"B", 500}});
    Batch b(rig, w, IDD_BATCH);
    EXPECT_TRUE(rig.host.called("progress_set_range(601,0,100)"));
    EXPECT_TRUE(app->inbatch);
    EXPECT_EQ(b.dialog.preview_window, b.pane());
    EXPECT_EQ(rig.media.graph.owner, b.pane());  // the capture shows in the dialog
    EXPECT_EQ(rig.deck.raw_commands.back().bytes, seek_bytes(100));
    EXPECT_TRUE(rig.host.called("set_timer(600,1,250)"));

    b.tick_at(150);
    EXPECT_EQ(b.bar(), 25);
    b.tick_at(200);  // at the out point: still capturing
    EXPECT_EQ(rig.media.builder.output_paths.size(), 1u);
    b.tick_at(201);
    EXPECT_EQ(rig.deck.raw_commands.back().bytes, seek_bytes(500));
    b.tick_at(520);
    EXPECT_EQ(b.bar(), 60);
    EXPECT_TRUE(rig.messages().empty());
    EXPECT_FALSE(b.ended());

    b.tick_at(601);
    b.expect_clean_end(batch_complete);
    EXPECT_EQ(b.end_code(), 1);
    ASSERT_EQ(rig.media.builder.output_paths.size(), 2u);
    EXPECT_NE(rig.media.builder.output_paths[0].find("A.avi"), std::string::npos);
    EXPECT_NE(rig.media.builder.output_paths[1].find("B.avi"), std::string::npos);
}

// Abort and Esc send the same id; nothing happens at once, the next tick ends. The
// close box does nothing. Without a readable position a tick is skipped, but an abort
// still ends.
TEST(BatchDialog, AbortOrEscEndsOnTheNextTickAndTheCloseBoxDoesNothing) {
    for (bool readable : {true, false}) {
        UiRig rig;
        MainWindow main(rig);
        rig.add_scenes({{"A", 100}, {"B", 500}, {"C", 900}});
        Batch b(rig, main, IDD_BATCH);
        b.send(wm::close);
        if (!readable) {
            rig.deck.fail("get_timecode.timecode", E_FAIL);
        }
        b.tick_at(readable ? 120 : 5000);  // far past the out point, if it could be read
        b.tick();
        EXPECT_FALSE(b.ended());
        EXPECT_TRUE(app->inbatch);
        b.command(IDCANCEL);
        EXPECT_TRUE(b.dialog.aborted);
        EXPECT_FALSE(b.ended());
        b.tick();
        b.expect_clean_end(batch_complete);
        EXPECT_EQ(b.end_code(), 1);
        EXPECT_EQ(rig.media.builder.output_paths.size(), 1u);  // B and C never captured
    }
}

TEST_F(MainWindowTest, BatchFailingStepIsShownAndTheBatchEndsCleanly) {
    rig.add_scenes({{"A", 100}, {"B", 500}});
    Batch b(rig, w, IDD_BATCH);
    rig.deck.fail("get_transport_basic_parameters", E_FAIL);  // the seek to B
    b.tick_at(201);
    b.expect_clean_end({"DV Seek failed"});
    EXPECT_EQ(app->callback, nullptr);
    // The main window goes on working with the preview.
    w.command(102);
    EXPECT_EQ(w.dialog.state, 2);
    EXPECT_TRUE(app->win->running());
    EXPECT_EQ(rig.messages().size(), 1u);
}

TEST_F(MainWindowTest, BatchFailingStartIsShownAndNothingKeepsRunning) {
    rig.add_scenes({{"A", 100}});
    rig.deck.fail("get_transport_basic_parameters", E_FAIL);
    Batch b(rig, w, IDD_BATCH);
    EXPECT_EQ(rig.messages(), Texts{"DV Seek failed"});
    EXPECT_TRUE(b.ended());
    EXPECT_EQ(b.end_code(), 0);
    EXPECT_EQ(rig.host.count("set_timer(600"), 0u);
    EXPECT_FALSE(app->inbatch);
    EXPECT_EQ(rig.media.graph.owner, w.pane());
}

// No scene, or no DV device (refused with a message), starts nothing; the same for
// scene detection without a DV device.
TEST(BatchDialog, NoSceneOrNoDvDeviceStartsNothing) {
    struct Case {
        int device, template_id;
        bool scene;
        Texts messages;
    };
    for (const Case& c : {Case{0, IDD_BATCH, false, {}}, Case{1, IDD_BATCH, true, no_device},
                          Case{1, IDD_SCENE_DETECT, false, no_device}}) {
        SCOPED_TRACE(::testing::Message() << "device " << c.device << " dialog " << c.template_id);
        UiRig rig(c.device);
        MainWindow main(rig);
        if (c.scene) {
            rig.add_scenes({{"A", 100}});
        }
        const std::size_t mark = rig.media.ledger.calls.size();
        const bool ended = c.template_id == IDD_BATCH
                               ? Batch(rig, main, c.template_id).ended()
                               : SceneDetect(rig, main, c.template_id).ended();
        EXPECT_TRUE(ended);
        EXPECT_EQ(rig.messages(), c.messages);
        EXPECT_TRUE(rig.media_since(mark, "").empty());
        EXPECT_FALSE(app->inbatch);
        EXPECT_TRUE(app->win->running());
    }
}

TEST_F(MainWindowTest, BatchProgressBarTruncatesAndToleratesOddFractions) {
    rig.add_scenes({{"A", 100}});
    Batch b(rig, w, IDD_BATCH);
    for (auto [fraction, bar] : {std::pair{0.999f, 99}, std::pair{0.0f, 0}, std::pair{3.0e9f, 100},
                                 std::pair{std::numeric_limits<float>::quiet_NaN(), 0},
                                 std::pair{std::numeric_limits<float>::infinity(), 0}}) {
        b.dialog.progress(fraction);
        EXPECT_EQ(b.bar(), bar) << fraction;
    }
    b.command(IDCANCEL);
    b.tick();
}

TEST_F(MainWindowTest, BatchFromTheEditorsRecordRunsOverTheEditor) {
    rig.add_scenes({{"A", 100}});
    rig.host.script(600, [&](FakeDialogHost& host, WindowHandle dlg) {
        rig.deck.track = 300;
        host.send(dlg, wm::timer, 1);
    });
    rig.host.script(400, [](FakeDialogHost& host, WindowHandle dlg) {
        host.command(dlg, 108);
        host.command(dlg, IDOK);
    });
    w.command(120);
    EXPECT_TRUE(rig.host.called("dialog_box(600,400)"));
    EXPECT_EQ(rig.messages(), batch_complete);
    EXPECT_EQ(rig.media.graph.owner, w.pane());
    EXPECT_EQ(transport_timer, 1u);
}

// --- Scene detection -----------------------------------------------------------------------

TEST_F(MainWindowTest, SceneDetectShowsTheFileBeingWrittenAndEachStepsTimecode) {
    rig.deck.timecode_bcd = bcd_timecode(0, 10, 0, 0);
    rig.media.builder.dropped.not_dropped = 250;  // every file long enough to keep
    SceneDetect s(rig, w, IDD_SCENE_DETECT);
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

    s.send(wm::close);  // the close box does nothing
    EXPECT_FALSE(s.ended());
    s.command(IDCANCEL);
    EXPECT_FALSE(s.ended());
    s.tick();
    s.expect_clean_end(batch_complete);
    EXPECT_EQ(s.end_code(), 1);
}

TEST_F(MainWindowTest, SceneDetectEndsWhenTheTapeStops) {
    SceneDetect s(rig, w, IDD_SCENE_DETECT);
    rig.deck.playing = media::OAFALSE;
    rig.deck.follow_modes = false;
    s.tick();
    s.expect_clean_end(batch_complete);
}

TEST_F(MainWindowTest, SceneDetectFailingStepIsShownAndEndsCleanly) {
    rig.deck.timecode_bcd = bcd_timecode(0, 10, 0, 0);
    SceneDetect s(rig, w, IDD_SCENE_DETECT);
    rig.media.builder.fail("set_output_file_name", E_ACCESSDENIED);
    rig.deck.timecode_bcd = bcd_timecode(0, 20, 0, 0);  // a break: the next file fails
    s.tick();
    s.expect_clean_end({"Unable to set output filename"});
}

// --- Seek ----------------------------------------------------------------------------------

TEST(SeekDialog, OkWindsToTheTypedTrackAndAnEmptyBoxMeansZero) {
    for (auto [typed, track] : {std::pair{"1500", 1500L}, std::pair{"", 0L}}) {
        UiRig rig;
        MainWindow main(rig);
        Opened<CapSeekDialog> seek(rig, IDD_SEEK, main.window);
        seek.control(114).text = typed;
        seek.command(IDOK);
        EXPECT_EQ(rig.deck.raw_commands.back().bytes, seek_bytes(track));
        EXPECT_TRUE(seek.ended());
        EXPECT_EQ(seek.end_code(), 1);
        EXPECT_TRUE(rig.host.called("set_wait_cursor()"));
        EXPECT_EQ(rig.host.cursor, 0);
    }
}

TEST_F(MainWindowTest, SeekFailingIsShownWithTheNormalCursorAndTheDialogStays) {
    rig.system.texts[E_FAIL] = "Unspecified error\r\n";
    Opened<CapSeekDialog> seek(rig, IDD_SEEK, w.window);
    rig.deck.fail("get_transport_basic_parameters", E_FAIL);
    seek.control(114).text = "77";
    std::string system_text;
    rig.host.script(101, [&](FakeDialogHost& host, WindowHandle error) {
        EXPECT_EQ(host.cursor, 0);  // the cursor is back before the error shows
        system_text = host.text(error, 1006);
        host.command(error, IDOK);
    });
    seek.command(IDOK);
    EXPECT_EQ(rig.messages(), Texts{"DV Seek failed"});
    EXPECT_EQ(system_text, "Unspecified error (-2147467259)");
    EXPECT_FALSE(seek.ended());
    EXPECT_EQ(rig.host.cursor, 0);
}

// Cancel, Esc and the close box end with zero. Without an attached device OK is refused
// with a message and the dialog stays. Neither reaches the deck.
TEST_F(MainWindowTest, SeekCancelledOrWithoutADeviceNeverSeeks) {
    for (bool by_close : {false, true}) {
        Opened<CapSeekDialog> seek(rig, IDD_SEEK, w.window);
        by_close ? seek.send(wm::close) : seek.command(IDCANCEL);
        EXPECT_TRUE(seek.ended());
        EXPECT_EQ(seek.end_code(), 0);
    }
    app->dv->detach();
    Opened<CapSeekDialog> seek(rig, IDD_SEEK, w.window);
    seek.command(IDOK);
    EXPECT_EQ(rig.messages(), no_device);
    EXPECT_FALSE(seek.ended());
    EXPECT_TRUE(rig.deck.raw_commands.empty());
}
