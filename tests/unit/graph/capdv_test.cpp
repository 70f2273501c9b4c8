// DV device control: recognising DV filters, attaching, DV mode and rate, timecode and
// track number, transport and the AV/C seek frame.
#include <gtest/gtest.h>

#include <tuple>

#include "graph/capdv.h"
#include "tests/unit/graph/graph_rig.h"

using media::MajorType;
using media::PinCategory;
using media::PinDirection;
using Bytes = std::vector<std::uint8_t>;

namespace {
Bytes bytes_of(const std::array<std::uint8_t, 8>& frame) {
    return Bytes(frame.begin(), frame.end());
}

struct Dv : ::testing::Test {
    FakeLedger ledger;
    FakeDvFilter& camera = ledger.make<FakeDvFilter>();
    CapDvDevice dv;

    FakeFilter& plain(const std::string& name) { return ledger.make<FakeFilter>(name); }
};
}  // namespace

TEST_F(Dv, IsDvFindsDvOnAnyOutputPinInEitherSpellingAndReleasesEverything) {
    RefBaseline baseline(ledger);
    EXPECT_TRUE(is_dv(&camera));

    FakeFilter& second = plain("second pin");
    second.add_pin("In", PinDirection::input, PinCategory::none, {dv_media_type()});
    second.add_pin("Video", PinDirection::output, PinCategory::capture, {video_media_type()});
    second.add_pin("DV", PinDirection::output, PinCategory::capture,
                   {video_media_type(), dv_media_type()});
    EXPECT_TRUE(is_dv(&second));

    FakeFilter& capitals = plain("capitals");
    capitals.add_pin("Out", PinDirection::output, PinCategory::capture, {dv_media_type(true)});
    EXPECT_TRUE(is_dv(&capitals));

    FakeFilter& input_only = plain("input only");
    input_only.add_pin("In", PinDirection::input, PinCategory::none, {dv_media_type()});
    input_only.add_pin("Out", PinDirection::output, PinCategory::capture, {video_media_type()});
    EXPECT_FALSE(is_dv(&input_only));
    EXPECT_FALSE(is_dv(&plain("no pins")));

    EXPECT_EQ(baseline.changes(), Strings{});
}

TEST_F(Dv, IsDvAnswersFalseWhenThePinsCannotBeHadAndMovesOnWhenTypesCannotBeListed) {
    RefBaseline baseline(ledger);
    camera.fail("enum_pins", E_TEST1, 1);
    EXPECT_FALSE(is_dv(&camera));
    camera.fail("enum_pins.next", E_TEST1, 1);
    EXPECT_FALSE(is_dv(&camera));
    camera.fail("enum_pins.next", S_FALSE, 2);  // not S_OK: the walk ends there
    EXPECT_FALSE(is_dv(&camera));
    camera.pin("DV A/V Out")->fail("query_direction", E_TEST1, 1);
    EXPECT_FALSE(is_dv(&camera));
    EXPECT_TRUE(is_dv(&camera));
    // A pin whose types cannot be listed passes the search on to the next pin.
    FakeFilter& filter = plain("two outputs");
    FakePin& first =
        filter.add_pin("A", PinDirection::output, PinCategory::capture, {dv_media_type()});
    FakePin& second = filter.add_pin("B", PinDirection::output, PinCategory::capture,
                                     {video_media_type(), dv_media_type(true)});
    first.fail("enum_media_types", E_TEST1);  // its result is ignored; the pin offers none
    EXPECT_TRUE(is_dv(&filter));
    second.fail("enum_media_types.next", E_TEST1, 4);  // fails before the DV type
    EXPECT_FALSE(is_dv(&filter));
    second.fail("enum_media_types.next", S_FALSE, 6);  // fetched 0 ends the pin too
    EXPECT_FALSE(is_dv(&filter));
    EXPECT_EQ(baseline.changes(), Strings{});
}

