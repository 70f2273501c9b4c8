// The application object's connection to the capture device and its ownership.
#include <gtest/gtest.h>

#include "tests/unit/app/app_rig.h"

TEST(CapAppConnect, ADvDeviceIsAttachedForControlGetsNoAudioSourceAndIsAVcrUnlessACamera) {
    AppRig rig;
    CapApp& a = rig.make();
    a.connect();
    EXPECT_TRUE(a.source_is_dv);
    EXPECT_TRUE(a.dv->attached());
    EXPECT_EQ(a.dv_mode, 1);  // the fake deck is a VCR
    EXPECT_TRUE(a.dv_vcr());
    EXPECT_FALSE(a.graph->audio_source.valid());
    EXPECT_TRUE(rig.media.graph.contains(rig.deck));

    // A camera is DV but not a VCR.
    AppRig camera_rig;
    camera_rig.deck.device_type = media::ED_DEVTYPE_CAMERA;
    CapApp& camera = camera_rig.start();
    EXPECT_EQ(camera.dv_mode, 2);
    EXPECT_FALSE(camera.dv_vcr());
}

TEST(CapAppConnect, AnyOtherDeviceGetsTheChosenAudioSourceAndNoDeviceControl) {
    AppRig rig;
    CapApp& a = rig.make();
    a.video_device = 1;
    a.audio_device = 1;
    a.dv_mode = 2;  // left over from an earlier device
    a.connect();
    EXPECT_FALSE(a.source_is_dv);
    EXPECT_FALSE(a.dv->attached());
    EXPECT_EQ(a.dv_mode, 0);
    EXPECT_FALSE(a.dv_vcr());
    EXPECT_TRUE(rig.media.graph.contains(rig.media.webcam));
    EXPECT_TRUE(rig.media.graph.contains(rig.media.line_in));
    EXPECT_FALSE(rig.media.graph.contains(rig.media.microphone));
}

TEST(CapAppConnect, NoDeviceAtTheIndexRaisesFilterIndexNotInEnum) {
    AppRig rig;
    CapApp& a = rig.make();
    a.video_device = 5;
    EXPECT_EQ(com_error_of([&] { a.connect(); }).first, ERR_INDEX_NOT_IN_ENUM);
    EXPECT_FALSE(a.graph->source.valid());
}

TEST(CapAppDisconnect, TakesTheSourceOutAndDoesNothingWhenAlreadyDisconnected) {
    AppRig rig;
    CapApp& a = rig.start();
    a.win->attach(rig.main_pane(), a.graph->graph.get());
    a.win->run();
    a.disconnect();
    EXPECT_FALSE(a.win->attached());
    EXPECT_FALSE(a.win->running());
    EXPECT_FALSE(a.dv->attached());
    EXPECT_FALSE(a.graph->source.valid());
    EXPECT_TRUE(rig.media.graph.filter_names().empty());

    const std::size_t calls = rig.media.ledger.calls.size();
    a.disconnect();
    EXPECT_EQ(rig.media.ledger.calls.size(), calls);
}

TEST(CapAppDisconnect, AFailingRemovalOfTheSourceIsIgnored) {
    AppRig rig;
    CapApp& a = rig.start(1);
    rig.media.graph.fail("remove_filter", E_FAIL);
    a.disconnect();
    EXPECT_FALSE(a.graph->source.valid());
}

TEST(CapAppPreview, BuildsTheShapeOfTheConnectedSource) {
    AppRig dv_rig;
    dv_rig.start(0);
    EXPECT_EQ(dv_rig.media.builder.described_requests(),
              std::vector<std::string>{"preview interleaved DV Camcorder -> - -> -"});

    AppRig wdm_rig;
    wdm_rig.start(1);
    EXPECT_EQ(wdm_rig.media.builder.described_requests(),
              (std::vector<std::string>{"preview video USB Video Device -> - -> -",
                                        "preview audio Microphone -> - -> -"}));
}

TEST(CapAppLifetime, DestructionReleasesEveryInterfaceBeforeTheSettingsAreWritten) {
    AppRig rig;
    CapApp& a = rig.start();
    a.add_job(Timecode{});
    a.add_job(Timecode{});
    a.win->attach(rig.main_pane(), a.graph->graph.get());
    a.disconnect();
    rig.end();
    EXPECT_TRUE(rig.media.ledger.held().empty()) << testing::PrintToString(rig.media.ledger.held());
    EXPECT_TRUE(rig.media.ledger.over_released.empty());
    EXPECT_EQ(rig.store.written_names().size(), 8u);
}
