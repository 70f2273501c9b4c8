// The main window's timers and graph events: the record indicator's 250 ms rule, the
// transport fields, disk space with the low-disk warning, dropped frames, and the loss
// of the capture device.

#include <gtest/gtest.h>

#include "tests/unit/ui/ui_rig.h"

namespace {

constexpr unsigned indicator_only = 7;  // a timer id with no work of its own
const std::string indicator_drawn = "draw_bitmap_on_window(100,316,11,1023)";
const std::string indicator_erased = "invalidate_rect(100,316,11,340,30,0)";
const Texts low_disk_warning = {"Warning: low disk space on output directory (10)"};

struct Batch : CapBatchCallback {};

// Free space far below the 10 % threshold.
void low_disk(UiRig& rig) {
    rig.system.total = 10000;
    rig.system.available = 5;
}

}  // namespace

// --- Record indicator -------------------------------------------------------------------

TEST_F(MainWindowTest, IndicatorChangesOnlyOnATickMoreThan250MsAfterItsLastChange) {
    rig.host.tick = 1000;
    w.command(108);
    ASSERT_EQ(w.dialog.state, 3);
    ASSERT_TRUE(w.dialog.indicator_on);
    struct Step {
        std::uint32_t tick;
        bool on;
        Texts calls;
        std::uint32_t changed_at;
    };
    for (const Step& s : {Step{1250, true, {}, 1000}, Step{1251, false, {indicator_erased}, 1251},
                          Step{1501, false, {}, 1251}, Step{1502, true, {indicator_drawn}, 1502}}) {
        const std::size_t mark = rig.host.calls.size();
        rig.host.tick = s.tick;
        w.timer(indicator_only);
        EXPECT_EQ(w.dialog.indicator_on, s.on) << s.tick;
        EXPECT_EQ(rig.calls_since(mark), s.calls) << s.tick;
        EXPECT_EQ(w.dialog.indicator_tick, s.changed_at) << s.tick;
    }
    // Across the wrap of the tick counter: 272 ms later.
    w.dialog.indicator_on = false;
    w.dialog.indicator_tick = 0xFFFFFF00u;
    rig.host.tick = 0x00000010u;
    w.timer(indicator_only);
    EXPECT_TRUE(w.dialog.indicator_on);
    EXPECT_EQ(rig.host.calls.back(), indicator_drawn);
}

TEST_F(MainWindowTest, IndicatorLeavingStateThreeRemovesItOnTheNextTickOfAnyTimer) {
    rig.host.tick = 1000;
    w.command(108);
    w.command(102);  // play: state 2
    rig.host.tick = 1001;
    w.timer(3);
    EXPECT_FALSE(w.dialog.indicator_on);
    EXPECT_EQ(rig.host.count(indicator_erased), 1u);
    w.timer(3);
    EXPECT_EQ(rig.host.count(indicator_erased), 1u);
}

// --- Transport fields -------------------------------------------------------------------

TEST_F(MainWindowTest, TransportTimecodeAndTrackWithAtLeastFiveDigits) {
    rig.deck.timecode_bcd = bcd_timecode(1, 23, 45, 29);
    rig.deck.track = 42;
    w.timer(1);
    EXPECT_EQ(w.text(1010), "01:23:45:29");
    EXPECT_EQ(w.text(114), "00042");
    // A device that gives a timecode but no track number.
    rig.deck.fail("get_timecode.track", E_FAIL);
    w.timer(1);
    EXPECT_EQ(w.text(114), "-00001");
    // No timecode at all: both fields keep their text.
    rig.deck.fail("get_timecode.timecode", E_FAIL);
    rig.deck.timecode_bcd = bcd_timecode(2, 0, 0, 0);
    w.timer(1);
    EXPECT_EQ(w.text(1010), "01:23:45:29");
    EXPECT_EQ(w.text(114), "-00001");
    EXPECT_TRUE(rig.messages().empty());
}

TEST_F(MainWindowTest, TransportStatusTextByModeAndUnknownModesKeepTheLastText) {
    const std::vector<std::pair<long, std::string>> steps = {
        {4296, "Playing"},      {4299, "Playing"}, {4298, "Paused"},       {4303, "Paused"},
        {5030, "Fast forward"}, {5032, "Rewind"},  {4905, "Step reverse"}, {4302, "Recording"},
    };
    for (const auto& [mode, text] : steps) {
        rig.deck.status_mode = mode;
        w.timer(1);
        EXPECT_EQ(w.text(122), text) << mode;
    }
    rig.deck.fail("get_status", E_FAIL);
    rig.deck.status_mode = 4297;
    w.timer(1);
    EXPECT_EQ(w.text(122), "Recording");
}

// --- Disk space --------------------------------------------------------------------------

