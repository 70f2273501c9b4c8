// The properties dialog: what it shows, what it stores at once (device, browsed folder,
// preroll), what it stores on closing and what it refuses.

#include <gtest/gtest.h>

#include "tests/unit/ui/ui_rig.h"
#include "ui/capprops.h"

namespace {

constexpr int dv_only[] = {205, 206, 207, 210, 1020};
constexpr int wdm_only[] = {208, 203, 204, 211};
constexpr int always[] = {115, 201, 202, 1002, 209, 1};

struct Props {
    explicit Props(UiRig& rig_, MainWindow& main) : rig(rig_) {
        window = open_dialog(rig.host, dialog, IDD_PROPERTIES, main.window);
    }
    UiRig& rig;
    CapPropsDialog dialog;
    WindowHandle window = nullptr;

    FakeDialogHost::Window& control(int id) { return rig.host.control(window, id); }
    void type(int id, const std::string& text) {
        control(id).text = text;
        rig.host.command(window, id, EN_CHANGE);
    }
    void select(int id, int index) {
        control(id).combo_sel = index;
        rig.host.command(window, id, CBN_SELCHANGE);
    }
    void ok() {
        rig.host.command(window, IDOK);
        rig.host.pump();
    }
    bool ended() const { return rig.host.ended(window); }
};

}  // namespace

TEST(PropsOpening, ListsDevicesAndCodecsAndSelectsTheSettings) {
    UiRig rig;
    MainWindow main(rig);
    app->audio_device = 1;
    app->video_codec = 2;
    app->audio_codec = 0;
    Props p(rig, main);
    EXPECT_EQ(p.control(115).combo_items,
              (std::vector<std::string>{"DV Camcorder", "USB Video Device"}));
    EXPECT_EQ(p.control(115).combo_sel, 0);
    EXPECT_EQ(p.control(208).combo_items, (std::vector<std::string>{"Microphone", "Line In"}));
    EXPECT_EQ(p.control(208).combo_sel, 1);
    EXPECT_EQ(p.control(203).combo_items,
              (std::vector<std::string>{"No compression", "MJPEG Compressor", "Cinepak Codec",
                                        "Indeo Video"}));
    EXPECT_EQ(p.control(203).combo_sel, 2);
    EXPECT_EQ(p.control(204).combo_items,
              (std::vector<std::string>{"No compression", "IMA ADPCM", "MPEG Layer-3"}));
    EXPECT_EQ(p.control(204).combo_sel, 0);
    EXPECT_EQ(p.control(201).text, rig.system.videos);
    EXPECT_EQ(p.control(209).text, "kestrel");
    EXPECT_TRUE(p.control(205).checked);
    EXPECT_FALSE(p.control(206).checked);
    EXPECT_EQ(p.control(1002).text, "10");  // 0.1 as a whole percentage
    EXPECT_EQ(p.control(210).text, "0");
    EXPECT_FALSE(p.control(1020).checked);
    EXPECT_TRUE(rig.host.template_misses.empty());
}

TEST(PropsOpening, EnablesTheControlsOfTheSourceKind) {
    for (int device : {0, 1}) {
        UiRig rig(device);
        MainWindow main(rig);
        Props p(rig, main);
        const bool dv = device == 0;
        for (int id : dv_only) {
            EXPECT_EQ(p.control(id).enabled, dv) << id;
        }
        for (int id : wdm_only) {
            EXPECT_EQ(p.control(id).enabled, !dv) << id;
        }
        for (int id : always) {
            EXPECT_TRUE(p.control(id).enabled) << id;
        }
    }
}

TEST(PropsOpening, OpeningAppliesThePrerollToEveryScene) {
    UiRig rig;
    MainWindow main(rig);
    rig.add_scenes({{"a", 100}, {"b", 700}});
    app->preroll = 25;
    Props p(rig, main);
    EXPECT_EQ(app->job_at(0)->capture_start.track, 75);
    EXPECT_EQ(app->job_at(1)->capture_start.track, 675);
    EXPECT_EQ(p.control(210).text, "25");
}