TEST_F(Dv, AttachAsksTransportTimecodeDeviceThenTheRateAndDetachGivesThemBack) {
    dv.detach();  // harmless before any attach
    EXPECT_FALSE(dv.attached());
    dv.attach(&camera);
    EXPECT_TRUE(dv.attached());
    EXPECT_EQ(ledger.matching("DV Camcorder.query_interface"),
              (Strings{"DV Camcorder.query_interface(ext_transport)",
                       "DV Camcorder.query_interface(timecode_reader)",
                       "DV Camcorder.query_interface(ext_device)"}));
    EXPECT_EQ(ledger.matching("DV Camcorder.get_capability"),
              Strings{"DV Camcorder.get_capability(4131,null)"});
    EXPECT_EQ(dv.time_format(), 4504);  // PAL
    EXPECT_EQ(camera.refs(), 3);        // one per interface; the filter itself is borrowed
    dv.detach();
    dv.detach();
    EXPECT_FALSE(dv.attached());
    EXPECT_EQ(camera.refs(), 0);
    EXPECT_EQ(dv.dv_mode_name(2), "Camera");  // names survive detach

    // Attach and detach alternate on every reconnect.
    camera.normal_rate = media::ED_RATE_2997;
    dv.attach(&camera);
    EXPECT_EQ(dv.time_format(), 4503);  // NTSC, drop frame
    EXPECT_EQ(camera.refs(), 3);
}

TEST_F(Dv, AttachFailuresRaiseTheirCodesAndDetachClearsWhatWasTaken) {
    struct Row {
        const char* op;
        int code;
        HRESULT hr;
        std::size_t queries;
    };
    for (const Row& row :
         {Row{"query_interface.ext_transport", ERR_TRANSPORT_IF, E_TEST1, 1},
          Row{"query_interface.timecode_reader", ERR_TIMECODE_READER_IF, E_TEST1, 2},
          Row{"query_interface.ext_device", ERR_DEVICE_IF, E_TEST1, 3},
          Row{"get_capability", ERR_DV_CAPABILITY, E_TEST1, 3}}) {
        SCOPED_TRACE(row.op);
        FakeLedger local;
        FakeDvFilter& filter = local.make<FakeDvFilter>();
        CapDvDevice device;
        filter.fail(row.op, row.hr);
        EXPECT_TRUE(raises([&] { device.attach(&filter); }, row.code, row.hr));
        EXPECT_EQ(local.matching("DV Camcorder.query_interface").size(), row.queries);
        EXPECT_TRUE(device.attached());  // left as it was; detach undoes it
        device.detach();
        device.detach();
        EXPECT_FALSE(device.attached());
        EXPECT_EQ(local.held(), Strings{});
    }
}

TEST_F(Dv, AttachRefusesRatesOtherThanPalAndNtscWithoutAFailingCall) {
    for (long rate : {media::ED_RATE_30, 0L, 4132L /* 24 frames a second */}) {
        SCOPED_TRACE(rate);
        camera.normal_rate = rate;
        EXPECT_TRUE(raises([&] { dv.attach(&camera); }, ERR_TIME_FORMAT, S_OK));
        dv.detach();
        EXPECT_EQ(camera.refs(), 0);
    }
}

TEST_F(Dv, DvModeFollowsTheDeviceTypeAndNamesIt) {
    dv.attach(&camera);
    struct Row {
        long type;
        int mode;
        const char* name;
    };
    for (const Row& row :
         {Row{media::ED_DEVTYPE_VCR, 1, "VCR"}, Row{media::ED_DEVTYPE_CAMERA, 2, "Camera"},
          Row{0, 0, "Unknown"}, Row{4105, 0, "Unknown"}}) {
        camera.device_type = row.type;
        const int mode = dv.query_dv_mode();
        EXPECT_EQ(mode, row.mode) << row.type;
        EXPECT_EQ(dv.dv_mode_name(mode), row.name);
    }
    EXPECT_EQ(camera.capability_requests.back(), media::ED_DEVCAP_DEVICE_TYPE);
    EXPECT_EQ(dv.dv_mode_name(3), "Unknown");
    EXPECT_EQ(dv.dv_mode_name(-1), "Unknown");
    camera.fail("get_capability", E_TEST2);
    EXPECT_TRUE(raises([&] { dv.query_dv_mode(); }, ERR_DV_CAPABILITY, E_TEST2));
}