TEST_F(MainWindowTest, DiskBarAndGigabytesFromTheLastReading) {
    // Before any successful reading: a full bar and -1 bytes. A failed reading keeps the
    // last values; then a reading.
    struct Step {
        bool ok;
        double fraction, bytes;
        int bar;
        std::string text;
    };
    rig.system.available = 250'000'000'000ull;
    rig.system.total = 1'000'000'000'000ull;
    for (const Step& s : {Step{false, -1, -1, 100, "-0.0000 GB"},
                          Step{false, 0.4567, 12345678901.0, 45, "12.3457 GB"},
                          Step{true, -1, -1, 25, "250.0000 GB"}}) {
        rig.system.disk_ok = s.ok;
        if (s.fraction >= 0) {
            app->free_fraction = s.fraction;
            app->free_bytes = s.bytes;
        }
        w.timer(2);
        EXPECT_EQ(w.control(1001).progress_pos, s.bar);
        EXPECT_EQ(w.text(1003), s.text);
    }
    EXPECT_TRUE(rig.messages().empty());
}

TEST_F(MainWindowTest, DiskWarnsOncePerFallBelowTheThreshold) {
    low_disk(rig);
    w.timer(2);
    w.timer(2);
    EXPECT_EQ(rig.messages(), low_disk_warning);
    EXPECT_TRUE(w.dialog.disk_warned);
    rig.system.available = 1000;  // exactly the threshold: not low, re-arms
    w.timer(2);
    EXPECT_FALSE(w.dialog.disk_warned);
    rig.system.available = 10;
    w.timer(2);
    EXPECT_EQ(rig.messages(), (Texts{low_disk_warning[0], low_disk_warning[0]}));
}

// The recording ends and the live preview comes back, also when its graph cannot be
// built once; the window stays in state 3 until a transport command changes it.
TEST(MainDiskTimer, LowDiskEndsARecordingAndTheLivePreviewComesBack) {
    for (bool preview_fails_once : {false, true}) {
        UiRig rig;
        MainWindow w(rig);
        w.command(108);
        ASSERT_TRUE(app->recording);
        if (preview_fails_once) {
            rig.media.builder.fail("render_stream", E_FAIL,
                                   rig.media.builder.script.calls("render_stream") + 1);
        }
        low_disk(rig);
        w.timer(2);
        EXPECT_FALSE(app->recording);
        EXPECT_EQ(rig.messages().size(), 1u);
        if (!preview_fails_once) {
            EXPECT_EQ(rig.messages(), low_disk_warning);
        }
        EXPECT_TRUE(rig.preview_in(w.pane()));
        EXPECT_EQ(w.dialog.state, 3);
        EXPECT_FALSE(app->inbatch);
    }
}

TEST_F(MainWindowTest, DiskLowDuringABatchOnlyAsksItToStop) {
    Batch batch;
    app->inbatch = true;
    app->callback = &batch;
    low_disk(rig);
    const std::size_t mark = rig.media.ledger.calls.size();
    w.timer(2);
    EXPECT_TRUE(batch.aborted);
    EXPECT_FALSE(app->recording);
    EXPECT_EQ(rig.messages(), low_disk_warning);
    EXPECT_TRUE(rig.media_since(mark, "graph.").empty());
    app->inbatch = false;
    app->callback = nullptr;
}

// --- Dropped frames ------------------------------------------------------------------------

TEST_F(MainWindowTest, DroppedFramesSixDigitsOrUnavailable) {
    w.timer(3);
    EXPECT_EQ(w.text(1008), "Unavailable");  // no capture graph, no counters
    w.command(108);
    ASSERT_TRUE(app->dropped->valid());
    for (auto [dropped, text] : {std::pair{12L, "000012"}, std::pair{1234567L, "1234567"},
                                 std::pair{-1L, "Unavailable"}}) {
        rig.media.builder.dropped.dropped = dropped;
        w.timer(3);
        EXPECT_EQ(w.text(1008), text);
    }
    rig.media.builder.dropped.dropped = 3;
    rig.media.builder.dropped.fail("get_num_dropped", E_FAIL);
    w.timer(3);
    EXPECT_EQ(w.text(1008), "Unavailable");
}

// --- Graph events ---------------------------------------------------------------------------

// Only the loss of the capture source tells the user and closes; other devices' losses
// and other events are only freed. Either way no reference is left over.
TEST(MainGraphEvents, LosingTheCaptureSourceTellsTheUserAndCloses) {
    for (bool source : {true, false}) {
        UiRig rig;
        MainWindow w(rig);
        const RefBaseline refs(rig.media.ledger);
        if (source) {
            rig.media.graph.queue_event(media::EC_COMPLETE);
            rig.media.graph.queue_device_lost(rig.deck);
        } else {
            rig.media.graph.queue_device_lost(rig.media.microphone);
            rig.media.graph.queue_event(media::EC_ERRORABORT, 5, 6);
        }
        rig.host.pump();  // the event reaches the window through its preview pane
        EXPECT_EQ(rig.messages(), source ? Texts{"Your camera has been disconnected, or has been "
                                                 "turned off. The program will now exit (9)"}
                                         : Texts{});
        EXPECT_EQ(rig.media.graph.freed_events.size(), 2u);
        EXPECT_TRUE(rig.media.graph.events.empty());
        rig.host.pump();
        EXPECT_EQ(w.ended(), source);
        if (source) {
            EXPECT_EQ(w.end_code(), 0);
        }
        EXPECT_EQ(rig.media.graph.is_running, !source);
        EXPECT_TRUE(refs.changes().empty());
    }
}
