// The main window's timers and graph events: the record indicator's 250 ms rule, the
// transport fields, disk space with the low-disk warning, dropped frames, and the loss
// of the capture device.

#include <gtest/gtest.h>

#include "tests/unit/ui/ui_rig.h"

namespace {

constexpr unsigned indicator_only = 7;  // a timer id with no work of its own
const std::string indicator_drawn = "draw_bitmap_on_window(100,316,11,1023)";
const std::string indicator_erased = "invalidate_rect(100,316,11,340,30,0)";

struct Batch : CapBatchCallback {};

}  // namespace

// --- Record indicator -------------------------------------------------------------------

TEST(MainIndicator, ChangesOnlyOnATickMoreThan250MsAfterItsLastChange) {
    UiRig rig;
    MainWindow w(rig);
    rig.host.tick = 1000;
    w.command(108);
    ASSERT_EQ(w.dialog.state, 3);
    ASSERT_TRUE(w.dialog.indicator_on);

    std::size_t mark = rig.host.calls.size();
    rig.host.tick = 1250;
    w.timer(indicator_only);
    EXPECT_TRUE(w.dialog.indicator_on);
    EXPECT_TRUE(rig.calls_since(mark).empty());

    rig.host.tick = 1251;
    w.timer(indicator_only);
    EXPECT_FALSE(w.dialog.indicator_on);
    EXPECT_EQ(w.dialog.indicator_tick, 1251u);
    EXPECT_EQ(rig.calls_since(mark), std::vector<std::string>{indicator_erased});

    mark = rig.host.calls.size();
    rig.host.tick = 1501;
    w.timer(indicator_only);
    EXPECT_TRUE(rig.calls_since(mark).empty());
    rig.host.tick = 1502;
    w.timer(indicator_only);
    EXPECT_TRUE(w.dialog.indicator_on);
    EXPECT_EQ(rig.calls_since(mark), std::vector<std::string>{indicator_drawn});
}

TEST(MainIndicator, SurvivesTheTickCounterWrapping) {
    UiRig rig;
    MainWindow w(rig);
    w.dialog.state = 3;
    w.dialog.indicator_on = false;
    w.dialog.indicator_tick = 0xFFFFFF00u;
    rig.host.tick = 0x00000010u;  // 272 ms later, across the wrap
    w.timer(indicator_only);
    EXPECT_TRUE(w.dialog.indicator_on);
    EXPECT_EQ(rig.host.calls.back(), indicator_drawn);
}

TEST(MainIndicator, LeavingStateThreeRemovesItOnTheNextTickOfAnyTimer) {
    UiRig rig;
    MainWindow w(rig);
    rig.host.tick = 1000;
    w.command(108);
    w.command(102);  // play: state 2
    rig.host.tick = 1001;
    const std::size_t mark = rig.host.calls.size();
    w.timer(3);
    EXPECT_FALSE(w.dialog.indicator_on);
    EXPECT_EQ(rig.host.count("invalidate_rect(100,316,11,340,30,0)"), 1u);
    w.timer(3);
    EXPECT_EQ(rig.host.count("invalidate_rect(100,316,11,340,30,0)"), 1u);
    EXPECT_FALSE(rig.calls_since(mark).empty());
}

// --- Transport fields -------------------------------------------------------------------