TEST_F(Dv, TimecodeIsPackedBcdTakenWithoutValidation) {
    dv.attach(&camera);
    struct Row {
        std::uint32_t bcd;
        int h, m, s, f;
    };
    for (const Row& row : {Row{0x01234529, 1, 23, 45, 29}, Row{0x00000000, 0, 0, 0, 0},
                           Row{0x9F000000, 105, 0, 0, 0}, Row{0x23595924, 23, 59, 59, 24},
                           Row{0x00AB0C9F, 0, 111, 12, 105}}) {
        SCOPED_TRACE(row.bcd);
        camera.timecode_bcd = row.bcd;
        Timecode tc;
        ASSERT_TRUE(dv.get_timecode(tc));
        EXPECT_EQ(std::tie(tc.hours, tc.minutes, tc.seconds, tc.frames),
                  std::tie(row.h, row.m, row.s, row.f));
    }
}

TEST_F(Dv, TimecodeReadsTheUserFlagAndTheTrackWithPresetSamplesAndSurvivesFailures) {
    dv.attach(&camera);
    camera.timecode_bcd = 0x00010203;
    camera.track = 1193046;
    camera.user_bits = 0xFFFFFFFE;  // bit 0 clear: other bits do not count
    Timecode tc;
    ASSERT_TRUE(dv.get_timecode(tc));
    EXPECT_FALSE(tc.user_flag);
    EXPECT_EQ(tc.track, 1193046);
    camera.user_bits = 1;
    ASSERT_TRUE(dv.get_timecode(tc));
    EXPECT_TRUE(tc.user_flag);
    ASSERT_EQ(camera.timecode_requests.size(), 4u);
    EXPECT_EQ(camera.timecode_requests[0].flags, media::ED_DEVCAP_TIMECODE_READ);
    EXPECT_EQ(camera.timecode_requests[0].frames, 0u);
    // The same sample is reused for the track: flags replaced, frames cleared again.
    EXPECT_EQ(camera.timecode_requests[1].flags, media::ED_DEVCAP_ATN_READ);
    EXPECT_EQ(camera.timecode_requests[1].frames, 0u);
    EXPECT_EQ(camera.timecode_requests[1].user, 0xFFFFFFFEu);

    // A track failure gives -1; a timecode failure leaves the value alone.
    camera.timecode_requests.clear();
    camera.timecode_bcd = 0x10203040;
    camera.track = 500;
    camera.fail("get_timecode.track", E_TEST1);
    EXPECT_TRUE(dv.get_timecode(tc));
    EXPECT_EQ(tc.hours, 10);
    EXPECT_EQ(tc.track, -1);

    camera.fail("get_timecode.timecode", E_TEST1);
    Timecode untouched;
    untouched.hours = 7;
    untouched.track = 42;
    untouched.user_flag = true;
    EXPECT_FALSE(dv.get_timecode(untouched));
    EXPECT_EQ(untouched.hours, 7);
    EXPECT_EQ(untouched.track, 42);
    EXPECT_TRUE(untouched.user_flag);
    EXPECT_EQ(camera.timecode_requests.size(), 3u);  // no track read after a failure
}

