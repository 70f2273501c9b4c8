// The main window: start-up, colours and drawing, every command with the transport
// state, the three timers with the record indicator, and the graph-event handler.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/unit/ui/ui_rig.h"

namespace {

const std::vector<int> transport_controls = {104, 106, 115, 114, 1010, 121, 118, 119, 120};

std::vector<long> modes_since(const FakeDvFilter& deck, std::size_t mark) {
    return {deck.modes.begin() + static_cast<std::ptrdiff_t>(mark), deck.modes.end()};
}

// Position of the first call equal to `call`, -1 when there is none.
long index_of(const std::vector<std::string>& calls, const std::string& call) {
    const auto it = std::find(calls.begin(), calls.end(), call);
    return it == calls.end() ? -1 : static_cast<long>(it - calls.begin());
}

}  // namespace

// --- Start-up ---------------------------------------------------------------------------

// Only a DV VCR gets the transport controls and the transport poll (timer 1); a WDM
// source and a DV camera get neither. Everything else starts the same.
TEST(MainStartup, TransportAndTimerOneOnlyForADvVcr) {
    struct Case {
        int device;
        long type;
        bool vcr;
    };
    for (const Case& c :
         {Case{0, media::ED_DEVTYPE_VCR, true}, Case{1, media::ED_DEVTYPE_VCR, false},
          Case{0, media::ED_DEVTYPE_CAMERA, false}}) {
        SCOPED_TRACE(::testing::Message() << "device " << c.device << " type " << c.type);
        UiRig rig(c.device, c.type);
        rig.host.bitmap_sizes[153] = {660, 600};
        MainWindow w(rig);
        EXPECT_EQ(main_window, w.window);
        rig.expect_called({"set_client_size(100,660,600)", "delete_bitmap(153)",
                           "set_timer(100,2,1000)", "set_timer(100,3,1000)"});
        EXPECT_EQ(w.enabled_count(transport_controls), c.vcr ? 9 : 0);
        EXPECT_EQ(w.text(124), c.vcr ? "VCR" : "WDM");
        EXPECT_EQ(rig.host_calls("set_timer(100,1,"),
                  c.vcr ? Texts{"set_timer(100,1,250)"} : Texts{});
        EXPECT_EQ(transport_timer, c.vcr ? 1u : 0u);
        EXPECT_EQ(w.text(1016), "00:00:00:00");
        EXPECT_EQ(w.text(1017), "00:00:00:00");
        EXPECT_TRUE(rig.preview_in(w.pane()));
        EXPECT_FALSE(w.ended());
    }
}

TEST(MainStartup, MissingSkinKeepsTheTemplateSizeAndTablesAreLoadedInOrder) {
    UiRig rig;
    rig.host.missing_bitmaps.insert(153);
    MainWindow w(rig);
    EXPECT_EQ(rig.host.count("set_client_size"), 0u);
    rig.expect_called({"load_bitmap(1023,1)", "load_icon(125)", "set_big_icon(100,125)",
                       "progress_set_range(1001,0,100)"});
    EXPECT_EQ(w.dialog.indicator_bitmap, FakeDialogHost::bitmap_handle(1023));
    ASSERT_EQ(w.dialog.pressed_bitmaps.size(), 13u);
    ASSERT_EQ(w.dialog.normal_bitmaps.size(), 13u);
    EXPECT_EQ(w.dialog.pressed_bitmaps[102], FakeDialogHost::bitmap_handle(138));
    EXPECT_EQ(w.dialog.normal_bitmaps[102], FakeDialogHost::bitmap_handle(139));
    EXPECT_EQ(w.dialog.pressed_bitmaps[1018], FakeDialogHost::bitmap_handle(150));
    EXPECT_EQ(w.dialog.normal_bitmaps[117], FakeDialogHost::bitmap_handle(128));
    // Tooltip tools in registration order, after the tooltip itself.
    const Texts tools = rig.host_calls("add_tool(");
    ASSERT_EQ(tools.size(), 14u);
    EXPECT_EQ(tools.front(), "add_tool(108,108,Record)");
    EXPECT_EQ(tools[3], "add_tool(1018,1018,Play from In point)");
    EXPECT_EQ(tools.back(), "add_tool(119,119,Set Out point)");
    EXPECT_NE(w.dialog.tooltip, nullptr);
}

