#include "deck/vcr.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/unit/deck/deck_test_tapes.h"

namespace kc::deck {
namespace {

using testing::frame_mark;
using testing::make_tape;
using testing::small_plan;

constexpr long play = static_cast<long>(TransportMode::play);
constexpr long stop = static_cast<long>(TransportMode::stop);
constexpr long freeze = static_cast<long>(TransportMode::freeze);

struct Deck {
    explicit Deck(DvSystem system = DvSystem::pal_625_50, std::int64_t frames = 100,
                  VcrOptions options = {})
        : plan(small_plan(system, frames)), vcr(make_tape(plan), clock, options) {}
    TapePlan plan;
    ManualClock clock;
    VirtualVcr vcr;

    long mode() {
        long m = 0;
        EXPECT_EQ(vcr.get_mode(m), S_OK);
        return m;
    }
    std::int64_t frame() { return vcr.state().frame(); }
};

// A real deck stops at the end of its tape, on its last frame: whoever polls it then reads
// a stopped transport and the last frame's position, not a playing tape off its end.
TEST(Vcr, PlayMovesAtTheFrameRateAndStopsOnTheTapesLastFrame) {
    Deck deck;  // 300 frames of PAL
    EXPECT_EQ(deck.mode(), stop);
    ASSERT_EQ(deck.vcr.set_mode(play), S_OK);
    deck.vcr.start_stream();
    deck.clock.advance_ms(1000);
    EXPECT_EQ(deck.frame(), 25);
    bool playing = false;
    ASSERT_EQ(deck.vcr.get_playing(playing), S_OK);
    EXPECT_TRUE(playing);
    deck.clock.advance_ms(298 * 40 - 1000);
    std::vector<std::uint8_t> out;
    FetchedFrame info;
    ASSERT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::frame);
    EXPECT_EQ(info.tape_frame, 298);
    deck.clock.advance_ms(80);
    EXPECT_EQ(deck.mode(), stop) << "a frame period after the last frame the tape stops";
    ASSERT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::frame)
        << "a reader running late still gets the last frame played";
    EXPECT_EQ(info.tape_frame, 299);
    EXPECT_EQ(info.dropped_before, 0);
    ASSERT_EQ(deck.vcr.get_playing(playing), S_OK);
    EXPECT_FALSE(playing);
    EXPECT_EQ(deck.frame(), 299);
    BcdTimecode tc{};
    std::uint32_t user = 0;
    ASSERT_EQ(deck.vcr.read_timecode(tc, user), S_OK);
    EXPECT_EQ(tc, to_bcd_word(plan_frame(deck.plan, 299).timecode));
    std::int64_t track = 0;
    ASSERT_EQ(deck.vcr.read_track(track), S_OK);
    EXPECT_EQ(track, 299 * 12);
    EXPECT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::no_picture);
    ASSERT_EQ(deck.vcr.set_mode(play), S_OK);
    EXPECT_EQ(deck.mode(), stop) << "play at the end goes nowhere";
    deck.vcr.set_mode(static_cast<long>(TransportMode::fast_forward));
    EXPECT_EQ(deck.mode(), stop);
}

// From stop a deck threads its tape before it plays: the mode is play at once, the first
// frame comes when the tape moves, and a waiting stream is woken for it rather than
// finding frames already lost. A tape stopped a moment ago is still threaded.
TEST(Vcr, PlayFromStopThreadsTheTapeFirstAndFromPauseAtOnce) {
    Deck deck(DvSystem::pal_625_50, 100, VcrOptions{.lace_ms = 400, .unthread_after_ms = 500});
    deck.vcr.seek_track(10 * 12);
    deck.clock.advance_ms(500);
    deck.vcr.set_mode(stop);
    deck.clock.advance_ms(500);  // long enough stopped for the deck to unthread
    deck.vcr.start_stream();
    ASSERT_EQ(deck.vcr.set_mode(play), S_OK);
    EXPECT_EQ(deck.mode(), play);
    std::vector<std::uint8_t> out;
    FetchedFrame info;
    std::int64_t next = 0;
    EXPECT_EQ(deck.vcr.fetch_frame(out, info, &next), FetchStatus::no_picture);
    EXPECT_EQ(next, 1400);
    deck.clock.advance_ms(400 + 40);
    ASSERT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::frame);
    EXPECT_EQ(info.tape_frame, 11);
    EXPECT_EQ(info.dropped_before, 1) << "frame 10 fell due 40 ms ago and was not taken";
    deck.vcr.set_mode(freeze);
    deck.vcr.set_mode(play);
    EXPECT_TRUE(deck.vcr.state().picture) << "from pause the tape is threaded already";
    deck.vcr.set_mode(stop);
    deck.clock.advance_ms(400);
    deck.vcr.set_mode(play);
    EXPECT_TRUE(deck.vcr.state().picture) << "stopped a moment ago, still threaded";
    deck.vcr.set_mode(stop);
    deck.clock.advance_ms(500);
    deck.vcr.set_mode(play);
    EXPECT_FALSE(deck.vcr.state().picture) << "unthreaded after standing stopped";
    deck.vcr.set_mode(static_cast<long>(TransportMode::fast_forward));
    deck.clock.advance_ms(100);
    deck.vcr.set_mode(stop);
    deck.vcr.set_mode(play);
    EXPECT_FALSE(deck.vcr.state().picture) << "winding unthreads the tape";
}

