// AvcDeviceControl against a scripted channel: the frames each device-control call
// sends, and how each answer of the unit reads back.
#include "platform/avc/dv_control.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/unit/avc/scripted_channel.h"

namespace kc::avc {
namespace {

using test::answer;
using test::ChannelLog;

class DvControlTest : public ::testing::Test {
  protected:
    DvControlTest()
        : log(std::make_shared<ChannelLog>()),
          control(AvcDeviceControl::create(std::make_unique<test::ScriptedChannel>(log))) {}
    ~DvControlTest() override {
        control->release();
        EXPECT_TRUE(log->script.empty()) << "answers left unused";
    }

    // Scripts the unit's answer to the next command, built from the frame expected.
    void expect(const Frame& command, Response code, std::vector<std::uint8_t> operands = {}) {
        log->script.push_back({S_OK, answer(command, code, std::move(operands))});
    }
    void expect_raw(Frame response) { log->script.push_back({S_OK, std::move(response)}); }
    void expect_failure(HRESULT hr) { log->script.push_back({hr, {}}); }
    HRESULT raw(long& length, std::uint8_t* frame) {
        return control->get_transport_basic_parameters(media::ED_RAW_EXT_DEV_CMD, &length, frame);
    }
    HRESULT normal_rate(long* rate, double* dbl = nullptr) {
        return control->get_capability(media::ED_DEVCAP_NORMAL_RATE, rate, dbl);
    }