TEST(MainStartup, APreviewThatCannotRunIsShownAndEndsTheWindowWithMinusOne) {
    UiRig rig;
    rig.media.graph.fail("run", E_FAIL);
    MainWindow w(rig);
    EXPECT_TRUE(w.ended());
    EXPECT_EQ(w.end_code(), -1);
    EXPECT_EQ(rig.messages(), Texts{"Error running media control"});
    // The rest of the start-up still ran.
    EXPECT_TRUE(rig.host.called("set_timer(100,3,1000)"));
}

// --- Colours and drawing ----------------------------------------------------------------

TEST_F(MainWindowTest, FieldsAreGreyOnBlackAndButtonsHollow) {
    const std::size_t mark = rig.host.calls.size();
    const LResult black = reinterpret_cast<LResult>(rig.host.stock_brush(StockBrush::black));
    EXPECT_EQ(w.send(wm::ctlcolor_static), black);
    EXPECT_EQ(w.send(wm::ctlcolor_edit), black);
    EXPECT_EQ(
        rig.calls_since(mark),
        (Texts{"set_bk_color(0,0,0)", "set_text_color(149,145,143)", "set_bk_mode_transparent()",
               "set_bk_color(0,0,0)", "set_text_color(149,145,143)", "set_bk_mode_transparent()"}));
    const std::size_t before_button = rig.host.calls.size();
    EXPECT_EQ(w.send(wm::ctlcolor_button),
              reinterpret_cast<LResult>(rig.host.stock_brush(StockBrush::null)));
    EXPECT_EQ(rig.host.calls.size(), before_button);
}

TEST_F(MainWindowTest, PressedPictureWhileHeldNormalOtherwiseEvenDisabled) {
    DrawItem item;
    item.control_id = 104;
    item.rect = {3, 4, 97, 58};
    for (unsigned state : {ODS_SELECTED, 0x0004u /* disabled */}) {
        item.state = state;
        rig.host.send(w.window, wm::draw_item, 104, reinterpret_cast<LParam>(&item));
    }
    EXPECT_EQ(rig.calls_since(rig.host.calls.size() - 2),
              (Texts{"draw_bitmap(3,4,97,58,140)", "draw_bitmap(3,4,97,58,141)"}));
}

// --- Transport commands -------------------------------------------------------------------

TEST(MainTransport, CommandsDriveTheTapeByStateAndSourceKind) {
    struct Case {
        int device, state;
        std::vector<int> commands;
        std::vector<long> modes;
        int state_after;
        bool running;
    };
    const Case cases[] = {
        // The wind keys send by state and leave it alone.
        {0, 0, {104, 106}, {4300, 4301}, 0, true},
        {0, 1, {104, 106}, {4304, 4905}, 1, true},
        {0, 2, {104, 106}, {5029, 5031}, 2, true},
        {0, 3, {104, 106}, {4300, 4301}, 3, true},
        // Pause, then fast forward steps frame by frame.
        {0, 0, {115, 104, 104}, {4298, 4304, 4304}, 1, true},
        // Play and Stop on a VCR drive the tape and keep the picture.
        {0, 0, {102}, {4296}, 2, true},
        {0, 0, {102, 103}, {4296, 4297}, 0, true},
        // Without a tape, Stop stops the graph and Play runs it again.
        {1, 0, {103}, {}, 0, false},
        {1, 0, {103, 102}, {}, 2, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "case " << (&c - cases));
        UiRig rig(c.device);
        MainWindow w(rig);
        w.dialog.state = c.state;
        const std::size_t mark = rig.deck.modes.size();
        for (int id : c.commands) {
            w.command(id);
        }
        EXPECT_EQ(modes_since(rig.deck, mark), c.modes);
        EXPECT_EQ(w.dialog.state, c.state_after);
        EXPECT_EQ(app->win->running(), c.running);
    }
}