TEST(Vcr, PauseHoldsAStillFrameAndStepsMoveOneFrame) {
    Deck deck;
    deck.vcr.set_mode(play);
    deck.clock.advance_ms(1010);
    ASSERT_EQ(deck.vcr.set_mode(freeze), S_OK);
    deck.clock.advance_ms(5000);
    EXPECT_EQ(deck.frame(), 25);
    EXPECT_EQ(deck.mode(), freeze);
    EXPECT_TRUE(deck.vcr.state().picture);
    deck.vcr.set_mode(static_cast<long>(TransportMode::step_forward));
    deck.vcr.set_mode(static_cast<long>(TransportMode::step_forward));
    EXPECT_EQ(deck.frame(), 27);
    deck.vcr.set_mode(static_cast<long>(TransportMode::step_reverse));
    EXPECT_EQ(deck.frame(), 26);
    EXPECT_EQ(deck.mode(), static_cast<long>(TransportMode::step_reverse));
    deck.vcr.set_mode(stop);
    EXPECT_FALSE(deck.vcr.state().picture);
}

TEST(Vcr, WindingIsFasterThanPictureSearchWhichIsFasterThanPlay) {
    Deck deck(DvSystem::pal_625_50, 1000);  // 3000 frames
    deck.vcr.set_mode(static_cast<long>(TransportMode::fast_forward));
    deck.clock.advance_ms(1000);
    EXPECT_EQ(deck.frame(), 30 * 25);
    EXPECT_FALSE(deck.vcr.state().picture);
    deck.vcr.set_mode(static_cast<long>(TransportMode::fastest_reverse));
    deck.clock.advance_ms(1000);
    EXPECT_EQ(deck.frame(), 30 * 25 - 10 * 25);
    EXPECT_TRUE(deck.vcr.state().picture);
    deck.vcr.set_mode(static_cast<long>(TransportMode::rewind));
    deck.clock.advance_ms(60000);
    EXPECT_EQ(deck.frame(), 0);
    EXPECT_EQ(deck.mode(), stop) << "the transport stops at the tape's start";
}

TEST(Vcr, TimecodeAndTrackFollowThePositionOnBothSystems) {
    for (DvSystem system : {DvSystem::pal_625_50, DvSystem::ntsc_525_60}) {
        Deck deck(system);
        const int tracks = system == DvSystem::pal_625_50 ? 12 : 10;
        for (std::int64_t f : {0, 99, 100, 250}) {
            ASSERT_EQ(deck.vcr.seek_track(f * tracks), S_OK);
            deck.clock.advance_ms(1000);
            ASSERT_EQ(deck.frame(), f);
            BcdTimecode tc{};
            std::uint32_t user = 0;
            ASSERT_EQ(deck.vcr.read_timecode(tc, user), S_OK);
            const PlannedFrame planned = plan_frame(deck.plan, f);
            EXPECT_EQ(tc, to_bcd_word(planned.timecode)) << f;
            EXPECT_EQ(user, planned.user_bits);
            std::int64_t track = 0;
            ASSERT_EQ(deck.vcr.read_track(track), S_OK);
            EXPECT_EQ(track, f * tracks);
        }
    }
}

