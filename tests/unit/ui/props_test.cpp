// The properties dialog: what it shows, what it stores at once (device, browsed folder,
// preroll), what it stores on closing and what it refuses.

#include <gtest/gtest.h>

#include <tuple>

#include "tests/unit/ui/ui_rig.h"
#include "ui/capprops.h"

namespace {

const std::vector<int> dv_only = {205, 206, 207, 210, 1020};
const std::vector<int> wdm_only = {208, 203, 204, 211};
const std::vector<int> always = {115, 201, 202, 1002, 209, 1};

struct Props : Opened<CapPropsDialog> {
    Props(UiRig& rig_, MainWindow& main) : Opened(rig_, IDD_PROPERTIES, main.window) {}
    void type(int id, const std::string& text) {
        control(id).text = text;
        command(id, EN_CHANGE);
    }
    void select(int id, int index) {
        control(id).combo_sel = index;
        command(id, CBN_SELCHANGE);
    }
    void ok() {
        command(IDOK);
        rig.host.pump();
    }
    // The controls of the DV and WDM kinds enabled as for that source; the rest always.
    void expect_enabled_for(bool dv) {
        for (auto [ids, on] :
             {std::pair{&dv_only, dv}, std::pair{&wdm_only, !dv}, std::pair{&always, true}}) {
            for (int id : *ids) {
                EXPECT_EQ(control(id).enabled, on) << id;
            }
        }
    }
};

}  // namespace

TEST_F(MainWindowTest, PropsListDevicesAndCodecsAndSelectTheSettings) {
    app->audio_device = 1;
    app->video_codec = 2;
    app->audio_codec = 0;
    Props p(rig, w);
    const std::vector<std::tuple<int, Texts, int>> combos = {
        {115, {"DV Camcorder", "USB Video Device"}, 0},
        {208, {"Microphone", "Line In"}, 1},
        {203, {"No compression", "MJPEG Compressor", "Cinepak Codec", "Indeo Video"}, 2},
        {204, {"No compression", "IMA ADPCM", "MPEG Layer-3"}, 0},
    };
    for (const auto& [id, items, sel] : combos) {
        EXPECT_EQ(p.control(id).combo_items, items) << id;
        EXPECT_EQ(p.control(id).combo_sel, sel) << id;
    }
    EXPECT_EQ(p.control(201).text, rig.system.videos);
    EXPECT_EQ(p.control(209).text, "kestrel");
    EXPECT_TRUE(p.control(205).checked);
    EXPECT_FALSE(p.control(206).checked);
    EXPECT_EQ(p.control(1002).text, "10");  // 0.1 as a whole percentage
    EXPECT_EQ(p.control(210).text, "0");
    EXPECT_FALSE(p.control(1020).checked);
}

TEST(PropsOpening, EnablesTheControlsOfTheSourceKind) {
    for (int device : {0, 1}) {
        UiRig rig(device);
        MainWindow main(rig);
        Props(rig, main).expect_enabled_for(device == 0);
    }
}

TEST_F(MainWindowTest, PropsTypeTwoAndAStaleCodecIndex) {
    app->dv_type2 = 7;
    app->video_codec = 9;  // a compressor that is no longer installed
    app->scene_detection = true;
    Props p(rig, w);
    EXPECT_TRUE(p.control(206).checked);
    EXPECT_FALSE(p.control(205).checked);
    EXPECT_EQ(p.control(203).combo_sel, -1);
    EXPECT_TRUE(p.control(1020).checked);
    p.ok();
    EXPECT_TRUE(p.ended());
    EXPECT_EQ(app->video_codec, -1);
    EXPECT_EQ(app->dv_type2, 1);
}

TEST_F(MainWindowTest, PropsEnumerationFailureIsShownAndEndsTheDialog) {
    rig.media.fail("create_instance.system_device_enum", E_OUTOFMEMORY);
    Props p(rig, w);
    EXPECT_EQ(rig.messages().size(), 1u);
    EXPECT_TRUE(p.ended());
    EXPECT_EQ(p.end_code(), 0);
}

// Opening applies the preroll to every scene, and every change re-derives the capture
// starts; the in point is left alone.
TEST_F(MainWindowTest, PropsPrerollReDerivesTheCaptureStartsOnOpeningAndEveryChange) {
    rig.add_scenes({{"a", 100}, {"b", 700}});
    app->preroll = 25;
    Props p(rig, w);
    EXPECT_EQ(app->job_at(0)->capture_start.track, 75);
    EXPECT_EQ(app->job_at(1)->capture_start.track, 675);
    EXPECT_EQ(p.control(210).text, "25");
    for (auto [typed, preroll] : {std::pair{"3", 3}, std::pair{"30", 30}, std::pair{"", 0}}) {
        p.type(210, typed);
        EXPECT_EQ(app->preroll, preroll);
        EXPECT_EQ(app->job_at(0)->capture_start.track, 100 - preroll);
        EXPECT_EQ(app->job_at(1)->capture_start.track, 700 - preroll);
    }
    EXPECT_EQ(app->job_at(0)->in_point.track, 100);
}