TEST_F(MainWindowTest, CommandsNeverReachADeviceThatIsNotAttached) {
    rig.add_scenes({{"a", 500}});
    // What a device change that failed part-way leaves: the flags still say DV VCR.
    app->dv->detach();
    ASSERT_TRUE(app->source_is_dv);
    const std::size_t mark = rig.media.ledger.calls.size();
    for (int id : {104, 106, 115, 102, 103, 1018}) {
        w.command(id);
    }
    w.timer(1);
    EXPECT_TRUE(rig.media_since(mark, "DV Camcorder.").empty());
    EXPECT_EQ(w.dialog.state, 2);  // play in-out still plays the picture
}

// --- Record -------------------------------------------------------------------------------

TEST_F(MainWindowTest, RecordTogglesBetweenRecordingAndPreviewInStateThree) {
    rig.host.tick = 5000;
    w.command(108);
    EXPECT_TRUE(app->recording);
    EXPECT_EQ(w.dialog.state, 3);
    EXPECT_EQ(w.dialog.indicator_tick, 5000u);
    EXPECT_TRUE(w.dialog.indicator_on);
    EXPECT_EQ(rig.media.builder.output_paths.size(), 1u);
    w.command(108);
    EXPECT_FALSE(app->recording);
    EXPECT_EQ(w.dialog.state, 3);
    EXPECT_TRUE(rig.preview_in(w.pane()));
}

TEST_F(MainWindowTest, FailuresAreShownAndLeaveTheWindowUsable) {
    // A missing output directory: message 12, and nothing changes.
    app->output_directory = "/nowhere";
    w.dialog.state = 2;
    const std::size_t mark = rig.media.ledger.calls.size();
    w.command(108);
    EXPECT_EQ(rig.messages(), Texts{"The selected output directory is invalid (12)"});
    EXPECT_EQ(w.dialog.state, 2);
    EXPECT_TRUE(rig.media_since(mark, "graph.").empty());
    // An output file that cannot be set: the preview is back running in the pane, and the
    // window goes on working.
    app->output_directory = rig.system.videos;
    w.dialog.state = 0;
    rig.media.builder.fail("set_output_file_name", E_ACCESSDENIED);
    w.command(108);
    EXPECT_EQ(rig.messages().back(), "Unable to set output filename");
    EXPECT_EQ(w.dialog.state, 0);
    EXPECT_FALSE(app->recording);
    EXPECT_TRUE(rig.preview_in(w.pane()));
    w.command(103);
    w.command(102);
    EXPECT_EQ(w.dialog.state, 2);
    // A transport mode the deck refuses: shown, and the state stays.
    rig.deck.fail("put_mode", E_FAIL);
    w.command(115);
    EXPECT_EQ(w.dialog.state, 2);
    EXPECT_EQ(rig.messages(), (Texts{"The selected output directory is invalid (12)",
                                     "Unable to set output filename", "Unable to set DV mode"}));
}

TEST(MainRecord, SceneDetectionOpensItsDialogForDvAndIsRefusedOtherwise) {
    for (int device : {0, 1}) {  // 1, a webcam: scene detection needs a DV tape
        UiRig rig(device);
        MainWindow w(rig);
        app->scene_detection = true;
        rig.host.script(701, [](FakeDialogHost& host, WindowHandle dlg) {
            host.command(dlg, IDCANCEL);
            host.send(dlg, wm::timer, 1);
        });
        w.command(108);
        EXPECT_EQ(rig.host.count("dialog_box(701,100)"), device == 0 ? 1u : 0u);
        // Refused with the message a batch capture gives for such a source; nothing records.
        EXPECT_FALSE(app->recording);
        EXPECT_EQ(w.dialog.state, 0);
        EXPECT_EQ(rig.messages(), device == 0 ? Texts{"Batch complete! (7)"}
                                              : Texts{"Failed to get device interface (39)"});
        // For DV, the transport timer was stopped around the dialog and started again.
        EXPECT_EQ(rig.host.called("kill_timer(100,1)"), device == 0);
        EXPECT_EQ(transport_timer, device == 0 ? 1u : 0u);
    }
}

