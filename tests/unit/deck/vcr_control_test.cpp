#include "deck/vcr_control.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/unit/deck/deck_test_tapes.h"

namespace kc::deck {
namespace {

struct Control {
    explicit Control(DvSystem system = DvSystem::pal_625_50)
        : clock(std::make_shared<ManualClock>()),
          vcr(make_vcr(testing::make_tape(testing::small_plan(system, 100)), clock)),
          control(VcrControl::create(vcr)) {}
    ~Control() { control->release(); }
    std::shared_ptr<ManualClock> clock;
    std::shared_ptr<VirtualVcr> vcr;
    VcrControl* control;
};

TEST(VcrControl, OneObjectAnswersEveryDeviceControlInterface) {
    Control c;
    void* device = nullptr;
    void* transport = nullptr;
    void* dropped = nullptr;
    ASSERT_EQ(c.control->query_interface(Iid::ext_device, &device), S_OK);
    ASSERT_EQ(c.control->query_interface(Iid::ext_transport, &transport), S_OK);
    ASSERT_EQ(c.control->query_interface(Iid::dropped_frames, &dropped), S_OK);
    void* identity_a = nullptr;
    void* identity_b = nullptr;
    static_cast<media::ExtTransport*>(transport)->query_interface(Iid::unknown, &identity_a);
    static_cast<media::DroppedFrames*>(dropped)->query_interface(Iid::unknown, &identity_b);
    EXPECT_EQ(identity_a, identity_b);
    void* none = &c;
    EXPECT_EQ(c.control->query_interface(Iid::file_sink, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    static_cast<media::ExtDevice*>(device)->release();
    static_cast<media::ExtTransport*>(transport)->release();
    static_cast<media::DroppedFrames*>(dropped)->release();
    static_cast<media::ExtDevice*>(identity_a)->release();
    static_cast<media::ExtDevice*>(identity_b)->release();
}

TEST(VcrControl, CapabilitiesTellAVcrAndTheTapesRate) {
    for (auto [system, rate] : {std::pair{DvSystem::pal_625_50, media::ED_RATE_25},
                                std::pair{DvSystem::ntsc_525_60, media::ED_RATE_2997}}) {
        Control c(system);
        long value = 0;
        ASSERT_EQ(c.control->get_capability(media::ED_DEVCAP_DEVICE_TYPE, &value, nullptr), S_OK);
        EXPECT_EQ(value, media::ED_DEVTYPE_VCR);
        ASSERT_EQ(c.control->get_capability(media::ED_DEVCAP_NORMAL_RATE, &value, nullptr), S_OK);
        EXPECT_EQ(value, rate);
    }
}

TEST(VcrControl, TransportStatusAndTimecodeFollowTheTape) {
    Control c;
    ASSERT_EQ(c.control->put_mode(media::ED_MODE_PLAY), S_OK);
    c.clock->advance_ms(2000);
    long mode = 0;
    long playing = 0;
    ASSERT_EQ(c.control->get_status(media::ED_MODE, &mode), S_OK);
    ASSERT_EQ(c.control->get_status(media::ED_MODE_PLAY, &playing), S_OK);
    EXPECT_EQ(mode, media::ED_MODE_PLAY);
    EXPECT_EQ(playing, media::OATRUE);

    media::TimecodeSample sample;
    sample.flags = media::ED_DEVCAP_TIMECODE_READ;
    ASSERT_EQ(c.control->get_timecode(sample), S_OK);
    EXPECT_EQ(sample.frames, 0x00100200u) << "the demo's first recording, two seconds in";
    sample.flags = media::ED_DEVCAP_ATN_READ;
    ASSERT_EQ(c.control->get_timecode(sample), S_OK);
    EXPECT_EQ(sample.frames, 50u * 12);

    c.vcr->set_faults(VcrFaults{false, true, false, 0});
    sample.flags = media::ED_DEVCAP_TIMECODE_READ;
    sample.frames = 7;
    EXPECT_FALSE(succeeded(c.control->get_timecode(sample)));
    EXPECT_EQ(sample.frames, 7u) << "a failed read leaves the sample alone";
}

TEST(VcrControl, RawAbsoluteTrackNumberCommandAnswersWhenTheTapeIsThereOrRejects) {
    Control c;
    c.clock->set_auto_advance(true);
    const auto sent = testing::atn_seek_command(200 * 12);
    auto frame = sent;
    // Sends `frame` as it is now; the answer comes back in it.
    auto raw = [&] {
        long length = 8;
        return c.control->get_transport_basic_parameters(media::ED_RAW_EXT_DEV_CMD, &length,
                                                         frame.data());
    };
    ASSERT_EQ(raw(), S_OK);
    EXPECT_EQ(frame[0], avc_accepted);
    EXPECT_TRUE(std::equal(frame.begin() + 1, frame.end(), sent.begin() + 1));
    // The answer came when the tape got there: 200 frames at 30 times 25 frames a second.
    EXPECT_EQ(c.clock->now_ms(), 267);
    EXPECT_EQ(c.vcr->state().mode, TransportMode::freeze);
    media::TimecodeSample sample;
    sample.flags = media::ED_DEVCAP_ATN_READ;
    ASSERT_EQ(c.control->get_timecode(sample), S_OK);
    EXPECT_EQ(sample.frames, 200u * 12);

    c.vcr->set_faults(VcrFaults{false, false, true, 0});
    frame = sent;
    EXPECT_EQ(raw(), E_FAIL);
    EXPECT_EQ(frame[0], avc_rejected);
    frame = sent;
    frame[2] = 0xC3;
    EXPECT_EQ(raw(), E_NOTIMPL);
    EXPECT_EQ(frame[0], avc_not_implemented);
    c.vcr->set_faults(VcrFaults{true, false, false, 0});
    frame = sent;
    EXPECT_EQ(raw(), device_lost_error);
    long mode = 0;
    EXPECT_EQ(c.control->get_status(media::ED_MODE, &mode), device_lost_error);
}

TEST(VcrControl, DroppedFrameCountersComeFromTheStream) {
    Control c;
    c.vcr->set_mode(media::ED_MODE_PLAY);
    c.vcr->start_stream();
    std::vector<std::uint8_t> out;
    FetchedFrame info;
    c.vcr->fetch_frame(out, info);
    c.clock->advance_ms(400);  // nine frames missed, the tenth taken
    c.vcr->fetch_frame(out, info);
    long dropped = 0;
    long delivered = 0;
    ASSERT_EQ(c.control->get_num_dropped(&dropped), S_OK);
    ASSERT_EQ(c.control->get_num_not_dropped(&delivered), S_OK);
    EXPECT_EQ(dropped, 9);
    EXPECT_EQ(delivered, 2);
}

}  // namespace
}  // namespace kc::deck
