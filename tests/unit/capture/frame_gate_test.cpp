// The gate between a DV capture's source and its files, fed frames whose facts say what a
// tape would: which frames reach which file, what is counted as lost and where, and what
// the capture log says about it.
#include "platform/capture/frame_gate.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/capture/capture_log.h"

namespace kc::capture {
namespace {

constexpr dv::DvSystem pal = dv::DvSystem::pal_625_50;

// One file of a capture: the gate, the tape frames written to it and its log's lines.
struct File {
    explicit File(std::shared_ptr<Carry> carry = std::make_shared<Carry>())
        : log([this](std::string_view line) { lines.emplace_back(line); }, "scene.avi",
              "test deck"),
          gate(
              GateOptions{}, [this](const Frame& f) { return take(f); }, carry, &log) {}

    bool take(const Frame& f) {
        if (fail_writes) {
            return false;
        }
        written.push_back(*static_cast<int*>(f.payload.get()));
        return true;
    }
    // A tape frame of tape position `n` whose timecode counts `tc` frames.
    void feed(int n, std::int64_t tc, bool flag = false, std::int64_t source_lost = 0) {
        FrameFacts facts;
        facts.timecode = dv::from_frame_count(tc, pal);
        facts.user_flag = flag;
        facts.recorded = dv::RecordingTime{2004, 7, 17, 10, 0, static_cast<int>(tc / 25 % 60)};
        facts.source_lost = source_lost;
        gate.frame(Frame{std::make_shared<int>(n), facts});
    }
    // Tape frames first..last of a recording whose first frame's timecode counts `tc0`.
    void feed_run(int first, int last, int tape_start, std::int64_t tc0) {
        for (int n = first; n <= last; ++n) {
            feed(n, tc0 + (n - tape_start));
        }
    }
    bool logged(const std::string& text) const {
        for (const auto& line : lines) {
            if (line.find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    std::vector<std::string> lines;
    std::vector<int> written;
    bool fail_writes = false;
    CaptureLog log;
    FrameGate gate;
};

std::vector<int> range(int first, int last) {
    std::vector<int> out;
    for (int n = first; n <= last; ++n) {
        out.push_back(n);
    }
    return out;
}

// Within one recording: a frame the tape shows twice is written once, a gap the source
// counted is the source's loss, a gap nobody counted was lost on the way, and a frame the
// file refuses is counted too.
TEST(FrameGate, CountsEveryMissingFrameWhereItWentMissingAndWritesRepeatsOnce) {
    File file;
    file.feed_run(0, 3, 0, 1000);
    file.feed(3, 1003);                            // replayed
    file.feed(6, 1006, false, /*source_lost=*/1);  // 4 and 5 missing, one counted by the source
    file.feed(7, 1007);
    file.fail_writes = true;
    file.feed(8, 1008);
    file.gate.end();
    file.gate.finish_log();

    EXPECT_EQ(file.written, (std::vector<int>{0, 1, 2, 3, 6, 7}));
    const GateCounters c = file.gate.counters();
    EXPECT_EQ(c.written, 6);
    EXPECT_EQ(c.repeats, 1);
    EXPECT_EQ(c.source_lost, 1);
    EXPECT_EQ(c.gap_lost, 1);
    EXPECT_EQ(c.write_failed, 1);
    EXPECT_EQ(c.dropped(), 3);
    EXPECT_TRUE(file.logged("first frame: 00:00:40:00, recorded 2004-07-17 10:00:40"));
    EXPECT_TRUE(file.logged("dropped: 1 frame, before 00:00:40:06, lost by the source"));
    EXPECT_TRUE(file.logged("dropped: 1 frame, before 00:00:40:06, lost between the source"));
    EXPECT_TRUE(file.logged("repeat: 00:00:40:03"));
    EXPECT_TRUE(file.logged("last frame: 00:00:40:07"));
    EXPECT_TRUE(file.logged("dropped frames: 3"));
}

// A capture split at a backward timecode jump that its tick saw two frames late: the first
// file ends with the last frame before the jump; the frames after it, the ones that came
// until the stream ended, open the next file, which does not write again the frame the tape
// replays when it plays on.
TEST(FrameGate, ASplitEndsTheFileAtTheBreakAndCarriesTheRestIntoTheNextFile) {
    auto carry = std::make_shared<Carry>();
    File first(carry);
    first.feed_run(0, 9, 0, 5000);
    first.feed_run(10, 12, 10, 100);  // the next recording, timecode stepping back
    EXPECT_TRUE(first.gate.holds_break()) << "the capture is told what its looks may miss";
    first.gate.split();
    EXPECT_FALSE(first.gate.holds_break()) << "split once, not again";
    first.feed_run(13, 14, 10, 100);  // frames still in flight when the tape stopped
    first.gate.end();
    first.feed(15, 105);  // and one that reached the gate only after its stream was ended
    first.gate.finish_log();
    EXPECT_EQ(first.written, range(0, 9));
    EXPECT_EQ(first.gate.counters().written, 10);
    EXPECT_TRUE(
        first.logged("break: 00:03:20:09 to 00:00:04:00, timecode steps back 4909 frames, "
                     "the file ends here"));

    // Split again before the tape moved (it was still threading): that file stays empty,
    // and what was handed over waits for the next one.
    File empty(carry);
    empty.gate.split();
    empty.gate.end();
    EXPECT_TRUE(empty.written.empty());

    File second(carry);
    second.feed(14, 104);  // the tape plays on from the frame it stopped on
    second.feed_run(15, 17, 10, 100);
    second.gate.end();
    EXPECT_EQ(second.written, range(10, 17));
    EXPECT_EQ(second.gate.counters().repeats, 2);
    EXPECT_EQ(second.gate.counters().dropped(), 0);
    EXPECT_TRUE(
        second.logged("first frame: 00:00:04:00, recorded 2004-07-17 10:00:04 (the "
                      "recording break"));

    // A new capture that finds nothing carried starts clean.
    File third(carry);
    third.feed(20, 104);
    third.gate.end();
    EXPECT_EQ(third.written, (std::vector<int>{20}));
}

// Which break a split takes: the latest one before the stream ends, including one that
// was still in flight when the split was asked for; with none at all, the split point.
TEST(FrameGate, ASplitTakesTheLatestBreakOrElseWhereItWasAsked) {
    {
        auto carry = std::make_shared<Carry>();
        File file(carry);
        file.feed_run(0, 4, 0, 0);
        file.gate.split();
        file.feed_run(5, 6, 0, 0);  // the old recording, still in flight
        file.feed(7, 10000);        // the break the tick saw
        file.feed(8, 10001);
        file.gate.end();
        EXPECT_EQ(file.written, range(0, 6));
        File next(carry);
        next.gate.end();
        EXPECT_EQ(next.written, (std::vector<int>{7, 8}));
    }
    {
        auto carry = std::make_shared<Carry>();
        File file(carry);
        file.feed_run(0, 4, 0, 0);
        file.feed(5, 5, /*flag=*/true);  // a flagged run that the tick saw twice
        file.gate.split();
        file.gate.end();
        File second(carry);
        second.feed(6, 6, true);
        EXPECT_EQ(second.gate.counters().written, 2) << "held, but the file's own";
        second.gate.split();
        second.feed(7, 7);
        second.gate.end();
        EXPECT_EQ(file.written, range(0, 4));
        EXPECT_TRUE(second.written.empty()) << "the whole flagged start goes on";
        File third(carry);
        third.feed(8, 8);
        third.gate.end();
        EXPECT_EQ(third.written, (std::vector<int>{5, 6, 7, 8}));
        // Seen once only, the flagged start opens its file as the flag ends.
        File fourth(carry);
        fourth.feed_run(0, 4, 0, 0);
        fourth.feed(5, 5, true);
        fourth.gate.split();
        fourth.gate.end();
        File fifth(carry);
        fifth.feed(6, 6, true);
        EXPECT_TRUE(fifth.written.empty());
        fifth.feed(7, 7);
        EXPECT_EQ(fifth.written, (std::vector<int>{5, 6, 7}));
    }
    {
        // The tape stopped before the break reached the stream: the next file begins with
        // it instead of holding it for another split.
        auto carry = std::make_shared<Carry>();
        File file(carry);
        file.feed_run(0, 4, 0, 0);
        file.gate.split();
        file.gate.end();
        File next(carry);
        next.feed(5, 5000);
        next.feed(6, 5001);
        EXPECT_EQ(next.written, (std::vector<int>{5, 6}));
        EXPECT_TRUE(next.logged("timecode jumps forward 4996 frames, the file begins here"));
    }
    {
        // So too with a flagged start, which the next look may find and split at again.
        auto carry = std::make_shared<Carry>();
        File file(carry);
        file.feed_run(0, 4, 0, 0);
        file.gate.split();
        file.gate.end();
        File next(carry);
        next.feed(5, 5, /*flag=*/true);
        next.feed(6, 6, true);
        next.gate.split();
        next.gate.end();
        EXPECT_TRUE(next.written.empty()) << "the flagged start goes on whole";
        EXPECT_EQ(next.gate.counters().written, 0) << "a file deleted as too short";
        File last(carry);
        last.feed(7, 7);
        last.gate.end();
        EXPECT_EQ(last.written, (std::vector<int>{5, 6, 7}));
    }
}

// A break the capture does not split at stays in the file: at the end of the stream, or
// once the capture has had two seconds of frames to say so; nothing is lost either way.
TEST(FrameGate, ABreakWithoutASplitStaysInTheFile) {
    File ended;
    ended.feed_run(0, 9, 0, 0);
    ended.feed_run(10, 12, 10, 9000);
    ended.gate.end();
    EXPECT_EQ(ended.written, range(0, 12));
    EXPECT_TRUE(ended.logged("timecode jumps forward 8991 frames, kept in this file"));

    File going;
    going.feed_run(0, 9, 0, 0);
    EXPECT_FALSE(going.gate.holds_break());
    going.feed(10, 10, /*flag=*/true);
    going.feed_run(11, 59, 10, 10);
    EXPECT_EQ(going.written, range(0, 9)) << "held while the capture may still split";
    EXPECT_TRUE(going.gate.holds_break());
    going.feed_run(60, 61, 10, 10);
    EXPECT_EQ(going.written, range(0, 61)) << "released after two seconds of frames";
    EXPECT_FALSE(going.gate.holds_break());
    EXPECT_TRUE(going.logged("recording start flag, kept in this file"));
    EXPECT_EQ(going.gate.counters().dropped(), 0);
}

}  // namespace
}  // namespace kc::capture