// --- Scene marks --------------------------------------------------------------------------

// Set out needs a start point; set in adds a scene even when its task dialog is
// cancelled; both need a timecode.
TEST_F(MainWindowTest, SetInAndSetOutMarkTheNewestScene) {
    w.command(119);
    EXPECT_EQ(rig.messages(), Texts{"Specify a start point first (2)"});
    EXPECT_EQ(w.text(1017), "00:00:00:00");

    rig.deck.timecode_bcd = bcd_timecode(0, 12, 3, 10);
    rig.deck.track = 4321;
    rig.host.script(504, [](FakeDialogHost& host, WindowHandle dlg) {
        EXPECT_EQ(host.text(dlg, 503), "kestrel 001");
        host.command(dlg, IDCANCEL);
    });
    w.command(118);
    ASSERT_EQ(app->jobs->size(), 1u);
    EXPECT_EQ(app->job_at(0)->name, "kestrel 001");
    EXPECT_EQ(app->job_at(0)->in_point.track, 4321);
    EXPECT_EQ(w.text(1016), "00:12:03:10");
    EXPECT_TRUE(rig.host.called("kill_timer(100,1)"));
    EXPECT_EQ(transport_timer, 1u);

    rig.deck.timecode_bcd = bcd_timecode(1, 2, 3, 4);
    rig.deck.track = 900;
    const std::size_t timers = rig.host.count("kill_timer");
    w.command(119);
    EXPECT_EQ(app->job_at(0)->out_point.track, 900);
    EXPECT_EQ(w.text(1017), "01:02:03:04");
    EXPECT_EQ(rig.host.count("kill_timer"), timers);  // set out leaves the timer alone

    rig.deck.fail("get_timecode.timecode", E_FAIL);
    w.command(119);
    w.command(118);
    const std::string no_timecode = "Unable to get timecode for the current position (3)";
    EXPECT_EQ(rig.messages(), (Texts{"Specify a start point first (2)", no_timecode, no_timecode}));
    EXPECT_EQ(app->jobs->size(), 1u);
}

TEST(MainMarks, PlayInOutWindsToTheNewestSceneOrJustPlaysWithAnEmptyList) {
    for (bool scenes : {false, true}) {
        UiRig rig;
        MainWindow w(rig);
        if (scenes) {
            rig.add_scenes({{"a", 100}, {"b", 1193046}});
        }
        app->win->stop();
        const std::size_t mark = rig.media.ledger.calls.size();
        w.command(1018);
        EXPECT_EQ(w.dialog.state, 2);
        if (!scenes) {
            EXPECT_TRUE(rig.media_since(mark, "").empty());
            continue;
        }
        ASSERT_FALSE(rig.deck.raw_commands.empty());
        const auto frame = seek_frame(1193046);
        EXPECT_EQ(rig.deck.raw_commands.back().bytes,
                  std::vector<std::uint8_t>(frame.begin(), frame.end()));
        EXPECT_EQ(rig.deck.modes.back(), 4296);
        EXPECT_TRUE(app->win->running());
    }
}

// --- Dialogs and help -----------------------------------------------------------------------