TEST(PropsOpening, TypeTwoAndAStaleCodecIndex) {
    UiRig rig;
    MainWindow main(rig);
    app->dv_type2 = 7;
    app->video_codec = 9;  // a compressor that is no longer installed
    app->scene_detection = true;
    Props p(rig, main);
    EXPECT_TRUE(p.control(206).checked);
    EXPECT_FALSE(p.control(205).checked);
    EXPECT_EQ(p.control(203).combo_sel, -1);
    EXPECT_TRUE(p.control(1020).checked);
    p.ok();
    EXPECT_TRUE(p.ended());
    EXPECT_EQ(app->video_codec, -1);
    EXPECT_EQ(app->dv_type2, 1);
}

TEST(PropsOpening, AnEnumerationFailureIsShownAndEndsTheDialog) {
    UiRig rig;
    MainWindow main(rig);
    rig.media.fail("create_instance.system_device_enum", E_OUTOFMEMORY);
    Props p(rig, main);
    EXPECT_EQ(rig.messages().size(), 1u);
    EXPECT_TRUE(p.ended());
    EXPECT_EQ(rig.host.end_code(p.window), 0);
}

TEST(PropsPreroll, EveryChangeReDerivesTheCaptureStarts) {
    UiRig rig;
    MainWindow main(rig);
    rig.add_scenes({{"a", 100}});
    Props p(rig, main);
    p.type(210, "3");
    EXPECT_EQ(app->preroll, 3);
    EXPECT_EQ(app->job_at(0)->capture_start.track, 97);
    p.type(210, "30");
    EXPECT_EQ(app->preroll, 30);
    EXPECT_EQ(app->job_at(0)->capture_start.track, 70);
    p.type(210, "");
    EXPECT_EQ(app->preroll, 0);
    EXPECT_EQ(app->job_at(0)->capture_start.track, 100);
    // The in point and the timecode text are left alone.
    EXPECT_EQ(app->job_at(0)->in_point.track, 100);
}

TEST(PropsClosing, OkStoresEverythingAndEnds) {
    UiRig rig;
    MainWindow main(rig);
    Props p(rig, main);
    p.control(1020).checked = true;
    p.control(203).combo_sel = 3;
    p.control(204).combo_sel = 2;
    p.control(208).combo_sel = 1;
    rig.host.check_radio_button(p.window, 205, 206, 206);
    p.control(210).text = "-12";
    p.control(1002).text = "15";
    p.control(201).text = "/media/tape";
    p.control(209).text = "holiday";
    p.ok();
    EXPECT_TRUE(p.ended());
    EXPECT_EQ(rig.host.end_code(p.window), 1);
    EXPECT_TRUE(app->scene_detection);
    EXPECT_EQ(app->video_codec, 3);
    EXPECT_EQ(app->audio_codec, 2);
    EXPECT_EQ(app->audio_device, 1);
    EXPECT_EQ(app->dv_type2, 1);
    EXPECT_EQ(app->preroll, -12);
    EXPECT_DOUBLE_EQ(app->disk_warning, 0.15);
    EXPECT_EQ(app->output_directory, "/media/tape");
    EXPECT_EQ(app->scene_name, "holiday");
}

TEST(PropsClosing, EmptySceneNameIsRefusedAfterTheOtherValuesAreStored) {
    UiRig rig;
    MainWindow main(rig);
    Props p(rig, main);
    rig.host.folder_choice = "/media/chosen";
    rig.host.command(p.window, 202);
    EXPECT_EQ(app->output_directory, "/media/chosen");  // at once
    EXPECT_EQ(p.control(201).text, "/media/chosen");
    EXPECT_TRUE(rig.host.called("browse_for_folder(Select an output directory)"));
    p.control(203).combo_sel = 1;
    p.control(1002).text = "20";
    p.control(209).text = "";
    rig.host.send(p.window, wm::close);  // the close box takes the same path
    EXPECT_EQ(rig.messages(), std::vector<std::string>{"You need to specify a scene name (6)"});
    EXPECT_FALSE(p.ended());
    EXPECT_EQ(app->video_codec, 1);
    EXPECT_DOUBLE_EQ(app->disk_warning, 0.2);
    EXPECT_EQ(app->output_directory, "/media/chosen");
    EXPECT_EQ(app->scene_name, "kestrel");
}