TEST(Vcr, SeekWindsForTimeAndAPlayWaitsForIt) {
    Deck deck(DvSystem::pal_625_50, 1000);
    EXPECT_EQ(deck.vcr.wait_for_seek(0), S_OK) << "no seek under way";
    // 1500 frames at 30 times 25 frames a second: two seconds of winding.
    ASSERT_EQ(deck.vcr.seek_track(1500 * 12), S_OK);
    ASSERT_EQ(deck.vcr.set_mode(play), S_OK);
    deck.clock.advance_ms(1000);
    EXPECT_EQ(deck.mode(), static_cast<long>(TransportMode::fast_forward));
    EXPECT_TRUE(deck.vcr.state().seeking);
    bool playing = true;
    deck.vcr.get_playing(playing);
    EXPECT_FALSE(playing);
    deck.clock.advance_ms(1000 + 400);
    EXPECT_EQ(deck.mode(), play);
    EXPECT_EQ(deck.frame(), 1500 + 10);
    // Seeking back rewinds, then holds the frame.
    deck.vcr.seek_track(12 * 10);
    EXPECT_EQ(deck.mode(), static_cast<long>(TransportMode::rewind));
    // Waiting takes the winding time: 1500 frames back at 30 times play speed, two
    // seconds, of which the first 100 ms run out a wait; a slower search takes longer.
    deck.clock.set_auto_advance(true);
    EXPECT_EQ(deck.vcr.wait_for_seek(100), hresult_from_errno(ETIMEDOUT));
    const std::int64_t before = deck.clock.now_ms();
    ASSERT_EQ(deck.vcr.wait_for_seek(60000), S_OK);
    EXPECT_EQ(deck.clock.now_ms() - before, 2000 - 100);
    EXPECT_EQ(deck.mode(), freeze);
    EXPECT_EQ(deck.frame(), 10);
    deck.vcr.set_wind_speed(15);
    deck.vcr.seek_track(12 * 1510);
    ASSERT_EQ(deck.vcr.wait_for_seek(60000), S_OK);
    EXPECT_EQ(deck.clock.now_ms() - before, 1900 + 4000);
    EXPECT_EQ(deck.frame(), 1510);
}

TEST(Vcr, AvcAbsoluteTrackNumberCommandSeeksAndOthersAreRefused) {
    Deck deck;
    const std::int64_t track = 123 * 12 + 5;  // inside frame 123
    const auto cmd = testing::atn_seek_command(track);
    ASSERT_EQ(deck.vcr.avc_command(cmd), S_OK);
    deck.clock.advance_ms(1000);
    EXPECT_EQ(deck.frame(), 123);
    EXPECT_EQ(deck.mode(), freeze);

    std::array<std::uint8_t, 8> status = cmd;
    status[0] = 0x01;  // STATUS, not CONTROL
    EXPECT_EQ(deck.vcr.avc_command(status), E_NOTIMPL);
    std::array<std::uint8_t, 8> other = cmd;
    other[2] = 0xC3;  // PLAY
    EXPECT_EQ(deck.vcr.avc_command(other), E_NOTIMPL);
    EXPECT_EQ(deck.vcr.avc_command(std::span(cmd).first(7)), E_INVALIDARG);
    EXPECT_EQ(deck.vcr.set_mode(4302), E_NOTIMPL) << "this deck does not record";
}

TEST(Vcr, PacedFramesFallDueOneAPeriodAndMissedOnesCountAsDropped) {
    Deck deck;
    deck.vcr.set_mode(play);
    deck.vcr.start_stream();
    std::vector<std::uint8_t> out;
    FetchedFrame info;
    std::int64_t next = 0;
    ASSERT_EQ(deck.vcr.fetch_frame(out, info, &next), FetchStatus::frame);
    EXPECT_EQ(frame_mark(out), 0);
    EXPECT_EQ(deck.vcr.fetch_frame(out, info, &next), FetchStatus::not_due);
    EXPECT_EQ(next, 40);
    deck.clock.advance_ms(40);
    ASSERT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::frame);
    EXPECT_EQ(info.tape_frame, 1);
    EXPECT_EQ(info.due_ms, 40);
    EXPECT_EQ(info.dropped_before, 0);
    deck.clock.advance_ms(200);  // frames 2..5 fell due, only 6 is taken
    ASSERT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::frame);
    EXPECT_EQ(frame_mark(out), 6);
    EXPECT_EQ(info.dropped_before, 4) << "the frame after a loss tells how many were lost";
    EXPECT_EQ(deck.vcr.counters().dropped, 4);
    EXPECT_EQ(deck.vcr.counters().delivered, 3);
    deck.clock.advance_ms(40);
    deck.vcr.set_mode(stop);
    ASSERT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::frame)
        << "the frame played just before the stop is still there to be taken";
    EXPECT_EQ(frame_mark(out), 7);
    EXPECT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::no_picture);
}