TEST(MainDialogs, OptionsReEnablesTheTransportByTheSourceAlone) {
    UiRig rig(0, media::ED_DEVTYPE_CAMERA);
    MainWindow w(rig);
    ASSERT_FALSE(w.enabled(104));
    rig.host.script(200, [](FakeDialogHost& host, WindowHandle dlg) { host.command(dlg, IDOK); });
    w.command(109);
    EXPECT_TRUE(rig.host.called("dialog_box(200,100)"));
    EXPECT_EQ(w.enabled_count(transport_controls), 9);
    EXPECT_EQ(rig.host.count("set_timer(100,1,"), 0u);
    EXPECT_EQ(w.text(124), "WDM");
}

TEST_F(MainWindowTest, EditorAndSeekRunWithTheTransportTimerStopped) {
    for (auto [id, tmpl] : {std::pair{120, 400}, std::pair{121, 700}}) {
        const std::size_t mark = rig.host.calls.size();
        rig.host.script(tmpl, [&](FakeDialogHost& host, WindowHandle dlg) {
            EXPECT_EQ(transport_timer, 0u);
            host.end_dialog(dlg, 1);
        });
        w.command(id);
        const auto calls = rig.calls_since(mark);
        const long open = index_of(calls, "dialog_box(" + std::to_string(tmpl) + ",100)");
        ASSERT_GE(open, 0);
        const long killed = index_of(calls, "kill_timer(100,1)");
        ASSERT_GE(killed, 0);
        EXPECT_LT(killed, open);
        EXPECT_GT(index_of(calls, "set_timer(100,1,250)"), open);
        EXPECT_EQ(transport_timer, 1u);
    }
}

TEST(MainDialogs, HelpOpensTheManualBesideTheProgramFolder) {
    struct Case {
        std::string program;
        char separator;
        std::string manual;
    };
    for (const Case& c :
         {Case{"/opt/kestrel/bin/kestrel-capture", '/', "/opt/kestrel/Manual/CManualIndex.htm"},
          Case{"C:\\A\\B\\prog.exe", '\\', "C:\\A\\Manual\\CManualIndex.htm"},
          Case{"C:\\prog.exe", '\\', "C:\\Manual\\CManualIndex.htm"}}) {
        UiRig rig;
        rig.system.module_path = c.program;
        rig.system.separator = c.separator;
        MainWindow w(rig);
        w.command(116);
        EXPECT_EQ(rig.system.calls.back(), "shell_open(" + c.manual + ")");
        EXPECT_TRUE(rig.messages().empty());
        EXPECT_EQ(transport_timer, 1u);
    }
    UiRig rig;
    rig.system.shell_result = 32;
    MainWindow w(rig);
    w.command(116);
    EXPECT_EQ(rig.messages(), Texts{"Unable to launch ..\\Manual\\CManualIndex.htm (11)"});
}

// Quit ends from the message loop; a graph that will not stop at the close box is
// reported, and the window closes anyway.
TEST(MainDialogs, QuitAndTheCloseBoxStopTheGraphAndEndWithZero) {
    for (bool close_box : {false, true}) {
        UiRig rig;
        MainWindow w(rig);
        if (close_box) {
            rig.media.graph.fail("stop", E_FAIL);
            w.send(wm::close);
            EXPECT_EQ(rig.messages(), Texts{"Error stopping media control"});
        } else {
            w.command(117);
            EXPECT_FALSE(w.ended());
            rig.host.pump();
            EXPECT_FALSE(rig.media.graph.is_running);
        }
        EXPECT_TRUE(w.ended());
        EXPECT_EQ(w.end_code(), 0);
    }
}

TEST_F(MainWindowTest, UnknownIdsEnterAndEscDoNothing) {
    const std::size_t host_mark = rig.host.calls.size();
    const std::size_t media_mark = rig.media.ledger.calls.size();
    for (int id : {IDOK, IDCANCEL, 1010, 999}) {
        w.command(id);
    }
    EXPECT_EQ(rig.host.calls.size(), host_mark);
    EXPECT_TRUE(rig.media_since(media_mark, "").empty());
    EXPECT_FALSE(w.ended());
}