TEST_F(MainWindowTest, PropsOkStoresEverythingAndEnds) {
    Props p(rig, w);
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
    EXPECT_EQ(p.end_code(), 1);
    EXPECT_EQ(std::tuple(app->scene_detection, app->video_codec, app->audio_codec,
                         app->audio_device, app->dv_type2, app->preroll),
              std::tuple(true, 3, 2, 1, 1, -12));
    EXPECT_DOUBLE_EQ(app->disk_warning, 0.15);
    EXPECT_EQ(app->output_directory, "/media/tape");
    EXPECT_EQ(app->scene_name, "holiday");
}

TEST_F(MainWindowTest, PropsEmptySceneNameIsRefusedAfterTheOtherValuesAreStored) {
    Props p(rig, w);
    rig.host.folder_choice = "/media/chosen";
    p.command(202);
    EXPECT_EQ(app->output_directory, "/media/chosen");  // at once
    EXPECT_EQ(p.control(201).text, "/media/chosen");
    EXPECT_TRUE(rig.host.called("browse_for_folder(Select an output directory)"));
    p.control(203).combo_sel = 1;
    p.control(1002).text = "20";
    p.control(209).text = "";
    p.send(wm::close);  // the close box takes the same path
    EXPECT_EQ(rig.messages(), Texts{"You need to specify a scene name (6)"});
    EXPECT_FALSE(p.ended());
    EXPECT_EQ(app->video_codec, 1);
    EXPECT_DOUBLE_EQ(app->disk_warning, 0.2);
    EXPECT_EQ(app->output_directory, "/media/chosen");
    EXPECT_EQ(app->scene_name, "kestrel");
}

TEST_F(MainWindowTest, PropsEmptyOutputDirectoryIsRefusedAndEscDoesNothing) {
    Props p(rig, w);
    const std::string before = app->output_directory;
    p.command(IDCANCEL);
    rig.host.pump();
    EXPECT_FALSE(p.ended());
    rig.host.folder_choice.reset();
    p.command(202);  // cancelled browser: nothing changes
    EXPECT_EQ(app->output_directory, before);
    p.control(201).text = "";
    p.control(209).text = "";
    p.ok();
    EXPECT_EQ(rig.messages(), Texts{"You need to specify an output directory (5)"});
    EXPECT_FALSE(p.ended());
    EXPECT_EQ(app->output_directory, before);
}

TEST_F(MainWindowTest, PropsChangingTheDeviceReconnectsAndAttachesAStoppedPreview) {
    Props p(rig, w);
    ASSERT_EQ(transport_timer, 1u);
    p.select(115, 1);
    EXPECT_EQ(app->video_device, 1);
    EXPECT_FALSE(app->source_is_dv);
    EXPECT_FALSE(app->dv->attached());
    EXPECT_TRUE(rig.host.called("kill_timer(100,1)"));
    EXPECT_EQ(transport_timer, 0u);
    EXPECT_TRUE(app->win->attached());
    EXPECT_FALSE(app->win->running());
    EXPECT_EQ(rig.media.graph.owner, w.pane());
    p.expect_enabled_for(false);
    // And back to the DV device: the transport poll starts on the main window.
    p.select(115, 0);
    EXPECT_TRUE(app->source_is_dv);
    EXPECT_EQ(transport_timer, 1u);
    EXPECT_EQ(rig.host.count("set_timer(100,1,250)"), 2u);
    p.expect_enabled_for(true);
    EXPECT_TRUE(rig.messages().empty());
}

TEST_F(MainWindowTest, PropsFailedDeviceChangeIsShownAndThePreviousDeviceComesBack) {
    Props p(rig, w);
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

TEST_F(MainWindowTest, PropsDecoderPagesStopAndRestartARunningPreview) {
    Props p(rig, w);
    ASSERT_TRUE(app->win->running());
    const std::size_t mark = rig.media.ledger.calls.size();
    p.command(207);
    ASSERT_EQ(rig.media.frames.size(), 1u);
    EXPECT_EQ(rig.media.frames[0].caption, "DV Capture");
    EXPECT_EQ(rig.media.frames[0].owner, p.window);
    EXPECT_EQ(rig.media_since(mark, "graph."),
              (Texts{"graph.find_filter_by_name(DV Video Decoder)", "graph.stop", "graph.run"}));
    EXPECT_TRUE(app->win->running());

    p.command(211);
    ASSERT_EQ(rig.media.frames.size(), 2u);
    EXPECT_EQ(rig.media.frames[1].caption, "WDM Capture");
    EXPECT_TRUE(rig.messages().empty());
}

TEST(PropsPages, AMissingDecoderIsShownAndTheDialogStays) {
    UiRig rig(1);  // a webcam preview has no DV decoder
    MainWindow main(rig);
    Props p(rig, main);
    p.command(207);
    EXPECT_EQ(rig.messages(), Texts{"Failed to find filter"});
    EXPECT_TRUE(rig.media.frames.empty());
    EXPECT_FALSE(p.ended());
    EXPECT_TRUE(app->win->running());
}