    std::shared_ptr<ChannelLog> log;
    AvcDeviceControl* control;
};

const Frame transport_state{0x01, 0x20, 0xD0, 0x7F};
const Frame time_code{0x01, 0x20, 0x51, 0x71, 0xFF, 0xFF, 0xFF, 0xFF};
const Frame binary_group{0x01, 0x20, 0x5A, 0x71, 0xFF, 0xFF, 0xFF, 0xFF};
const Frame track_number{0x01, 0x20, 0x52, 0x71, 0xFF, 0xFF, 0xFF, 0xFF};
const Frame output_signal_mode{0x01, 0x20, 0x78, 0xFF};
const Frame plug_signal_format{0x01, 0xFF, 0x18, 0x00, 0xFF, 0xFF, 0xFF, 0xFF};
const Frame subunit_info{0x01, 0xFF, 0x31, 0x07, 0xFF, 0xFF, 0xFF, 0xFF};

// A transport state answer: the tape's mode opcode in byte 2, its operand in byte 3.
Frame state_answer(std::uint8_t opcode, std::uint8_t operand) {
    return Frame{0x0C, 0x20, opcode, operand};
}

TEST_F(DvControlTest, EveryTransportModeSendsItsTapeCommand) {
    const struct {
        long mode;
        Frame frame;
    } cases[] = {
        {media::ED_MODE_PLAY, {0x00, 0x20, 0xC3, 0x75}},
        {media::ED_MODE_STOP, {0x00, 0x20, 0xC4, 0x60}},
        {media::ED_MODE_FF, {0x00, 0x20, 0xC4, 0x75}},
        {media::ED_MODE_REW, {0x00, 0x20, 0xC4, 0x65}},
        {media::ED_MODE_STEP_FWD, {0x00, 0x20, 0xC3, 0x30}},
        {media::ED_MODE_STEP_REV, {0x00, 0x20, 0xC3, 0x40}},
        {media::ED_MODE_PLAY_FASTEST_FWD, {0x00, 0x20, 0xC3, 0x3F}},
        {media::ED_MODE_PLAY_FASTEST_REV, {0x00, 0x20, 0xC3, 0x4F}},
        {media::ED_MODE_THAW, {0x00, 0x20, 0xC3, 0x75}},
    };
    for (const auto& c : cases) {
        log->sent.clear();
        expect(c.frame, Response::accepted);
        EXPECT_EQ(control->put_mode(c.mode), S_OK) << c.mode;
        ASSERT_EQ(log->sent.size(), 1u) << c.mode;
        EXPECT_EQ(log->sent[0], c.frame) << c.mode;
    }
}

TEST_F(DvControlTest, FreezePausesTheWayTheTapeMoves) {
    // Playing: PLAY FORWARD PAUSE.
    expect_raw(state_answer(0xC3, 0x75));
    expect({0x00, 0x20, 0xC3, 0x7D}, Response::accepted);
    EXPECT_EQ(control->put_mode(media::ED_MODE_FREEZE), S_OK);
    // Recording: RECORD PAUSE, so that the recording is not turned into playback.
    expect_raw(state_answer(0xC2, 0x75));
    expect({0x00, 0x20, 0xC2, 0x7D}, Response::accepted);
    EXPECT_EQ(control->put_mode(media::ED_MODE_FREEZE), S_OK);
    // A unit that cannot tell its state gets the playback pause.
    expect_failure(hresult_from_errno(ETIMEDOUT));
    expect({0x00, 0x20, 0xC3, 0x7D}, Response::accepted);
    EXPECT_EQ(control->put_mode(media::ED_MODE_FREEZE), S_OK);

    ASSERT_EQ(log->sent.size(), 6u);
    EXPECT_EQ(log->sent[0], transport_state);
    EXPECT_EQ(log->sent[1], (Frame{0x00, 0x20, 0xC3, 0x7D}));
    EXPECT_EQ(log->sent[3], (Frame{0x00, 0x20, 0xC2, 0x7D}));
    EXPECT_EQ(log->sent[5], (Frame{0x00, 0x20, 0xC3, 0x7D}));
}

TEST_F(DvControlTest, RecordAndUnknownModesAreRefusedWithoutTouchingTheTape) {
    EXPECT_EQ(control->put_mode(media::ED_MODE_RECORD), E_INVALIDARG);
    EXPECT_EQ(control->put_mode(media::ED_MODE_RECORD_STROBE), E_INVALIDARG);
    EXPECT_EQ(control->put_mode(0), E_INVALIDARG);
    EXPECT_EQ(control->put_mode(media::ED_MODE), E_INVALIDARG);
    EXPECT_TRUE(log->sent.empty());
}

TEST_F(DvControlTest, TheUnitsVerdictBecomesTheResult) {
    const Frame play{0x00, 0x20, 0xC3, 0x75};
    expect(play, Response::rejected);
    EXPECT_EQ(control->put_mode(media::ED_MODE_PLAY), hresult_from_errno(EBUSY));
    expect(play, Response::not_implemented);
    EXPECT_EQ(control->put_mode(media::ED_MODE_PLAY), E_NOTIMPL);
    expect(play, Response::interim);
    EXPECT_EQ(control->put_mode(media::ED_MODE_PLAY), hresult_from_errno(ETIMEDOUT));
    // An answer to some other command, a truncated one, and an unknown response code.
    expect_raw({0x09, 0x20, 0xC4, 0x60});
    EXPECT_EQ(control->put_mode(media::ED_MODE_PLAY), hresult_from_errno(EPROTO));
    expect_raw({0x09, 0x20});
    EXPECT_EQ(control->put_mode(media::ED_MODE_PLAY), hresult_from_errno(EPROTO));
    expect_raw({0x05, 0x20, 0xC3, 0x75});
    EXPECT_EQ(control->put_mode(media::ED_MODE_PLAY), hresult_from_errno(EPROTO));
    // A failure of the bus passes through as it is.
    expect_failure(hresult_from_errno(ENODEV));
    EXPECT_EQ(control->put_mode(media::ED_MODE_PLAY), hresult_from_errno(ENODEV));
}

TEST_F(DvControlTest, TransportStateReadsAsModes) {
    const struct {
        std::uint8_t opcode;
        std::uint8_t operand;
        long mode;
        long playing;
    } cases[] = {
        {0xC3, 0x75, media::ED_MODE_PLAY, media::OATRUE},
        {0xC3, 0x38, media::ED_MODE_PLAY, media::OATRUE},
        {0xC3, 0x65, media::ED_MODE_PLAY, media::OATRUE},  // reverse play
        {0xC3, 0x7D, media::ED_MODE_FREEZE, media::OAFALSE},
        {0xC3, 0x6D, media::ED_MODE_FREEZE, media::OAFALSE},
        {0xC3, 0x3F, media::ED_MODE_PLAY_FASTEST_FWD, media::OATRUE},
        {0xC3, 0x4F, media::ED_MODE_PLAY_FASTEST_REV, media::OATRUE},
        {0xC3, 0x30, media::ED_MODE_STEP_FWD, media::OAFALSE},
        {0xC3, 0x40, media::ED_MODE_STEP_REV, media::OAFALSE},
        {0xC4, 0x60, media::ED_MODE_STOP, media::OAFALSE},
        {0xC4, 0x75, media::ED_MODE_FF, media::OAFALSE},
        {0xC4, 0x65, media::ED_MODE_REW, media::OAFALSE},
        {0xC4, 0x45, media::ED_MODE_REW, media::OAFALSE},
        {0xC2, 0x75, media::ED_MODE_RECORD, media::OAFALSE},
        {0xC2, 0x7D, media::ED_MODE_FREEZE, media::OAFALSE},
        {0xC2, 0x41, media::ED_MODE_FREEZE, media::OAFALSE},  // insert-edit pause
        {0xC1, 0x60, media::ED_MODE_STOP, media::OAFALSE},
    };
    for (const auto& c : cases) {
        log->sent.clear();
        expect_raw(state_answer(c.opcode, c.operand));
        expect_raw(state_answer(c.opcode, c.operand));
        long mode = 0;
        long playing = 12345;
        EXPECT_EQ(control->get_status(media::ED_MODE, &mode), S_OK);
        EXPECT_EQ(control->get_status(media::ED_MODE_PLAY, &playing), S_OK);
        EXPECT_EQ(mode, c.mode) << std::hex << int(c.opcode) << " " << int(c.operand);
        EXPECT_EQ(playing, c.playing) << std::hex << int(c.opcode) << " " << int(c.operand);
        ASSERT_EQ(log->sent.size(), 2u);
        EXPECT_EQ(log->sent[0], transport_state);
    }
}

TEST_F(DvControlTest, TransportStatusFailuresLeaveTheValue) {
    long value = 77;
    EXPECT_EQ(control->get_status(media::ED_MODE_STOP, &value), E_NOTIMPL);
    EXPECT_EQ(control->get_status(media::ED_MODE, nullptr), E_POINTER);
    expect(transport_state, Response::not_implemented);
    EXPECT_EQ(control->get_status(media::ED_MODE, &value), E_NOTIMPL);
    expect_failure(hresult_from_errno(EIO));
    EXPECT_EQ(control->get_status(media::ED_MODE_PLAY, &value), hresult_from_errno(EIO));
    EXPECT_EQ(value, 77);
}

TEST_F(DvControlTest, TimecodeReadsBcdAndUserBitsWhenThereAreAny) {
    // Frames, seconds, minutes, hours: 01:23:45:29.
    expect(time_code, Response::stable, {0x71, 0x29, 0x45, 0x23, 0x01});
    expect(binary_group, Response::stable, {0x71, 0x01, 0x00, 0x00, 0x00});
    media::TimecodeSample sample;
    sample.flags = media::ED_DEVCAP_TIMECODE_READ;
    ASSERT_EQ(control->get_timecode(sample), S_OK);
    EXPECT_EQ(sample.frames, 0x01234529u);
    EXPECT_EQ(sample.user, 1u);
    ASSERT_EQ(log->sent.size(), 2u);
    EXPECT_EQ(log->sent[0], time_code);
    EXPECT_EQ(log->sent[1], binary_group);

    // Drop-frame, colour-frame and binary group flags beside the digits are cleared;
    // the user bits keep every group.
    expect(time_code, Response::stable, {0x71, 0xE9, 0xD9, 0x80 | 0x59, 0xC0 | 0x23});
    expect(binary_group, Response::stable, {0x71, 0x32, 0x54, 0x76, 0x98});
    ASSERT_EQ(control->get_timecode(sample), S_OK);
    EXPECT_EQ(sample.frames, 0x23595929u);
    EXPECT_EQ(sample.user, 0x98765432u);

    // A unit without user bits: none, rather than the last ones read.
    expect(time_code, Response::stable, {0x71, 0x00, 0x00, 0x00, 0x00});
    expect(binary_group, Response::not_implemented);
    ASSERT_EQ(control->get_timecode(sample), S_OK);
    EXPECT_EQ(sample.frames, 0u);
    EXPECT_EQ(sample.user, 0u);
}

TEST_F(DvControlTest, NoTimecodeHereIsAFailureAndLeavesTheSample) {
    expect(time_code, Response::stable, {0x71, 0xFF, 0xFF, 0xFF, 0xFF});
    media::TimecodeSample sample;
    sample.flags = media::ED_DEVCAP_TIMECODE_READ;
    sample.frames = 0x11;
    EXPECT_EQ(control->get_timecode(sample), hresult_from_errno(ENODATA));
    EXPECT_EQ(sample.frames, 0x11u);
    EXPECT_EQ(log->sent.size(), 1u);  // no user bits asked for a timecode not there

    expect(time_code, Response::rejected);
    EXPECT_EQ(control->get_timecode(sample), hresult_from_errno(EBUSY));
    sample.flags = 0;
    EXPECT_EQ(control->get_timecode(sample), E_INVALIDARG);
}

TEST_F(DvControlTest, TrackNumberReadsTheSeekLayout) {
    // The seek of track 1193046 sends AC 68 24: the same three bytes read back as it.
    expect(track_number, Response::stable, {0x71, 0xAC, 0x68, 0x24, 0xFF});
    media::TimecodeSample sample;
    sample.flags = media::ED_DEVCAP_ATN_READ;
    ASSERT_EQ(control->get_timecode(sample), S_OK);
    EXPECT_EQ(sample.frames, 1193046u);
    ASSERT_EQ(log->sent.size(), 1u);
    EXPECT_EQ(log->sent[0], track_number);
    // The blank flag in bit 0 is no part of the number.
    expect(track_number, Response::stable, {0x71, 0x01, 0x00, 0x00, 0xFF});
    ASSERT_EQ(control->get_timecode(sample), S_OK);
    EXPECT_EQ(sample.frames, 0u);
    expect(track_number, Response::stable, {0x71, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(control->get_timecode(sample), hresult_from_errno(ENODATA));
    expect(track_number, Response::not_implemented);
    EXPECT_EQ(control->get_timecode(sample), E_NOTIMPL);
}

TEST_F(DvControlTest, FrameRateFromTheOutputSignalMode) {
    const struct {
        std::uint8_t mode;
        long rate;
    } cases[] = {{0x80, media::ED_RATE_25},    // SD 625-50
                 {0x84, media::ED_RATE_25},    // SDL 625-50
                 {0x00, media::ED_RATE_2997},  // SD 525-60
                 {0x04, media::ED_RATE_2997}};
    for (const auto& c : cases) {
        expect(output_signal_mode, Response::stable, {c.mode});
        long rate = 0;
        double dbl = 5.0;
        ASSERT_EQ(normal_rate(&rate, &dbl), S_OK);
        EXPECT_EQ(rate, c.rate) << int(c.mode);
        EXPECT_EQ(dbl, 0.0);
    }
    EXPECT_EQ(log->sent.back(), output_signal_mode);
}

TEST_F(DvControlTest, FrameRateFallsBackToThePlugSignalFormat) {
    long rate = 0;
    expect(output_signal_mode, Response::not_implemented);
    expect(plug_signal_format, Response::stable, {0x00, 0x80, 0x80, 0x00, 0x00});
    ASSERT_EQ(normal_rate(&rate), S_OK);
    EXPECT_EQ(rate, media::ED_RATE_25);
    ASSERT_EQ(log->sent.size(), 2u);
    EXPECT_EQ(log->sent[1], plug_signal_format);

    expect(output_signal_mode, Response::not_implemented);
    expect(plug_signal_format, Response::stable, {0x00, 0x80, 0x00, 0x00, 0x00});
    ASSERT_EQ(normal_rate(&rate), S_OK);
    EXPECT_EQ(rate, media::ED_RATE_2997);

    // Neither known, or a stream that is no DV: no rate is made up.
    expect(output_signal_mode, Response::not_implemented);
    expect(plug_signal_format, Response::not_implemented);
    EXPECT_EQ(normal_rate(&rate), E_NOTIMPL);
    expect(output_signal_mode, Response::not_implemented);
    expect(plug_signal_format, Response::stable, {0x00, 0xA0, 0x00, 0x00, 0x00});
    EXPECT_EQ(normal_rate(&rate), hresult_from_errno(EPROTO));
    // A rejected signal mode is an answer, not a reason to ask elsewhere.
    expect(output_signal_mode, Response::rejected);
    EXPECT_EQ(normal_rate(&rate), hresult_from_errno(EBUSY));
}

TEST_F(DvControlTest, DeviceTypeFromTheSubunits) {
    const struct {
        std::vector<std::uint8_t> entries;
        long type;
    } cases[] = {
        {{0x20, 0xFF, 0xFF, 0xFF}, media::ED_DEVTYPE_VCR},     // tape
        {{0x38, 0xFF, 0xFF, 0xFF}, media::ED_DEVTYPE_CAMERA},  // camera only
        {{0x38, 0x20, 0xFF, 0xFF}, media::ED_DEVTYPE_VCR},     // camcorder showing its tape
        {{0x48, 0xFF, 0xFF, 0xFF}, 0},                         // a panel
        {{0xFF, 0xFF, 0xFF, 0xFF}, 0},
    };
    for (const auto& c : cases) {
        std::vector<std::uint8_t> operands{0x07};
        operands.insert(operands.end(), c.entries.begin(), c.entries.end());
        expect(subunit_info, Response::stable, operands);
        long type = -5;
        ASSERT_EQ(control->get_capability(media::ED_DEVCAP_DEVICE_TYPE, &type, nullptr), S_OK);
        EXPECT_EQ(type, c.type) << std::hex << int(c.entries[0]);
    }
    EXPECT_EQ(log->sent.back(), subunit_info);
    expect(subunit_info, Response::rejected);
    long type = 0;
    EXPECT_EQ(control->get_capability(media::ED_DEVCAP_DEVICE_TYPE, &type, nullptr),
              hresult_from_errno(EBUSY));
    EXPECT_EQ(control->get_capability(media::ED_DEVCAP_TIMECODE_READ, &type, nullptr), E_NOTIMPL);
    EXPECT_EQ(control->get_capability(media::ED_DEVCAP_DEVICE_TYPE, nullptr, nullptr), E_POINTER);
}

TEST_F(DvControlTest, RawCommandGoesOutUnchangedAndBringsTheAnswerBack) {
    std::uint8_t frame[8] = {0x00, 0x20, 0x52, 0x20, 0xAC, 0x68, 0x24, 0xFF};
    const Frame sent(frame, frame + 8);
    expect(sent, Response::accepted);
    long length = 8;
    ASSERT_EQ(raw(length, frame), S_OK);
    ASSERT_EQ(log->sent.size(), 1u);
    EXPECT_EQ(log->sent[0], sent);
    EXPECT_EQ(length, 8);
    EXPECT_EQ(frame[0], 0x09);  // the response, ACCEPTED
    EXPECT_EQ(Frame(frame + 1, frame + 8), Frame(sent.begin() + 1, sent.end()));

    // Any frame of 1 to 512 bytes goes out as it is, whatever it says.
    std::vector<std::uint8_t> big(512, 0x5A);
    big[0] = 0x01;
    big[1] = 0xFF;
    big[2] = 0x30;
    expect(Frame(big.begin(), big.end()), Response::stable);
    length = 512;
    EXPECT_EQ(raw(length, big.data()), S_OK);
    EXPECT_EQ(log->sent.back().size(), 512u);
}

TEST_F(DvControlTest, RawCommandFailures) {
    std::uint8_t frame[8] = {0x00, 0x20, 0x52, 0x20, 0x00, 0x00, 0x00, 0xFF};
    long length = 8;
    expect(Frame(frame, frame + 8), Response::rejected);
    EXPECT_EQ(raw(length, frame), hresult_from_errno(EBUSY));
    EXPECT_EQ(frame[0], 0x00);  // a refused command leaves the caller's frame alone
    expect_failure(hresult_from_errno(ENODEV));
    EXPECT_EQ(raw(length, frame), hresult_from_errno(ENODEV));

    std::vector<std::uint8_t> huge(513, 0);
    length = 513;
    EXPECT_EQ(raw(length, huge.data()), E_INVALIDARG);
    length = 0;
    EXPECT_EQ(raw(length, frame), E_INVALIDARG);
    length = 8;
    EXPECT_EQ(control->get_transport_basic_parameters(media::ED_MODE, &length, frame), E_NOTIMPL);
    EXPECT_EQ(control->get_transport_basic_parameters(media::ED_RAW_EXT_DEV_CMD, nullptr, frame),
              E_POINTER);
    EXPECT_EQ(log->sent.size(), 2u);
}

TEST_F(DvControlTest, OneObjectAnswersTheThreeControlInterfaces) {
    void* device = nullptr;
    void* transport = nullptr;
    void* reader = nullptr;
    void* identity = nullptr;
    ASSERT_EQ(control->query_interface(Iid::ext_device, &device), S_OK);
    ASSERT_EQ(control->query_interface(Iid::ext_transport, &transport), S_OK);
    ASSERT_EQ(control->query_interface(Iid::timecode_reader, &reader), S_OK);
    ASSERT_EQ(control->query_interface(Iid::unknown, &identity), S_OK);
    EXPECT_EQ(identity, device);

    // Each face leads back to the same identity.
    void* again = nullptr;
    ASSERT_EQ(static_cast<media::TimecodeReader*>(reader)->query_interface(Iid::unknown, &again),
              S_OK);
    EXPECT_EQ(again, identity);
    static_cast<media::ExtDevice*>(again)->release();

    void* none = reinterpret_cast<void*>(1);
    EXPECT_EQ(control->query_interface(Iid::base_filter, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);

    static_cast<media::ExtDevice*>(device)->release();
    static_cast<media::ExtTransport*>(transport)->release();
    static_cast<media::TimecodeReader*>(reader)->release();
    EXPECT_EQ(static_cast<media::ExtDevice*>(identity)->release(), 1u);
}

}  // namespace
}  // namespace kc::avc