TEST(SeekFrame, IsTheAbsoluteTrackNumberCommandWithTheTrackDoubled) {
    EXPECT_EQ(bytes_of(seek_frame(1193046)),
              (Bytes{0x00, 0x20, 0x52, 0x20, 0xAC, 0x68, 0x24, 0xFF}));
    EXPECT_EQ(bytes_of(seek_frame(0)), (Bytes{0x00, 0x20, 0x52, 0x20, 0x00, 0x00, 0x00, 0xFF}));
    EXPECT_EQ(bytes_of(seek_frame(1)), (Bytes{0x00, 0x20, 0x52, 0x20, 0x02, 0x00, 0x00, 0xFF}));
    EXPECT_EQ(bytes_of(seek_frame(8388607)),
              (Bytes{0x00, 0x20, 0x52, 0x20, 0xFE, 0xFF, 0xFF, 0xFF}));
    // From 2^23 on, the doubled track no longer fits 24 bits: the top is dropped.
    EXPECT_EQ(bytes_of(seek_frame(8388608)),
              (Bytes{0x00, 0x20, 0x52, 0x20, 0x00, 0x00, 0x00, 0xFF}));
    EXPECT_EQ(bytes_of(seek_frame(8388608 + 0x123)),
              (Bytes{0x00, 0x20, 0x52, 0x20, 0x46, 0x02, 0x00, 0xFF}));
}

TEST_F(Dv, SeekSendsTheFrameAsARawCommandOfEightBytes) {
    dv.attach(&camera);
    dv.seek(1193046);
    ASSERT_EQ(camera.raw_commands.size(), 1u);
    EXPECT_EQ(camera.raw_commands[0].param, media::ED_RAW_EXT_DEV_CMD);
    EXPECT_EQ(camera.raw_commands[0].length, 8);
    EXPECT_EQ(camera.raw_commands[0].bytes,
              (Bytes{0x00, 0x20, 0x52, 0x20, 0xAC, 0x68, 0x24, 0xFF}));
    camera.fail("get_transport_basic_parameters", E_TEST2);
    EXPECT_TRUE(raises([&] { dv.seek(0); }, ERR_DV_SEEK, E_TEST2));
    EXPECT_EQ(camera.raw_commands.back().bytes, bytes_of(seek_frame(0)));
}

TEST_F(Dv, TransportModesStatusAndTheirFailures) {
    dv.attach(&camera);
    dv.play();
    dv.stop();
    dv.set_mode(media::ED_MODE_STEP_REV);
    EXPECT_EQ(camera.modes, (std::vector<long>{4296, 4297, 4905}));
    EXPECT_EQ(dv.transport_mode(), media::ED_MODE_STEP_REV);
    EXPECT_TRUE(ledger.called("DV Camcorder.get_status(4596)"));
    camera.fail("put_mode", E_TEST1);
    EXPECT_TRUE(raises([&] { dv.play(); }, ERR_SET_DV_MODE, E_TEST1));
    EXPECT_TRUE(raises([&] { dv.stop(); }, ERR_SET_DV_MODE, E_TEST1));
    // No answer reads as mode 0.
    camera.fail("get_status", E_TEST1);
    EXPECT_EQ(dv.transport_mode(), 0);
    // The held transport itself, for the playing-status query made elsewhere.
    camera.script.clear();
    camera.playing = media::OATRUE;
    long playing = 0;
    EXPECT_EQ(dv.transport()->get_status(media::ED_MODE_PLAY, &playing), S_OK);
    EXPECT_EQ(playing, media::OATRUE);
    EXPECT_TRUE(same_object(dv.transport(), camera.identity()));
}

using DvDeathTest = Dv;

TEST_F(DvDeathTest, AttachingANonDvFilterAndUsingADetachedDeviceStop) {
    FakeFilter& webcam = make_video_source(ledger, "USB Video Device");
    EXPECT_DEATH(dv.attach(&webcam), "Assertion failed: is_dv\\(_filter\\), file capdv\\.cpp");
    Timecode tc;
    EXPECT_DEATH(dv.get_timecode(tc), "t != NULL");
    EXPECT_DEATH(dv.query_dv_mode(), "t != NULL");
    EXPECT_DEATH(dv.seek(1), "t != NULL");
    EXPECT_DEATH(dv.play(), "t != NULL");
    EXPECT_DEATH(dv.transport_mode(), "t != NULL");
    EXPECT_DEATH(dv.transport(), "t != NULL");
}