TEST(PropsClosing, EmptyOutputDirectoryIsRefusedAndEscDoesNothing) {
    UiRig rig;
    MainWindow main(rig);
    Props p(rig, main);
    const std::string before = app->output_directory;
    rig.host.command(p.window, IDCANCEL);
    rig.host.pump();
    EXPECT_FALSE(p.ended());
    rig.host.folder_choice.reset();
    rig.host.command(p.window, 202);  // cancelled browser: nothing changes
    EXPECT_EQ(app->output_directory, before);
    p.control(201).text = "";
    p.control(209).text = "";
    p.ok();
    EXPECT_EQ(rig.messages(),
              std::vector<std::string>{"You need to specify an output directory (5)"});
    EXPECT_FALSE(p.ended());
    EXPECT_EQ(app->output_directory, before);
}

TEST(PropsDevice, ChangingTheDeviceReconnectsAndAttachesAStoppedPreview) {
    UiRig rig;
    MainWindow main(rig);
    Props p(rig, main);
    ASSERT_EQ(transport_timer, 1u);
    p.select(115, 1);
    EXPECT_EQ(app->video_device, 1);
    EXPECT_FALSE(app->source_is_dv);
    EXPECT_FALSE(app->dv->attached());
    EXPECT_TRUE(rig.host.called("kill_timer(100,1)"));
    EXPECT_EQ(transport_timer, 0u);
    EXPECT_TRUE(app->win->attached());
    EXPECT_FALSE(app->win->running());
    EXPECT_EQ(rig.media.graph.owner, main.pane());
    for (int id : wdm_only) {
        EXPECT_TRUE(p.control(id).enabled) << id;
    }
    for (int id : dv_only) {
        EXPECT_FALSE(p.control(id).enabled) << id;
    }
    // And back to the DV device: the transport poll starts on the main window.
    p.select(115, 0);
    EXPECT_TRUE(app->source_is_dv);
    EXPECT_EQ(transport_timer, 1u);
    EXPECT_EQ(rig.host.count("set_timer(100,1,250)"), 2u);
    for (int id : dv_only) {
        EXPECT_TRUE(p.control(id).enabled) << id;
    }
    EXPECT_TRUE(rig.messages().empty());
}

TEST(PropsDevice, AFailedChangeIsShownAndThePreviousDeviceComesBack) {
    UiRig rig;
    MainWindow main(rig);
    Props p(rig, main);
    rig.media.catalogue[media::DeviceCategory::video_input][1].bind_result = E_FAIL;
    p.select(115, 1);
    EXPECT_EQ(rig.messages().size(), 1u);
    EXPECT_FALSE(p.ended());
    EXPECT_EQ(app->video_device, 0);
    EXPECT_EQ(p.control(115).combo_sel, 0);
    EXPECT_TRUE(app->source_is_dv);
    EXPECT_TRUE(app->dv->attached());
    EXPECT_TRUE(app->win->attached());
    EXPECT_EQ(transport_timer, 1u);
}

TEST(PropsPages, DecoderPagesStopAndRestartARunningPreview) {
    UiRig rig;
    MainWindow main(rig);
    Props p(rig, main);
    ASSERT_TRUE(app->win->running());
    const std::size_t mark = rig.media.ledger.calls.size();
    rig.host.command(p.window, 207);
    ASSERT_EQ(rig.media.frames.size(), 1u);
    EXPECT_EQ(rig.media.frames[0].caption, "DV Capture");
    EXPECT_EQ(rig.media.frames[0].owner, p.window);
    EXPECT_EQ(rig.media_since(mark, "graph."),
              (std::vector<std::string>{"graph.find_filter_by_name(DV Video Decoder)", "graph.stop",
                                        "graph.run"}));
    EXPECT_TRUE(app->win->running());

    rig.host.command(p.window, 211);
    ASSERT_EQ(rig.media.frames.size(), 2u);
    EXPECT_EQ(rig.media.frames[1].caption, "WDM Capture");
    EXPECT_TRUE(rig.messages().empty());
}

TEST(PropsPages, AMissingDecoderIsShownAndTheDialogStays) {
    UiRig rig(1);  // a webcam preview has no DV decoder
    MainWindow main(rig);
    Props p(rig, main);
    rig.host.command(p.window, 207);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{"Failed to find filter"});
    EXPECT_TRUE(rig.media.frames.empty());
    EXPECT_FALSE(p.ended());
    EXPECT_TRUE(app->win->running());
}