TEST(MainTransportTimer, TimecodeAndTrackWithAtLeastFiveDigits) {
    UiRig rig;
    MainWindow w(rig);
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

TEST(MainTransportTimer, StatusTextByModeAndUnknownModesKeepTheLastText) {
    UiRig rig;
    MainWindow w(rig);
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

TEST(MainDiskTimer, BarAndGigabytesFromTheLastReading) {
    UiRig rig;
    MainWindow w(rig);
    // Before any successful reading: a full bar and -1 bytes.
    rig.system.disk_ok = false;
    w.timer(2);
    EXPECT_EQ(rig.host.control(w.window, 1001).progress_pos, 100);
    EXPECT_EQ(w.text(1003), "-0.0000 GB");
    // A failed reading keeps the last values.
    app->free_fraction = 0.4567;
    app->free_bytes = 12345678901.0;
    w.timer(2);
    EXPECT_EQ(rig.host.control(w.window, 1001).progress_pos, 45);
    EXPECT_EQ(w.text(1003), "12.3457 GB");
    // A reading.
    rig.system.disk_ok = true;
    rig.system.available = 250'000'000'000ull;
    rig.system.total = 1'000'000'000'000ull;
    w.timer(2);
    EXPECT_EQ(rig.host.control(w.window, 1001).progress_pos, 25);
    EXPECT_EQ(w.text(1003), "250.0000 GB");
    EXPECT_TRUE(rig.messages().empty());
}

TEST(MainDiskTimer, WarnsOncePerFallBelowTheThreshold) {
    UiRig rig;
    MainWindow w(rig);
    rig.system.total = 10000;
    const std::string warning = "Warning: low disk space on output directory (10)";
    rig.system.available = 999;
    w.timer(2);
    w.timer(2);
    EXPECT_EQ(rig.messages(), std::vector<std::string>{warning});
    EXPECT_TRUE(w.dialog.disk_warned);
    rig.system.available = 1000;  // exactly the threshold: not low, re-arms
    w.timer(2);
    EXPECT_FALSE(w.dialog.disk_warned);
    rig.system.available = 10;
    w.timer(2);
    EXPECT_EQ(rig.messages(), (std::vector<std::string>{warning, warning}));
}

TEST(MainDiskTimer, LowDiskEndsARecordingAndTheLivePreviewComesBack) {
    UiRig rig;
    MainWindow w(rig);
    w.command(108);
    ASSERT_TRUE(app->recording);
    rig.system.total = 10000;
    rig.system.available = 5;
    w.timer(2);
    EXPECT_FALSE(app->recording);
    EXPECT_EQ(rig.messages(),
              std::vector<std::string>{"Warning: low disk space on output directory (10)"});
    EXPECT_TRUE(app->win->attached());
    EXPECT_TRUE(app->win->running());
    EXPECT_EQ(rig.media.graph.owner, w.pane());
    // The window stays in state 3 until a transport command changes it.
    EXPECT_EQ(w.dialog.state, 3);
}

TEST(MainDiskTimer, LowDiskDuringABatchOnlyAsksItToStop) {
    UiRig rig;
    MainWindow w(rig);
    Batch batch;
    app->inbatch = true;
    app->callback = &batch;
    rig.system.total = 10000;
    rig.system.available = 5;
    const std::size_t mark = rig.media.ledger.calls.size();
    w.timer(2);
    EXPECT_TRUE(batch.aborted);
    EXPECT_FALSE(app->recording);
    EXPECT_EQ(rig.messages(),
              std::vector<std::string>{"Warning: low disk space on output directory (10)"});
    EXPECT_TRUE(rig.media_since(mark, "graph.").empty());
    app->inbatch = false;
    app->callback = nullptr;
}

TEST(MainDiskTimer, AFailingLowDiskStopIsShownAndThePreviewPutBack) {
    UiRig rig;
    MainWindow w(rig);
    w.command(108);
    ASSERT_TRUE(app->recording);
    // The preview graph of the low-disk stop cannot be built, once.
    rig.media.builder.fail("render_stream", E_FAIL,
                           rig.media.builder.script.calls("render_stream") + 1);
    rig.system.total = 10000;
    rig.system.available = 5;
    w.timer(2);
    EXPECT_EQ(rig.messages().size(), 1u);
    EXPECT_FALSE(app->recording);
    EXPECT_TRUE(app->win->running());
    EXPECT_EQ(rig.media.graph.owner, w.pane());
    EXPECT_FALSE(app->inbatch);
}

// --- Dropped frames ------------------------------------------------------------------------

TEST(MainDroppedTimer, SixDigitsOrUnavailable) {
    UiRig rig;
    MainWindow w(rig);
    w.timer(3);
    EXPECT_EQ(w.text(1008), "Unavailable");  // no capture graph, no counters
    w.command(108);
    ASSERT_TRUE(app->dropped->valid());
    rig.media.builder.dropped.dropped = 12;
    w.timer(3);
    EXPECT_EQ(w.text(1008), "000012");
    rig.media.builder.dropped.dropped = 1234567;
    w.timer(3);
    EXPECT_EQ(w.text(1008), "1234567");
    rig.media.builder.dropped.dropped = -1;
    w.timer(3);
    EXPECT_EQ(w.text(1008), "Unavailable");
    rig.media.builder.dropped.dropped = 3;
    rig.media.builder.dropped.fail("get_num_dropped", E_FAIL);
    w.timer(3);
    EXPECT_EQ(w.text(1008), "Unavailable");
}

// --- Graph events ---------------------------------------------------------------------------

TEST(MainGraphEvents, LosingTheCaptureSourceTellsTheUserAndCloses) {
    UiRig rig;
    MainWindow w(rig);
    const RefBaseline refs(rig.media.ledger);
    rig.media.graph.queue_event(media::EC_COMPLETE);
    rig.media.graph.queue_device_lost(rig.deck);
    rig.host.send(w.window, wm::graph_event);
    EXPECT_EQ(rig.messages(),
              std::vector<std::string>{"Your camera has been disconnected, or has been turned "
                                       "off. The program will now exit (9)"});
    EXPECT_EQ(rig.media.graph.freed_events.size(), 2u);
    EXPECT_TRUE(rig.media.graph.events.empty());
    rig.host.pump();
    EXPECT_TRUE(rig.host.ended(w.window));
    EXPECT_EQ(rig.host.end_code(w.window), 0);
    EXPECT_FALSE(rig.media.graph.is_running);
    EXPECT_TRUE(refs.changes().empty());
}

TEST(MainGraphEvents, OtherDevicesAndOtherEventsAreOnlyFreed) {
    UiRig rig;
    MainWindow w(rig);
    const RefBaseline refs(rig.media.ledger);
    rig.media.graph.queue_device_lost(rig.media.microphone);
    rig.media.graph.queue_event(media::EC_ERRORABORT, 5, 6);
    rig.host.send(w.window, wm::graph_event);
    EXPECT_TRUE(rig.messages().empty());
    EXPECT_EQ(rig.media.graph.freed_events.size(), 2u);
    rig.host.pump();
    EXPECT_FALSE(rig.host.ended(w.window));
    EXPECT_TRUE(refs.changes().empty());
}

TEST(MainGraphEvents, TheEventReachesTheWindowThroughItsPreviewPane) {
    UiRig rig;
    MainWindow w(rig);
    rig.media.graph.queue_device_lost(rig.deck);
    rig.host.pump();
    EXPECT_EQ(rig.messages().size(), 1u);
    EXPECT_TRUE(rig.host.ended(w.window));
}