TEST(Vcr, UnpacedFramesComeAtOnceAndMoveTheTape) {
    Deck deck(DvSystem::ntsc_525_60, 10, VcrOptions{30, 10, Pacing::unpaced});
    deck.vcr.set_mode(play);
    std::vector<std::uint8_t> out;
    FetchedFrame info;
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::frame);
        EXPECT_EQ(frame_mark(out), i);
    }
    EXPECT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::no_picture);
    EXPECT_EQ(deck.mode(), stop);
}

// A frame the tape cannot give is lost where it is reached, and the frame after it says
// so; the frames themselves come as views into the image, not copies.
TEST(Vcr, ADamagedFrameIsLostWhenReachedAndFramesComeUncopied) {
    const TapePlan plan = small_plan(DvSystem::pal_625_50, 2);
    auto bytes = testing::make_tape_bytes(plan);
    bytes[3 * frame_bytes(DvSystem::pal_625_50) + 5 * dv::dif_sequence_bytes] = 0xFF;
    std::error_code error;
    const auto tape = TapeImage::from_bytes(bytes, error);
    ASSERT_TRUE(tape);
    ManualClock clock;
    VirtualVcr vcr(tape, clock, VcrOptions{30, 10, Pacing::unpaced});
    vcr.set_mode(play);
    std::span<const std::uint8_t> view;
    FetchedFrame info;
    for (const std::int64_t expected : {0, 1, 2, 4}) {
        ASSERT_EQ(vcr.wait_frame_view(view, info, 0), FetchStatus::frame);
        EXPECT_EQ(info.tape_frame, expected);
        EXPECT_EQ(info.dropped_before, expected == 4 ? 1 : 0);
        EXPECT_EQ(view.data(), tape->frame_view(expected).data());
        EXPECT_EQ(frame_mark(std::vector<std::uint8_t>(view.begin(), view.end())), expected);
    }
    EXPECT_EQ(vcr.counters().dropped, 1);
}

TEST(Vcr, FaultsLoseTheDeviceHideTimecodeFailSeeksAndDropFrames) {
    Deck deck;
    std::vector<std::uint8_t> out;
    FetchedFrame info;
    deck.vcr.set_mode(play);
    deck.vcr.set_faults(VcrFaults{false, true, true, 0});
    BcdTimecode tc{};
    std::uint32_t user = 0;
    EXPECT_EQ(deck.vcr.read_timecode(tc, user), E_FAIL);
    std::int64_t track = -1;
    EXPECT_EQ(deck.vcr.read_track(track), S_OK) << "the track is still counted";
    EXPECT_EQ(deck.vcr.seek_track(0), E_FAIL);

    deck.vcr.set_faults(VcrFaults{});
    deck.vcr.drop_next_frames(2);
    EXPECT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::not_due);
    deck.clock.advance_ms(40);
    EXPECT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::not_due);
    deck.clock.advance_ms(40);
    EXPECT_EQ(deck.vcr.fetch_frame(out, info), FetchStatus::frame);
    EXPECT_EQ(deck.vcr.counters().dropped, 2);
    EXPECT_EQ(info.dropped_before, 2);

    deck.vcr.set_faults(VcrFaults{true, false, false, 0});
    long mode = 0;
    EXPECT_EQ(deck.vcr.get_mode(mode), device_lost_error);
    EXPECT_EQ(deck.vcr.set_mode(play), device_lost_error);
    EXPECT_EQ(deck.vcr.wait_frame(out, info, 100), FetchStatus::device_lost);
    deck.vcr.set_faults(VcrFaults{});
    EXPECT_EQ(deck.mode(), stop) << "a device that comes back is stopped";
}

}  // namespace
}  // namespace kc::deck
